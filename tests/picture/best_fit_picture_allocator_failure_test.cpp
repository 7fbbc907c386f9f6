// What happens when FFmpeg fails, and while it runs: the linker sends the library's calls of three functions
// through the ones below.

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <future>
#include <optional>

#include "picture/region.h"
#include "support/throw_text.h"
#include "vidorra/core/ffmpeg_error.h"
#include "vidorra/picture/best_fit_picture_allocator.h"

extern "C" {
#include <libavutil/buffer.h>
#include <libavutil/imgutils.h>
}

namespace {

std::function<std::optional<int>()> gInFillArrays;
std::function<void()> gInGetBufferSize;
std::function<bool()> gInBufferCreate;

}  // namespace

extern "C" {

decltype(av_image_fill_arrays) __real_av_image_fill_arrays;
decltype(av_image_fill_arrays) __wrap_av_image_fill_arrays;
int __wrap_av_image_fill_arrays(std::uint8_t* data[4], int linesize[4], const std::uint8_t* source,
                                AVPixelFormat format, int width, int height, int align) {
    const std::optional<int> result = gInFillArrays ? gInFillArrays() : std::nullopt;
    return result ? *result
                  : __real_av_image_fill_arrays(data, linesize, source, format, width, height, align);
}

decltype(av_image_get_buffer_size) __real_av_image_get_buffer_size;
decltype(av_image_get_buffer_size) __wrap_av_image_get_buffer_size;
int __wrap_av_image_get_buffer_size(AVPixelFormat format, int width, int height, int align) {
    if (gInGetBufferSize) {
        gInGetBufferSize();
    }
    return __real_av_image_get_buffer_size(format, width, height, align);
}

// The type of the size differs between the generations.
decltype(av_buffer_create) __real_av_buffer_create;
decltype(av_buffer_create) __wrap_av_buffer_create;
AVBufferRef* __wrap_av_buffer_create(std::uint8_t* data, decltype(AVBufferRef::size) size,
                                     void (*free)(void* opaque, std::uint8_t* data), void* opaque,
                                     int flags) {
    return gInBufferCreate && !gInBufferCreate() ? nullptr
                                                 : __real_av_buffer_create(data, size, free, opaque, flags);
}

}  // extern "C"

namespace vidorra::test {
namespace {

class BestFitPictureAllocatorFailure : public testing::Test {
protected:
    ~BestFitPictureAllocatorFailure() override {
        gInFillArrays = nullptr;
        gInGetBufferSize = nullptr;
        gInBufferCreate = nullptr;
    }

    Picture allocate(int width) {
        return mAllocator.allocate({width, 1}, AV_PIX_FMT_GRAY8, AVCOL_RANGE_JPEG);
    }

    // Whether another thread gets the allocator's mutex.
    bool mutexIsFree() {
        auto release = std::async(std::launch::async, [this] {
            try {
                mAllocator.deallocate(nullptr);
            } catch (const std::runtime_error&) {
                // Reported under the mutex.
            }
        });
        if (release.wait_for(std::chrono::seconds(20)) == std::future_status::ready) {
            return true;
        }
        // The future would wait for ever.
        std::abort();
    }

    Region mRegion{100};
    BestFitPictureAllocator mAllocator{mRegion.data(), mRegion.size(), 1, 1, false};
};

TEST_F(BestFitPictureAllocatorFailure, WithoutMemoryForTheHandleTheBlockIsGivenBack) {
    gInBufferCreate = [] { return false; };
    EXPECT_THROW_TEXT(FFmpegError,
                      "BestFitPictureAllocator: failed to allocate AVBufferRef FFmpeg AV_ERROR: #-12: Cannot "
                      "allocate memory",
                      (void)allocate(100));
    gInBufferCreate = nullptr;
    EXPECT_EQ(allocate(100).data()[0], mRegion.data());
}

TEST_F(BestFitPictureAllocatorFailure, WithoutALayoutTheBlockIsGivenBack) {
    gInFillArrays = [] { return AVERROR(EINVAL); };
    EXPECT_THROW_TEXT(
        FFmpegError,
        "BestFitPictureAllocator: failed to calculate picture offsets FFmpeg AV_ERROR: #-22: Invalid "
        "argument",
        (void)allocate(100));
    gInFillArrays = nullptr;
    EXPECT_EQ(allocate(100).data()[0], mRegion.data());
}

TEST_F(BestFitPictureAllocatorFailure, TheMutexIsFreeWhileFFmpegRuns) {
    int calls = 0;
    const auto look = [this, &calls] {
        ++calls;
        EXPECT_TRUE(mutexIsFree());
        return true;
    };
    gInGetBufferSize = look;
    gInBufferCreate = look;
    gInFillArrays = [&look]() -> std::optional<int> {
        look();
        return std::nullopt;
    };
    const Picture picture = allocate(10);
    EXPECT_EQ(calls, 3);
}

TEST_F(BestFitPictureAllocatorFailure, TheMutexIsFreeWhileAPictureIsFlushed) {
    class Flushing : public BestFitPictureAllocator {
    public:
        using BestFitPictureAllocator::BestFitPictureAllocator;
        void flush(std::uint8_t*, int) override {
            inner = allocate({20, 1}, AV_PIX_FMT_GRAY8, AVCOL_RANGE_JPEG);
        }
        Picture inner;
    };
    const Region region(100);
    Flushing allocator(region.data(), region.size(), 1, 1, false);
    const Picture picture = allocator.allocate({10, 1}, AV_PIX_FMT_GRAY8, AVCOL_RANGE_JPEG);
    picture.flush();
    EXPECT_EQ(allocator.inner.data()[0], region.data() + 10);
    allocator.inner = Picture();
}

}  // namespace
}  // namespace vidorra::test
