#include "vidorra/picture/default_picture_allocator.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <set>
#include <thread>
#include <vector>

#include "vidorra/core/ffmpeg_error.h"

namespace vidorra::test {
namespace {

TEST(DefaultPictureAllocator, IsOneAndTheSameOnAllThreads) {
    constexpr int kThreads = 4;
    std::vector<PictureAllocator*> allocators(kThreads);
    std::vector<std::thread> threads;
    for (PictureAllocator*& allocator : allocators) {
        threads.emplace_back([&allocator] { allocator = getDefaultPictureAllocator(); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    ASSERT_NE(allocators[0], nullptr);
    EXPECT_EQ(std::set(allocators.begin(), allocators.end()).size(), 1u);
    EXPECT_EQ(getDefaultPictureAllocator(), allocators[0]);
}

TEST(DefaultPictureAllocator, PicturesAreEditableAndNotReachedByDevices) {
    Picture picture = getDefaultPictureAllocator()->allocate({100, 10}, AV_PIX_FMT_YUV420P, AVCOL_RANGE_JPEG);
    EXPECT_TRUE(picture.editable());
    EXPECT_FALSE(picture.isBufferDMA());
    EXPECT_FALSE(picture.isBufferExternal());
    EXPECT_EQ(picture.frameSize(), (Size{100, 10}));
    EXPECT_EQ(picture.pixelFormat(), AV_PIX_FMT_YUV420P);
    EXPECT_EQ(picture.colorRange(), AVCOL_RANGE_JPEG);
    std::memset(picture.data()[0], 16, static_cast<std::size_t>(picture.linesize()[0]) * 10);
    picture.markModified();
}

TEST(DefaultPictureAllocator, LineSizesAreTheNextMultiplesOf32) {
    for (const int width : {1, 2, 31, 32, 33, 100, 1919}) {
        for (const AVPixelFormat format : {AV_PIX_FMT_YUV420P, AV_PIX_FMT_NV12, AV_PIX_FMT_RGBA}) {
            SCOPED_TRACE(width);
            const Picture picture =
                getDefaultPictureAllocator()->allocate({width, 4}, format, AVCOL_RANGE_MPEG);
            const int bytes = format == AV_PIX_FMT_RGBA ? 4 * width : width;
            EXPECT_EQ(picture.linesize()[0], (bytes + 31) / 32 * 32);
            for (const int linesize : picture.linesize()) {
                EXPECT_EQ(linesize % 32, 0);
            }
        }
    }
}

TEST(DefaultPictureAllocator, PicturesShareNoMemory) {
    const Picture first =
        getDefaultPictureAllocator()->allocate({16, 16}, AV_PIX_FMT_GRAY8, AVCOL_RANGE_MPEG);
    const Picture second =
        getDefaultPictureAllocator()->allocate({16, 16}, AV_PIX_FMT_GRAY8, AVCOL_RANGE_MPEG);
    EXPECT_NE(first.data()[0], second.data()[0]);
    EXPECT_TRUE(first.editable());
}

TEST(DefaultPictureAllocator, APictureWithoutPixelsIsEmpty) {
    EXPECT_TRUE(getDefaultPictureAllocator()->allocate({0, 16}, AV_PIX_FMT_GRAY8, AVCOL_RANGE_MPEG).empty());
}

TEST(DefaultPictureAllocator, AnUnknownFormatIsRefused) {
    EXPECT_THROW((void)getDefaultPictureAllocator()->allocate({16, 16}, AV_PIX_FMT_NONE, AVCOL_RANGE_MPEG),
                 FFmpegError);
}

}  // namespace
}  // namespace vidorra::test
