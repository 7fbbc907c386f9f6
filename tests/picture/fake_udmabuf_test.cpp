// The allocator on a UdmaBuf that misbehaves: its members are defined here, in place of those in the library.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "picture/region.h"
#include "support/throw_text.h"
#include "vidorra/picture/udmabuf_picture_allocator.h"

namespace {

struct Behaviour {
    std::uint8_t* data = nullptr;
    std::size_t size = 0;
    std::size_t pageSize = 4096;
    bool fails = false;

    std::string name;
    bool flag = true;
    int destroyed = 0;
    std::vector<std::pair<const void*, std::size_t>> syncs;
};

Behaviour gBehaviour;

}  // namespace

UdmaBuf::File::File(const std::string& /*path*/, int /*flags*/) : mDescriptor(-1) {}
UdmaBuf::File::~File() = default;

UdmaBuf::UdmaBuf(std::string_view name, bool uncached)
    : mDevice("", 0), mSyncControl("", 0), mSize(gBehaviour.size), mData(gBehaviour.data) {
    gBehaviour.name = name;
    gBehaviour.flag = uncached;
    if (gBehaviour.fails) {
        throw std::system_error(ENODEV, std::generic_category(), "fake");
    }
}
UdmaBuf::~UdmaBuf() {
    ++gBehaviour.destroyed;
}
std::size_t UdmaBuf::pageSize() noexcept {
    return gBehaviour.pageSize;
}
void UdmaBuf::syncForDevice(const void* data, std::size_t size) const {
    gBehaviour.syncs.emplace_back(data, size);
}

namespace vidorra::test {
namespace {

class FakeUdmaBuf : public testing::Test {
protected:
    FakeUdmaBuf() {
        gBehaviour = {};
        gBehaviour.data = mRegion.data();
        gBehaviour.size = mRegion.size();
    }

    Region mRegion{16384};
};

TEST_F(FakeUdmaBuf, GetsTheNameUnchangedAndFalse) {
    const UdmaBufPictureAllocator allocator("/dev/any name");
    EXPECT_EQ(gBehaviour.name, "/dev/any name");
    EXPECT_FALSE(gBehaviour.flag);
}

TEST_F(FakeUdmaBuf, ItsErrorsPassUnchanged) {
    gBehaviour.fails = true;
    EXPECT_THROW_TEXT(std::system_error, "fake: No such device", UdmaBufPictureAllocator("device"));
}

TEST_F(FakeUdmaBuf, WithoutMemoryIsRefusedAndDestroyed) {
    gBehaviour.data = nullptr;
    EXPECT_THROW_TEXT(std::invalid_argument, "BestFitPictureAllocator: buffer must not be null",
                      UdmaBufPictureAllocator("device"));
    EXPECT_EQ(gBehaviour.destroyed, 1);
}

TEST_F(FakeUdmaBuf, WithAnOddPageSizeIsRefusedAndDestroyed) {
    gBehaviour.pageSize = 3000;
    EXPECT_THROW_TEXT(std::invalid_argument, "BestFitPictureAllocator: blockAlignment must be power of two",
                      UdmaBufPictureAllocator("device"));
    EXPECT_EQ(gBehaviour.destroyed, 1);
}

TEST_F(FakeUdmaBuf, ItsPageSizeAlignsTheBlocks) {
    gBehaviour.pageSize = 1024;
    UdmaBufPictureAllocator allocator("device");
    const Picture first = allocator.allocate({1, 1}, AV_PIX_FMT_GRAY8, AVCOL_RANGE_JPEG);
    const Picture second = allocator.allocate({1, 1}, AV_PIX_FMT_GRAY8, AVCOL_RANGE_JPEG);
    EXPECT_EQ(second.data()[0], mRegion.data() + 1024);
    EXPECT_EQ(second.linesize()[0], 32);
}

TEST_F(FakeUdmaBuf, AFlushIsPassedOn) {
    UdmaBufPictureAllocator allocator("device");
    const Picture picture = allocator.allocate({1, 1}, AV_PIX_FMT_GRAY8, AVCOL_RANGE_JPEG);
    picture.flush();
    const std::vector<std::pair<const void*, std::size_t>> expected = {{mRegion.data(), 4096}};
    EXPECT_EQ(gBehaviour.syncs, expected);
}

TEST_F(FakeUdmaBuf, TheSizeOfAFlushIsWidenedWithItsSign) {
    UdmaBuf buffer("device", false);
    UdmaBufPictureAllocator::Allocator allocator(buffer);
    allocator.flush(mRegion.data(), -1);
    const std::vector<std::pair<const void*, std::size_t>> expected = {{mRegion.data(), ~std::size_t{0}}};
    EXPECT_EQ(gBehaviour.syncs, expected);
}

TEST_F(FakeUdmaBuf, LivesAsLongAsTheAllocator) {
    {
        const UdmaBufPictureAllocator allocator("device");
        EXPECT_EQ(gBehaviour.destroyed, 0);
    }
    EXPECT_EQ(gBehaviour.destroyed, 1);
}

}  // namespace
}  // namespace vidorra::test
