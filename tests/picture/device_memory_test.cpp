// Pictures in memory that a device can reach.

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <latch>
#include <memory>
#include <new>
#include <thread>
#include <utility>
#include <vector>

#include "ffmpeg/buffers.h"
#include "picture_probe.h"
#include "vidorra/core/enum_text.h"
#include "vidorra/picture/picture.h"
#include "vidorra/picture/video_frame.h"

namespace vidorra {
namespace {

using ffmpeg_ext::kBufferFlagDma;
using test::AllocationLimit;
using test::bufferCount;
using test::FramePtr;
using test::newFrame;
using test::noisePicture;
using test::pixelsOf;

constexpr Size kSize{16, 8};

// Memory of a device with a count of what happens to the buffers in it.
class Device {
public:
    explicit Device(std::size_t size) : mMemory(size) {}
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;
    ~Device() { EXPECT_EQ(mFreed, mMade); }

    struct Flush {
        std::uint8_t* data;
        int size;

        friend bool operator==(const Flush&, const Flush&) = default;
    };

    std::uint8_t* at(std::size_t offset) { return mMemory.data() + offset; }

    MemBuffer buffer(std::size_t offset, int size, int flags = kBufferFlagDma) {
        const auto free = [](void* self, std::uint8_t*) { ++static_cast<Device*>(self)->mFreed; };
        const auto flush = [](void* self, std::uint8_t* data, int bytes) {
            static_cast<Device*>(self)->mFlushes.push_back({data, bytes});
        };
        AVBufferRef* ref =
            ffmpeg_ext::av_buffer_create2(at(offset), size, free, flush, nullptr, 0, this, flags);
        if (ref == nullptr) {
            throw std::bad_alloc();
        }
        ++mMade;
        return MemBuffer(&ref);
    }

    // A gray picture at the start of the memory.
    Picture picture() {
        std::uint8_t* planes[4] = {at(0)};
        const int linesizes[4] = {kSize.width};
        return Picture(buffer(0, kSize.width * kSize.height), kSize, planes, linesizes, AV_PIX_FMT_GRAY8,
                       AVCOL_RANGE_MPEG);
    }

    [[nodiscard]] const std::vector<Flush>& flushes() const { return mFlushes; }
    [[nodiscard]] int freed() const { return mFreed; }

private:
    std::vector<std::uint8_t> mMemory;
    std::vector<Flush> mFlushes;
    int mMade = 0;
    std::atomic<int> mFreed = 0;
};

TEST(DeviceBuffer, SaysThatItIsDeviceMemoryByItsFlagAlone) {
    Device device(64);
    EXPECT_TRUE(device.buffer(0, 64).isDMA());
    EXPECT_TRUE(device.buffer(0, 64, kBufferFlagDma | 1).isDMA());
    EXPECT_FALSE(device.buffer(0, 64, 0).isDMA());
    EXPECT_FALSE(device.buffer(0, 64, 255).isDMA());
    EXPECT_FALSE(device.buffer(0, 64).isExternal());
    static_assert(kBufferFlagDma == 256);
}

TEST(DeviceBuffer, MemoryOfOthersIsNoDeviceMemoryWhateverItsOpaquePointer) {
    std::uint8_t bytes[8];
    const auto leaveAlone = [](void*, std::uint8_t*) {};
    for (const std::uintptr_t opaque :
         {std::uintptr_t{0}, std::uintptr_t{1}, std::uintptr_t{256}, UINTPTR_MAX}) {
        AVBufferRef* ref = av_buffer_create(bytes, 8, leaveAlone, reinterpret_cast<void*>(opaque), 0);
        const MemBuffer buffer(&ref);
        EXPECT_FALSE(buffer.isDMA());
        EXPECT_FALSE(buffer.isExternal());
        buffer.flush();
    }
}

TEST(DeviceBuffer, CopiesMovesAndNewReferencesKeepTheMark) {
    Device device(64);
    MemBuffer buffer = device.buffer(0, 64);
    const MemBuffer copy(buffer);
    EXPECT_TRUE(copy.isDMA());
    MemBuffer moved(std::move(buffer));
    EXPECT_TRUE(moved.isDMA());
    EXPECT_FALSE(buffer.isDMA());
    AVBufferRef* ref = copy.createBufferRef();
    const MemBuffer taken(&ref);
    EXPECT_TRUE(taken.isDMA());
    moved = MemBuffer();
    EXPECT_TRUE(taken.isDMA());
    EXPECT_EQ(taken.useCount(), 2);
}

TEST(DeviceBuffer, MadeWriteableWhilePrivateStaysWhereItIs) {
    Device device(64);
    MemBuffer buffer = device.buffer(0, 64);
    EXPECT_TRUE(buffer.writeable());
    EXPECT_NO_THROW(buffer.markModified());
    buffer.makeWriteable();
    EXPECT_TRUE(buffer.isDMA());
    EXPECT_EQ(buffer.data(), device.at(0));
}

TEST(DeviceBuffer, MadeWriteableWhileSharedMovesToTheHeap) {
    Device device(64);
    std::memset(device.at(0), 5, 64);
    MemBuffer buffer = device.buffer(0, 64);
    const MemBuffer other(buffer);
    buffer.makeWriteable();
    EXPECT_FALSE(buffer.isDMA());
    EXPECT_TRUE(other.isDMA());
    EXPECT_EQ(std::memcmp(buffer.data(), device.at(0), 64), 0);
    buffer.flush();
    EXPECT_TRUE(device.flushes().empty());
}

TEST(DeviceBuffer, ResizedMovesToTheHeap) {
    Device device(64);
    std::memset(device.at(0), 5, 64);
    MemBuffer buffer = device.buffer(0, 64);
    buffer.resize(100);
    EXPECT_FALSE(buffer.isDMA());
    EXPECT_EQ(device.freed(), 1);
    EXPECT_EQ(std::memcmp(buffer.data(), device.at(0), 64), 0);
}

TEST(DeviceBuffer, FlushCallsBackWithDataAndSize) {
    Device device(64);
    const MemBuffer buffer = device.buffer(16, 40);
    buffer.flush();
    EXPECT_EQ(device.flushes(), (std::vector<Device::Flush>{{device.at(16), 40}}));
}

TEST(DeviceBuffer, FlushCallsBackForSharedAndUnmarkedMemoryToo) {
    Device device(64);
    const MemBuffer buffer = device.buffer(16, 40, 0);
    const MemBuffer copy(buffer);
    copy.flush();
    EXPECT_EQ(device.flushes(), (std::vector<Device::Flush>{{device.at(16), 40}}));
}

TEST(DeviceBuffer, WithoutMemoryForAReferenceNothingIsLost) {
    Device device(64);
    const MemBuffer buffer = device.buffer(0, 64);
    {
        const AllocationLimit limit(test::kNothing);
        EXPECT_THROW(device.buffer(0, 64), std::bad_alloc);
        EXPECT_THROW(MemBuffer{buffer}, std::bad_alloc);
    }
    EXPECT_EQ(device.freed(), 0);
    EXPECT_TRUE(buffer.isDMA());
    EXPECT_EQ(buffer.useCount(), 1);
}

TEST(DevicePicture, SaysThatItIsDeviceMemory) {
    Device device(1024);
    const Picture picture = device.picture();
    EXPECT_TRUE(picture.isBufferDMA());
    EXPECT_TRUE(picture.editable());
    EXPECT_FALSE(picture.isBufferExternal());
    EXPECT_EQ(picture.debugDescription(), "16x8, gray (tv,editable,dma)");
    const Picture copy(picture);
    EXPECT_EQ(copy.debugDescription(), "16x8, gray (tv,dma)");
}

TEST(DevicePicture, IsOneOnlyWhenAllItsBuffersAre) {
    Device device(1024);
    for (const int heap : {-1, 0, 1, 2}) {
        SCOPED_TRACE(heap);
        const FramePtr frame = newFrame(kSize, AV_PIX_FMT_YUV420P);
        for (int i : {0, 1, 2}) {
            const MemBuffer buffer =
                device.buffer(200 * static_cast<std::size_t>(i), 200, i == heap ? 0 : kBufferFlagDma);
            frame->buf[i] = buffer.createBufferRef();
            frame->data[i] = buffer.data();
        }
        const Picture picture(frame.get());
        EXPECT_EQ(bufferCount(picture), 3);
        EXPECT_EQ(picture.isBufferDMA(), heap == -1);
    }
}

TEST(DevicePicture, CopiesViewsAndFramesStayInDeviceMemory) {
    Device device(1024);
    const Picture picture = device.picture();
    const Picture copy(picture);
    EXPECT_TRUE(copy.isBufferDMA());
    EXPECT_TRUE(picture.crop(Rect{1, 1, 4, 4}).isBufferDMA());
    const VideoFrame frame(copy, Timestamp(), Frame::NoFlags);
    const VideoFrame frameCopy(frame);
    EXPECT_TRUE(frameCopy.picture().isBufferDMA());
}

TEST(DevicePicture, KeepsTheMarkThroughAnAVFrame) {
    Device device(1024);
    Picture picture = device.picture();
    FramePtr frame = makeAvPtr<AVFrame>();
    picture.fillAVFrame(frame.get());
    picture = Picture();
    FramePtr second = makeAvPtr<AVFrame>();
    ASSERT_EQ(av_frame_ref(second.get(), frame.get()), 0);
    frame.reset();
    const Picture back(second.get());
    second.reset();
    EXPECT_TRUE(back.isBufferDMA());
    EXPECT_TRUE(back.editable());
    EXPECT_EQ(back.data()[0], device.at(0));
}

TEST(DevicePicture, KeepsTheMarkOnOtherThreadsAndGivesTheMemoryBackThere) {
    constexpr int kThreads = 4;
    Device device(1024);
    std::array<bool, kThreads> marked{};
    {
        auto picture = std::make_unique<Picture>(device.picture());
        std::latch start(kThreads + 1);
        std::vector<std::thread> threads;
        for (int i = 0; i < kThreads; ++i) {
            threads.emplace_back(
                [&start, &result = marked[i], own = std::make_unique<Picture>(*picture)]() mutable {
                    start.arrive_and_wait();
                    bool all = true;
                    for (int round = 0; round < 500; ++round) {
                        const Picture copy(*own);
                        all = all && copy.isBufferDMA() && !copy.editable();
                    }
                    result = all;
                    own.reset();
                });
        }
        picture.reset();
        start.arrive_and_wait();
        for (std::thread& thread : threads) {
            thread.join();
        }
    }
    EXPECT_EQ(marked, (std::array<bool, kThreads>{true, true, true, true}));
    EXPECT_EQ(device.freed(), 1);
}

TEST(DevicePicture, MadeEditableWhileSharedLeavesTheDeviceAndKeepsThePixels) {
    Device device(1024);
    Picture picture = device.picture();
    test::fillWithNoise(picture, 1);
    const std::vector<std::uint8_t> pixels = pixelsOf(picture);
    const Picture other(picture);
    picture.makeEditable();
    EXPECT_FALSE(picture.isBufferDMA());
    EXPECT_TRUE(other.isBufferDMA());
    EXPECT_TRUE(picture.editable());
    EXPECT_TRUE(other.editable());
    EXPECT_EQ(pixelsOf(picture), pixels);
    EXPECT_NE(picture.data()[0], device.at(0));
    EXPECT_EQ(picture.debugDescription(), "16x8, gray (tv,editable)");
}

TEST(DevicePicture, MadeEditableWhilePrivateStaysOnTheDevice) {
    Device device(1024);
    Picture picture = device.picture();
    picture.makeEditable();
    EXPECT_TRUE(picture.isBufferDMA());
    EXPECT_EQ(picture.data()[0], device.at(0));
}

TEST(DevicePicture, WithAnAlphaPlaneOnTheHeapIsNoDevicePicture) {
    Device device(4096);
    std::uint8_t* planes[4] = {device.at(0), device.at(128)};
    const int linesizes[4] = {16, 16};
    const Picture colour(device.buffer(0, 192), kSize, planes, linesizes, AV_PIX_FMT_NV12, AVCOL_RANGE_MPEG);
    EXPECT_TRUE(colour.isBufferDMA());
    EXPECT_FALSE(Picture(colour, noisePicture(kSize, AV_PIX_FMT_GRAY8)).isBufferDMA());
    const Picture both(colour, device.picture());
    EXPECT_TRUE(both.isBufferDMA());
    EXPECT_EQ(both.pixelFormat(), NVA12);
}

TEST(DevicePicture, WithoutPixelsIsNone) {
    const Picture picture(Size{0, 8}, AV_PIX_FMT_GRAY8, AVCOL_RANGE_MPEG, 1);
    EXPECT_FALSE(picture.isBufferDMA());
}

TEST(DevicePicture, FlushReachesEachOfItsBuffers) {
    Device device(1024);
    const FramePtr frame = newFrame(kSize, AV_PIX_FMT_YUVA420P);
    for (int i = 0; i < 4; ++i) {
        const MemBuffer buffer = device.buffer(200 * static_cast<std::size_t>(i), 100 + i);
        frame->buf[i] = buffer.createBufferRef();
        frame->data[i] = buffer.data();
    }
    const Picture picture(frame.get());
    picture.flush();
    EXPECT_EQ(device.flushes(),
              (std::vector<Device::Flush>{
                  {device.at(0), 100}, {device.at(200), 101}, {device.at(400), 102}, {device.at(600), 103}}));
}

}  // namespace
}  // namespace vidorra
