// How many threads a blend uses, seen from its starts of threads: pthread_create and the number of processors
// are replaced in this program.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <latch>
#include <memory>
#include <random>
#include <string>
#include <system_error>
#include <thread>

#include "support/blend_reference.h"
#include "support/throw_text.h"
#include "vidorra/process/alphablend/blend.h"
#include "vidorra/process/alphablend/multithreaded.h"
#include "vidorra/process/compose.h"

namespace {

std::atomic<int> startedThreads = 0;
std::atomic<int> allowedThreads = INT_MAX;
// What started threads wait for before they begin, if anything.
std::atomic<std::latch*> gate = nullptr;

struct Start {
    void* (*function)(void*);
    void* argument;
};

void* beginAtTheGate(void* argument) {
    const std::unique_ptr<Start> start(static_cast<Start*>(argument));
    if (std::latch* latch = gate) {
        latch->wait();
    }
    return start->function(start->argument);
}

// How many processors the library is told of; the true number where it is negative.
int toldProcessors = -1;

}  // namespace

// The linker name of std::thread::hardware_concurrency().
extern "C" __attribute__((visibility("default"))) unsigned _ZNSt6thread20hardware_concurrencyEv() noexcept {
    return toldProcessors >= 0 ? static_cast<unsigned>(toldProcessors)
                               : static_cast<unsigned>(sysconf(_SC_NPROCESSORS_ONLN));
}

extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*),
                              void* argument) noexcept {
    using Function = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
    static const auto next = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "pthread_create"));
    if (startedThreads >= allowedThreads) {
        return EAGAIN;
    }
    ++startedThreads;
    if (gate == nullptr) {
        return next(thread, attributes, start, argument);
    }
    auto held = std::make_unique<Start>(Start{start, argument});
    const int result = next(thread, attributes, beginAtTheGate, held.get());
    if (result == 0) {
        static_cast<void>(held.release());
    }
    return result;
}

namespace vidorra::alphablend {
namespace {

using test::Raster;
using test::RasterFormat;

constexpr const char* kVariable = "VDR_ALPHABLEND_NUM_THREADS";

// Brings the environment and the counters back.
class BlendThreads : public testing::Test {
protected:
    BlendThreads() { reset(); }
    ~BlendThreads() override { reset(); }

    void set(const char* text) { setenv(kVariable, text, 1); }

    // The threads that a blend of ARGB rasters of this height starts.
    int startedBy(int height, int numThreads) {
        Raster src(RasterFormat::Argb, 8, height, 0, 0, mRandom);
        Raster dst(RasterFormat::Argb, 8, height, 0, 0, mRandom);
        return startedBy(dst, src, 0, 0, 1.0, numThreads);
    }

    int startedBy(Raster& dst, Raster& src, int x, int y, double opacity, int numThreads) {
        unsigned char* to = dst.plane(0);
        const unsigned char* from = src.plane(0);
        const int toLinesize = dst.linesize(0);
        const int fromLinesize = src.linesize(0);
        startedThreads = 0;
        blendArgb32(&to, &toLinesize, dst.width(), dst.height(), &from, &fromLinesize, src.width(),
                    src.height(), x, y, opacity, numThreads);
        return startedThreads;
    }

    std::mt19937 mRandom{1};

private:
    void reset() {
        unsetenv(kVariable);
        allowedThreads = INT_MAX;
        toldProcessors = -1;
    }
};

unsigned long processors() {
    return std::clamp<unsigned long>(std::thread::hardware_concurrency(), 1, 8);
}

TEST_F(BlendThreads, AreAsManyAsAskedForUpToEight) {
    EXPECT_EQ(getNumberOfThreads<8>(1), 1U);
    EXPECT_EQ(getNumberOfThreads<8>(5), 5U);
    EXPECT_EQ(getNumberOfThreads<8>(8), 8U);
    EXPECT_EQ(getNumberOfThreads<8>(9), 8U);
    EXPECT_EQ(getNumberOfThreads<8>(INT_MAX), 8U);
}

TEST_F(BlendThreads, AreOneForEachProcessorWhenTheNumberIsNotPositive) {
    EXPECT_EQ(getNumberOfThreads<8>(0), processors());
    EXPECT_EQ(getNumberOfThreads<8>(-1), processors());
    EXPECT_EQ(getNumberOfThreads<8>(INT_MIN), processors());
}

TEST_F(BlendThreads, AreFromOneToEightWhateverTheProcessors) {
    struct Row {
        int processors;
        unsigned long expected;
    };
    // A system that does not know its processors says 0.
    for (const Row& row : {Row{0, 1}, Row{1, 1}, Row{3, 3}, Row{8, 8}, Row{9, 8}, Row{256, 8}}) {
        toldProcessors = row.processors;
        EXPECT_EQ(getNumberOfThreads<8>(0), row.expected) << row.processors;
        EXPECT_EQ(getNumberOfThreads<8>(5), 5U) << row.processors;
    }
}

TEST_F(BlendThreads, AreOverriddenByTheEnvironment) {
    struct Row {
        const char* text;
        unsigned long expected;
    };
    const Row rows[] = {
        {.text = "1", .expected = 1},
        {.text = "3", .expected = 3},
        {.text = "100", .expected = 8},
        {.text = "2147483647", .expected = 8},
        {.text = "0", .expected = processors()},
        {.text = "-4", .expected = processors()},
        {.text = "-2147483648", .expected = processors()},
        {.text = "4 threads", .expected = 4},
        {.text = "6.9", .expected = 6},
        {.text = " \t+5", .expected = 5},
        {.text = "007", .expected = 7},
        {.text = "0x5", .expected = processors()},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.text);
        set(row.text);
        for (const int requested : {-1, 0, 2, 8}) {
            EXPECT_EQ(getNumberOfThreads<8>(requested), row.expected);
        }
    }
}

TEST_F(BlendThreads, AreReadFromTheEnvironmentEachTime) {
    set("2");
    EXPECT_EQ(getNumberOfThreads<8>(7), 2U);
    set("3");
    EXPECT_EQ(getNumberOfThreads<8>(7), 3U);
    unsetenv(kVariable);
    EXPECT_EQ(getNumberOfThreads<8>(7), 7U);
}

TEST_F(BlendThreads, RefuseATextThatIsNoNumber) {
    for (const char* text : {"", " ", "many", "-", "+", "x4", "--1"}) {
        SCOPED_TRACE(text);
        set(text);
        EXPECT_THROW_TEXT(std::invalid_argument, "stoi", static_cast<void>(getNumberOfThreads<8>(1)));
    }
}

TEST_F(BlendThreads, RefuseANumberBeyondInt) {
    for (const char* text : {"2147483648", "-2147483649", "99999999999999999999999"}) {
        SCOPED_TRACE(text);
        set(text);
        EXPECT_THROW_TEXT(std::out_of_range, "stoi", static_cast<void>(getNumberOfThreads<8>(1)));
    }
}

TEST_F(BlendThreads, LeaveTheDestinationWhenTheEnvironmentIsWrong) {
    set("some");
    const Raster before(RasterFormat::Argb, 8, 64, 0, 0, mRandom);
    Raster src(RasterFormat::Argb, 8, 64, 0, 0, mRandom);
    Raster dst = before;
    EXPECT_THROW_TEXT(std::invalid_argument, "stoi", startedBy(dst, src, 0, 0, 1.0, 4));
    EXPECT_EQ(dst.difference(before), "");
}

TEST_F(BlendThreads, DoNotMatterWhereNothingIsToBeDrawn) {
    set("some");
    Raster src(RasterFormat::Argb, 8, 64, 0, 0, mRandom);
    Raster dst(RasterFormat::Argb, 8, 64, 0, 0, mRandom);
    EXPECT_EQ(startedBy(dst, src, 0, 0, 0.0, 4), 0);
    EXPECT_EQ(startedBy(dst, src, 8, 0, 1.0, 4), 0);
    EXPECT_EQ(startedBy(dst, src, 0, -64, 1.0, 4), 0);
}

TEST_F(BlendThreads, AreOneForEachSliceBesidesTheCaller) {
    struct Row {
        int height;
        int numThreads;
        int started;
    };
    const Row rows[] = {
        {.height = 1080, .numThreads = 1, .started = 0},
        {.height = 1080, .numThreads = 2, .started = 1},
        {.height = 1080, .numThreads = 8, .started = 7},
        {.height = 1080, .numThreads = 99, .started = 7},
        // Slices of 4, 4 and 2 rows.
        {.height = 10, .numThreads = 8, .started = 2},
        {.height = 5, .numThreads = 8, .started = 1},
        {.height = 4, .numThreads = 8, .started = 0},
        {.height = 3, .numThreads = 8, .started = 0},
        {.height = 1, .numThreads = 2, .started = 0},
        {.height = 8, .numThreads = 3, .started = 1},
        {.height = 9, .numThreads = 3, .started = 2},
        // Slices of 6 rows: the share is rounded up to even rows, and the last slice stays empty.
        {.height = 33, .numThreads = 7, .started = 5},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(startedBy(row.height, row.numThreads), row.started)
            << row.height << " rows, " << row.numThreads << " threads";
    }
}

TEST_F(BlendThreads, AreAsManyAsAskedForInEachFormat) {
    struct Row {
        decltype(&blendNv12) blend;
        RasterFormat dst;
        RasterFormat src;
    };
    const Row rows[] = {{.blend = blendNv12, .dst = RasterFormat::Nv12, .src = RasterFormat::Nv12},
                        {.blend = blendNva12, .dst = RasterFormat::Nv12, .src = RasterFormat::Nva12},
                        {.blend = blendRgba32, .dst = RasterFormat::Rgba, .src = RasterFormat::Rgba},
                        {.blend = blendArgb32, .dst = RasterFormat::Argb, .src = RasterFormat::Argb},
                        {.blend = blendRgb24, .dst = RasterFormat::Rgb24, .src = RasterFormat::Rgb24},
                        {.blend = blendBgr24, .dst = RasterFormat::Bgr24, .src = RasterFormat::Bgr24}};
    for (const Row& row : rows) {
        Raster dst(row.dst, 8, 64, 0, 0, mRandom);
        Raster src(row.src, 8, 64, 0, 0, mRandom);
        unsigned char* to[4];
        const unsigned char* from[4];
        int toLinesize[4];
        int fromLinesize[4];
        for (int i = 0; i < 4; ++i) {
            to[i] = dst.plane(i);
            from[i] = src.plane(i);
            toLinesize[i] = dst.linesize(i);
            fromLinesize[i] = src.linesize(i);
        }
        for (const int numThreads : {1, 2, 5}) {
            startedThreads = 0;
            row.blend(to, toLinesize, 8, 64, from, fromLinesize, 8, 64, 0, 0, 1.0, numThreads);
            EXPECT_EQ(startedThreads, numThreads - 1) << "row " << &row - rows;
        }
    }
}

TEST_F(BlendThreads, OfAComposeCountTheRowsThatShow) {
    struct Row {
        AVPixelFormat format;
        Point position;
        double opacity;
        int numThreads;
        int started;
    };
    const Row rows[] = {{AV_PIX_FMT_NV12, {0, 0}, 0.5, 4, 3},
                        {AV_PIX_FMT_NV12, {0, 0}, 0.5, 1, 0},
                        // Slices of 4 and 1 rows.
                        {AV_PIX_FMT_RGB24, {0, 59}, 0.5, 8, 1},
                        {AV_PIX_FMT_RGB24, {0, -60}, 0.5, 8, 0},
                        // A copy needs no threads, nor does an opacity that draws nothing.
                        {AV_PIX_FMT_NV12, {0, 0}, 1.0, 4, 0},
                        {AV_PIX_FMT_NV12, {0, 0}, 0.001, 4, 0}};
    for (const Row& row : rows) {
        Picture dst(Size{8, 64}, row.format, AVCOL_RANGE_MPEG, 32);
        const Picture overlay(Size{8, 64}, row.format, AVCOL_RANGE_MPEG, 32);
        startedThreads = 0;
        compose(dst, overlay, row.position, CheckColorRange::Yes, row.opacity, row.numThreads);
        EXPECT_EQ(startedThreads, row.started) << "row " << &row - rows;
    }
}

TEST_F(BlendThreads, AreNotStartedWhenTheEnvironmentSaysOne) {
    set("1");
    EXPECT_EQ(startedBy(1080, 8), 0);
}

TEST_F(BlendThreads, ThatCannotBeStartedEndTheBlendWithTheirError) {
    const int height = 64;
    const Raster before(RasterFormat::Argb, 8, height, 0, 0, mRandom);
    Raster src(RasterFormat::Argb, 8, height, 0, 0, mRandom);
    Raster whole = before;
    test::referenceBlend(RasterFormat::Argb, whole, src, 0, 0, 1.0);
    Raster dst = before;
    allowedThreads = 2;
    EXPECT_THROW(startedBy(dst, src, 0, 0, 1.0, 4), std::system_error);
    // Slices of 16 rows: the topmost has not run, the next two have ended, the last could not start.
    Raster expected = before;
    for (int row = 16; row < 48; ++row) {
        for (int byte = 0; byte < 32; ++byte) {
            expected.at(0, byte, row) = whole.at(0, byte, row);
        }
    }
    EXPECT_EQ(dst.difference(expected), "");
}

TEST_F(BlendThreads, ThatCannotBeStartedEndAComposeWithTheirErrorAndNoViewIsLeft) {
    Picture dst(Size{8, 64}, AV_PIX_FMT_RGB24, AVCOL_RANGE_MPEG, 32);
    const Picture overlay(Size{8, 64}, AV_PIX_FMT_RGB24, AVCOL_RANGE_MPEG, 32);
    startedThreads = 0;
    allowedThreads = 0;
    EXPECT_THROW(compose(dst, overlay, {0, 0}, CheckColorRange::Yes, 0.5, 4), std::system_error);
    EXPECT_TRUE(overlay.editable());
    allowedThreads = INT_MAX;
    EXPECT_NO_THROW(compose(dst, overlay, {0, 0}, CheckColorRange::Yes, 0.5, 4));
    EXPECT_EQ(startedThreads, 3);
}

TEST_F(BlendThreads, ThatStartLateLeaveTheirRowsToTheCaller) {
    const int height = 512;
    Raster src(RasterFormat::Argb, 8, height, 0, 0, mRandom);
    Raster dst(RasterFormat::Argb, 8, height, 0, 0, mRandom);
    Raster expected = dst;
    test::referenceBlend(RasterFormat::Argb, expected, src, 0, 0, 1.0);
    // The last byte that changes is written by whoever draws the last rows.
    int last = 0;
    for (int byte = 0; byte < 32; ++byte) {
        last = expected.at(0, byte, height - 1) != dst.at(0, byte, height - 1) ? byte : last;
    }
    ASSERT_NE(expected.at(0, last, height - 1), dst.at(0, last, height - 1));
    const volatile unsigned char& lastByte = dst.at(0, last, height - 1);

    std::latch open(1);
    std::thread opener([&] {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (lastByte != expected.at(0, last, height - 1) && std::chrono::steady_clock::now() < end) {
            std::this_thread::yield();
        }
        EXPECT_EQ(lastByte, expected.at(0, last, height - 1));
        open.count_down();
    });
    gate = &open;
    EXPECT_EQ(startedBy(dst, src, 0, 0, 1.0, 4), 3);
    gate = nullptr;
    opener.join();
    EXPECT_EQ(dst.difference(expected), "");
}

TEST_F(BlendThreads, OfAListOfOverlaysAreStartedOnceForAllOfThem) {
    struct Row {
        int height;
        double opacity;
        int numThreads;
        int started;
    };
    const Row rows[] = {{.height = 256, .opacity = 0.5, .numThreads = 1, .started = 0},
                        {.height = 256, .opacity = 0.5, .numThreads = 3, .started = 2},
                        {.height = 256, .opacity = 0.5, .numThreads = 99, .started = 7},
                        // One band, which one thread takes.
                        {.height = 16, .opacity = 0.5, .numThreads = 8, .started = 0},
                        {.height = 256, .opacity = 1.0, .numThreads = 8, .started = 0}};
    for (const Row& row : rows) {
        // Lines of 16 KiB, of which a band has no more than 16.
        Picture dst(Size{5461, row.height}, AV_PIX_FMT_RGB24, AVCOL_RANGE_MPEG, 16);
        const Picture overlay(Size{8, row.height}, AV_PIX_FMT_RGB24, AVCOL_RANGE_MPEG, 16);
        startedThreads = 0;
        compose(dst, {{overlay, {0, 0}, row.opacity}, {overlay, {16, 0}, row.opacity}}, CheckColorRange::Yes,
                row.numThreads);
        EXPECT_EQ(startedThreads, row.started) << "row " << &row - rows;
    }
}

TEST_F(BlendThreads, OfAListThatCannotBeStartedEndTheCallWithTheirError) {
    Picture dst(Size{5461, 64}, AV_PIX_FMT_RGB24, AVCOL_RANGE_MPEG, 16);
    const Picture overlay(Size{8, 64}, AV_PIX_FMT_RGB24, AVCOL_RANGE_MPEG, 16);
    startedThreads = 0;
    allowedThreads = 1;
    EXPECT_THROW(compose(dst, {{overlay, {0, 0}, 0.5}}, CheckColorRange::Yes, 4), std::system_error);
    EXPECT_TRUE(overlay.editable());
    EXPECT_TRUE(dst.editable());
}

TEST_F(BlendThreads, OfAListAreReadFromTheEnvironmentWhenAnythingIsBlended) {
    Picture dst(Size{5461, 64}, AV_PIX_FMT_RGB24, AVCOL_RANGE_MPEG, 16);
    const Picture overlay(Size{8, 64}, AV_PIX_FMT_RGB24, AVCOL_RANGE_MPEG, 16);
    set("some");
    EXPECT_THROW_TEXT(std::invalid_argument, "stoi",
                      compose(dst, {{overlay, {0, 0}, 0.5}}, CheckColorRange::Yes, 4));
    EXPECT_NO_THROW(compose(dst, {{overlay, {0, 0}, 1.0}}, CheckColorRange::Yes, 4));
}

}  // namespace
}  // namespace vidorra::alphablend
