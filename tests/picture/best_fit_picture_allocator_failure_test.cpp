// What happens when FFmpeg or the mutex fails, and while FFmpeg runs: the linker sends the library's calls of
// these functions through the ones below.

#include <gtest/gtest.h>
#include <pthread.h>

#include <cerrno>
#include <functional>
#include <optional>
#include <system_error>
#include <vector>

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

// How many mutexes this program holds: there is one thread.
int gHeldMutexes = 0;
bool gMutexFails = false;

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

// The type of the size differs between FFmpeg versions.
decltype(av_buffer_create) __real_av_buffer_create;
decltype(av_buffer_create) __wrap_av_buffer_create;
AVBufferRef* __wrap_av_buffer_create(std::uint8_t* data, decltype(AVBufferRef::size) size,
                                     void (*free)(void* opaque, std::uint8_t* data), void* opaque,
                                     int flags) {
    return gInBufferCreate && !gInBufferCreate() ? nullptr
                                                 : __real_av_buffer_create(data, size, free, opaque, flags);
}

decltype(pthread_mutex_lock) __real_pthread_mutex_lock;
decltype(pthread_mutex_lock) __wrap_pthread_mutex_lock;
int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
    if (gMutexFails) {
        return EDEADLK;
    }
    ++gHeldMutexes;
    return __real_pthread_mutex_lock(mutex);
}

decltype(pthread_mutex_unlock) __real_pthread_mutex_unlock;
decltype(pthread_mutex_unlock) __wrap_pthread_mutex_unlock;
int __wrap_pthread_mutex_unlock(pthread_mutex_t* mutex) noexcept {
    --gHeldMutexes;
    return __real_pthread_mutex_unlock(mutex);
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

TEST_F(BestFitPictureAllocatorFailure, TheMutexIsHeldForTheSearchOfABlockOnly) {
    const int before = gHeldMutexes;
    std::vector<int> held;
    const auto look = [&] {
        held.push_back(gHeldMutexes - before);
        return true;
    };
    gInGetBufferSize = look;
    gInBufferCreate = look;
    gInFillArrays = [&look]() -> std::optional<int> {
        look();
        return std::nullopt;
    };
    const Picture picture = allocate(10);
    // For the size, the handle and the layout.
    EXPECT_EQ(held, (std::vector<int>{1, 0, 0}));
    EXPECT_EQ(gHeldMutexes, before);
}

TEST_F(BestFitPictureAllocatorFailure, ErrorsLeaveTheMutexFree) {
    const int before = gHeldMutexes;
    EXPECT_THROW((void)allocate(0), FFmpegError);
    EXPECT_EQ(gHeldMutexes, before);
    EXPECT_THROW((void)allocate(101), std::bad_alloc);
    EXPECT_EQ(gHeldMutexes, before);
    EXPECT_THROW(mAllocator.deallocate(mRegion.data()), std::runtime_error);
    EXPECT_EQ(gHeldMutexes, before);
}

TEST_F(BestFitPictureAllocatorFailure, AMutexThatCannotBeLockedIsReportedAndNothingChanges) {
    const Picture picture = allocate(60);
    const auto failure = [](const auto& call) {
        gMutexFails = true;
        std::error_code code;
        try {
            call();
        } catch (const std::system_error& error) {
            code = error.code();
        }
        gMutexFails = false;
        return code;
    };
    const std::error_code deadlock(EDEADLK, std::generic_category());
    EXPECT_EQ(failure([this] { (void)allocate(40); }), deadlock);
    EXPECT_EQ(failure([&] { mAllocator.deallocate(picture.data()[0]); }), deadlock);
    EXPECT_EQ(allocate(40).data()[0], mRegion.data() + 60);
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
