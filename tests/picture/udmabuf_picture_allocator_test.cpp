#include "vidorra/picture/udmabuf_picture_allocator.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <new>
#include <string>
#include <system_error>
#include <vector>

#include "platform/udmabuf/device_files.h"
#include "support/media.h"
#include "support/throw_text.h"

namespace vidorra::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const std::uint64_t kPage = UdmaBuf::pageSize();

Picture allocate(PictureAllocator& allocator, int width = 100, int height = 60) {
    return allocator.allocate({width, height}, AV_PIX_FMT_NV12, AVCOL_RANGE_MPEG);
}

TEST(UdmaBufPictureAllocator, PicturesAreEditableAndReachedByTheDevice) {
    const DeviceFiles files("pictures", 16 * kPage);
    UdmaBufPictureAllocator allocator(files.name());
    Picture picture = allocate(allocator);
    EXPECT_TRUE(picture.isBufferDMA());
    EXPECT_TRUE(picture.editable());
    EXPECT_EQ(picture.linesize(), (Picture::Linesizes{128, 128, 0, 0}));
    EXPECT_NO_THROW(picture.markModified());
}

TEST(UdmaBufPictureAllocator, PicturesStartOnPageBoundaries) {
    const DeviceFiles files("pictures", 64 * kPage);
    UdmaBufPictureAllocator allocator(files.name());
    const std::vector<Picture> pictures = {allocate(allocator), allocate(allocator, 2, 2),
                                           allocate(allocator)};
    for (const Picture& picture : pictures) {
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(picture.data()[0]) % kPage, 0u);
    }
}

TEST(UdmaBufPictureAllocator, PixelsLieInTheDevicesMemory) {
    const DeviceFiles files("pictures", 16 * kPage);
    UdmaBufPictureAllocator allocator(files.name());
    const Picture first = allocate(allocator);
    const Picture second = allocate(allocator, 16, 16);
    std::memset(first.data()[0], 'a', 128 * 60);
    std::memset(second.data()[0], 'b', 32 * 16);
    const std::string memory = fileContent(files.device());
    EXPECT_EQ(memory.substr(0, 128 * 60), std::string(128 * 60, 'a'));
    const std::size_t block = (128 * 90 + kPage - 1) / kPage * kPage;
    EXPECT_EQ(memory.substr(block, 32 * 16), std::string(32 * 16, 'b'));
}

TEST(UdmaBufPictureAllocator, AFlushReachesTheDeviceWithTheWholeBlock) {
    const DeviceFiles files("pictures", 16 * kPage);
    UdmaBufPictureAllocator allocator(files.name());
    const Picture first = allocate(allocator);
    const Picture second = allocate(allocator, 16, 16);
    EXPECT_THAT(files.syncCommands(), IsEmpty());
    const std::uint64_t block = (128 * 90 + kPage - 1) / kPage * kPage;
    second.flush();
    first.crop({0, 0, 16, 16}).flush();
    EXPECT_THAT(files.syncCommands(),
                ElementsAre(SyncCommand{.offset = block, .size = kPage, .direction = 1, .start = true},
                            SyncCommand{.offset = 0, .size = block, .direction = 1, .start = true}));
}

TEST(UdmaBufPictureAllocator, MakingASharedPictureEditableTakesItFromTheDevice) {
    const DeviceFiles files("pictures", 16 * kPage);
    UdmaBufPictureAllocator allocator(files.name());
    const Picture picture = allocate(allocator);
    Picture copy = picture;
    copy.makeEditable();
    EXPECT_FALSE(copy.isBufferDMA());
    EXPECT_TRUE(picture.isBufferDMA());
    copy.flush();
    EXPECT_THAT(files.syncCommands(), IsEmpty());
}

TEST(UdmaBufPictureAllocator, MakingAPrivatePictureEditableLeavesItWhereItIs) {
    const DeviceFiles files("pictures", 16 * kPage);
    UdmaBufPictureAllocator allocator(files.name());
    Picture picture = allocate(allocator);
    const std::uint8_t* const data = picture.data()[0];
    picture.makeEditable();
    EXPECT_TRUE(picture.isBufferDMA());
    EXPECT_EQ(picture.data()[0], data);
}

TEST(UdmaBufPictureAllocator, AReleasedBlockIsUsedAgain) {
    const DeviceFiles files("pictures", 3 * kPage);
    UdmaBufPictureAllocator allocator(files.name());
    for (int i = 0; i < 10; ++i) {
        EXPECT_TRUE(allocate(allocator).isBufferDMA());
    }
}

TEST(UdmaBufPictureAllocator, AFullDeviceThrows) {
    const DeviceFiles files("pictures", 2 * kPage);
    UdmaBufPictureAllocator allocator(files.name());
    const Picture first = allocate(allocator, 16, 16);
    const Picture second = allocate(allocator, 16, 16);
    EXPECT_THROW(allocate(allocator, 16, 16), std::bad_alloc);
}

TEST(UdmaBufPictureAllocator, ADeviceOfLessThanAPageHasNoRoom) {
    const DeviceFiles files("pictures", kPage - 1);
    UdmaBufPictureAllocator allocator(files.name());
    EXPECT_THROW(allocate(allocator, 2, 2), std::bad_alloc);
    EXPECT_THROW(allocate(allocator, 2, 2), std::bad_alloc);
}

TEST(UdmaBufPictureAllocator, AMissingDeviceIsReportedByTheBufferItself) {
    const DeviceFiles files("pictures", kPage);
    const std::string path = files.device().parent_path() / "other";
    EXPECT_THROW_TEXT(std::system_error, "UdmaBuf: cannot open " + path + ": No such file or directory",
                      UdmaBufPictureAllocator("other"));
}

TEST(UdmaBufPictureAllocator, TheBlockAllocatorWorksOnABufferOfTheCallers) {
    const DeviceFiles files("pictures", 4 * kPage);
    UdmaBuf buffer(files.name(), true);
    UdmaBufPictureAllocator::Allocator allocator(buffer);
    const Picture picture = allocate(allocator, 16, 16);
    EXPECT_EQ(picture.data()[0], buffer.get());
    EXPECT_TRUE(picture.isBufferDMA());
}

}  // namespace
}  // namespace vidorra::test
