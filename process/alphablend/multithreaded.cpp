#include "vidorra/process/alphablend/multithreaded.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <future>
#include <memory>
#include <string>
#include <thread>

#include "vidorra/process/alphablend/blend.h"

namespace vidorra::alphablend {
namespace {

using pixel_format::NV12;
using pixel_format::NVA12;

constexpr const char* kNumThreadsVariable = "VDR_ALPHABLEND_NUM_THREADS";
constexpr std::int64_t kMinRowsPerSlice = 4;

template <class P>
void movePointer(P& pointer, std::int64_t distance) {
    if (pointer != nullptr) {
        pointer += distance;
    }
}

template <class F>
constexpr int kBytesPerPixel = 4;
template <>
constexpr int kBytesPerPixel<pixel_format::RGB24> = 3;
template <>
constexpr int kBytesPerPixel<pixel_format::BGR24> = 3;

// Move the planes by pixels and by rows. A source that lies to the left of the destination or above it is
// moved by the negated offset, hence the sign: offsets of chroma are rounded towards minus infinity before.
template <class F, class P>
void movePixels(Planes<F, P>& planes, std::int64_t x, int sign) {
    movePointer(planes.data, sign * x * kBytesPerPixel<F>);
}

template <class P>
void movePixels(Planes<NV12, P>& planes, std::int64_t x, int sign) {
    movePointer(planes.data[0], sign * x);
    movePointer(planes.data[1], sign * (x & ~std::int64_t{1}));
}

template <class P>
void movePixels(Planes<NVA12, P>& planes, std::int64_t x, int sign) {
    movePointer(planes.data[0], sign * x);
    movePointer(planes.data[1], sign * (x & ~std::int64_t{1}));
    movePointer(planes.data[3], sign * x);
}

template <class F, class P>
void moveRows(Planes<F, P>& planes, std::int64_t rows, int sign) {
    movePointer(planes.data, sign * rows * planes.linesize);
}

template <class P>
void moveRows(Planes<NV12, P>& planes, std::int64_t rows, int sign) {
    movePointer(planes.data[0], sign * rows * planes.linesize[0]);
    movePointer(planes.data[1], sign * (rows >> 1) * planes.linesize[1]);
}

template <class P>
void moveRows(Planes<NVA12, P>& planes, std::int64_t rows, int sign) {
    movePointer(planes.data[0], sign * rows * planes.linesize[0]);
    movePointer(planes.data[1], sign * (rows >> 1) * planes.linesize[1]);
    movePointer(planes.data[2], sign * (rows >> 1) * planes.linesize[2]);
    movePointer(planes.data[3], sign * rows * planes.linesize[3]);
}

template <class F, class P>
void setSize(Planes<F, P>& planes, std::int64_t width, std::int64_t height) {
    planes.width = static_cast<int>(width);
    planes.height = static_cast<int>(height);
}

// Leaves of both what falls together when `src` lies at `position` on `dst`. False when that is nothing.
template <class Dst, class Src>
bool clip(Dst& dst, Src& src, const Point& position) {
    // Wide, because positions near the limits of int have no negative, and before any pointer moves outside
    // of its plane.
    const std::int64_t x = position.x;
    const std::int64_t y = position.y;
    const std::int64_t height =
        std::min(dst.height - std::max<std::int64_t>(y, 0), src.height + std::min<std::int64_t>(y, 0));
    const std::int64_t width =
        std::min(dst.width - std::max<std::int64_t>(x, 0), src.width + std::min<std::int64_t>(x, 0));
    if (height <= 0 || width <= 0) {
        return false;
    }
    if (x < 0) {
        movePixels(src, x, -1);
    } else {
        movePixels(dst, x, 1);
    }
    if (y < 0) {
        moveRows(src, y, -1);
    } else {
        moveRows(dst, y, 1);
    }
    setSize(dst, width, height);
    setSize(src, width, height);
    return true;
}

// Rows of both planes, for one thread.
template <class Dst, class Src>
struct Slice {
    Dst dst;
    Src src;
    Opacity opacity{0};
};

// Rows that a thread takes at a time, whole rows of chroma.
constexpr std::int64_t kRowsPerStep = 32;

// What the threads of a blend share: its slices, and how far they are. All of them own it together, nothing
// of it lies on the caller's stack.
template <class Dst, class Src, std::size_t Threads>
struct SharedSlices {
    std::array<Slice<Dst, Src>, Threads> slices{};
    // Of each slice, the first row that nobody has taken.
    std::array<std::atomic<std::int64_t>, Threads> taken{};

    // Blends what nobody has taken yet of a slice.
    void work(std::size_t index) {
        const Slice<Dst, Src>& slice = slices[index];
        const std::int64_t height = slice.dst.height;
        for (;;) {
            const std::int64_t row = taken[index].fetch_add(kRowsPerStep, std::memory_order_relaxed);
            if (row >= height) {
                return;
            }
            Dst dst = slice.dst;
            Src src = slice.src;
            moveRows(dst, row, 1);
            moveRows(src, row, 1);
            const std::int64_t rows = std::min(kRowsPerStep, height - row);
            setSize(dst, dst.width, rows);
            setSize(src, src.width, rows);
            blendPlanesOfSameSize(dst, src, slice.opacity);
        }
    }
};

// Divides a task for planes of one size into at most `threads` slices, and gives their number.
template <class Dst, class Src, std::size_t Threads>
std::size_t divide(const Slice<Dst, Src>& whole, std::int64_t threads,
                   std::array<Slice<Dst, Src>, Threads>& slices) {
    const std::int64_t height = whole.dst.height;
    // Slices begin on even rows, so that no two of them share a row of chroma.
    const std::int64_t rowsPerSlice =
        std::max(((height + threads - 1) / threads + 1) & ~std::int64_t{1}, kMinRowsPerSlice);
    std::size_t count = 0;
    for (std::int64_t row = 0; row < height && count < static_cast<std::size_t>(threads);
         row += rowsPerSlice, ++count) {
        Slice<Dst, Src>& slice = slices[count];
        slice = whole;
        moveRows(slice.dst, row, 1);
        moveRows(slice.src, row, 1);
        const std::int64_t rows = std::min(rowsPerSlice, height - row);
        setSize(slice.dst, whole.dst.width, rows);
        setSize(slice.src, whole.src.width, rows);
    }
    return count;
}

}  // namespace

template <std::size_t Threads>
unsigned long getNumberOfThreads(int requested) {
    // Safe as long as the program does not change its environment meanwhile.
    // NOLINTNEXTLINE(concurrency-mt-unsafe)
    if (const char* text = std::getenv(kNumThreadsVariable)) {
        requested = std::stoi(text);
    }
    const unsigned long number =
        requested > 0 ? static_cast<unsigned long>(requested) : std::thread::hardware_concurrency();
    return std::clamp<unsigned long>(number, 1, Threads);
}

template <std::size_t Threads, class Format1, class Pointer1, class Format2, class Pointer2>
void blendPlanesMultithreaded(Planes<Format1, Pointer1> dst, Planes<Format2, Pointer2> src,
                              const Point& position, const Opacity& opacity, int numThreads) {
    if (opacity.value() == 0 || !clip(dst, src, position)) {
        return;
    }
    const auto threads = static_cast<std::int64_t>(getNumberOfThreads<Threads>(numThreads));
    if (threads == 1) {
        blendPlanesOfSameSize(dst, src, opacity);
        return;
    }
    using Shared = SharedSlices<decltype(dst), decltype(src), Threads>;
    const auto shared = std::make_shared<Shared>();
    const std::size_t count =
        divide(Slice<decltype(dst), decltype(src)>{dst, src, opacity}, threads, shared->slices);
    // When a thread cannot be started the destructors of these wait for the ones before it.
    std::array<std::future<void>, Threads> workers;
    for (std::size_t i = 1; i < count; ++i) {
        workers[i] = std::async(std::launch::async, [shared, i] { shared->work(i); });
    }
    // A thread takes a while to begin: the caller goes on with what is left of the other slices.
    for (std::size_t i = 0; i < count; ++i) {
        shared->work(i);
    }
    for (std::size_t i = 1; i < count; ++i) {
        workers[i].wait();
    }
}

template VIDORRA_API unsigned long getNumberOfThreads<8>(int requested);

template VIDORRA_API void blendPlanesMultithreaded<8>(Planes<NV12, unsigned char*> dst,
                                                      Planes<NV12, const unsigned char*> src,
                                                      const Point& position, const Opacity& opacity,
                                                      int numThreads);
template VIDORRA_API void blendPlanesMultithreaded<8>(Planes<NV12, unsigned char*> dst,
                                                      Planes<NVA12, const unsigned char*> src,
                                                      const Point& position, const Opacity& opacity,
                                                      int numThreads);
template VIDORRA_API void blendPlanesMultithreaded<8>(Planes<pixel_format::RGBA32, unsigned char*> dst,
                                                      Planes<pixel_format::RGBA32, const unsigned char*> src,
                                                      const Point& position, const Opacity& opacity,
                                                      int numThreads);
template VIDORRA_API void blendPlanesMultithreaded<8>(Planes<pixel_format::ARGB32, unsigned char*> dst,
                                                      Planes<pixel_format::ARGB32, const unsigned char*> src,
                                                      const Point& position, const Opacity& opacity,
                                                      int numThreads);
template VIDORRA_API void blendPlanesMultithreaded<8>(Planes<pixel_format::RGB24, unsigned char*> dst,
                                                      Planes<pixel_format::RGB24, const unsigned char*> src,
                                                      const Point& position, const Opacity& opacity,
                                                      int numThreads);
template VIDORRA_API void blendPlanesMultithreaded<8>(Planes<pixel_format::BGR24, unsigned char*> dst,
                                                      Planes<pixel_format::BGR24, const unsigned char*> src,
                                                      const Point& position, const Opacity& opacity,
                                                      int numThreads);

}  // namespace vidorra::alphablend
