#include "z5_hw_accel/scaler.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cmath>
#include <cstdint>
#include <memory>
#include <random>
#include <stdexcept>
#include <vector>

#include "support/throw_text.h"

extern "C" {
#include <libswscale/swscale.h>
}

namespace z5::hw::accel {
namespace {

// Nothing is sent to the device, so any number will do.
const Scaler kScaler(-1);

int half(int length) {
    return (length + 1) / 2;
}

// A picture with guards before and after each plane; all bytes that are not pixels are 77.
class TestPicture {
public:
    TestPicture(int width, int height, bool alpha, int padding = 0)
        : mWidth(width), mHeight(height), mAlpha(alpha), mLinesize(2 * half(width) + padding) {
        for (int plane : {0, 1, 2}) {
            mMemory[plane].resize(static_cast<std::size_t>(mLinesize * rows(plane) + 2 * kGuard), 77);
        }
    }

    int rows(int plane) const { return plane == 1 ? half(mHeight) : mHeight; }
    int rowBytes(int plane) const { return plane == 1 ? 2 * half(mWidth) : mWidth; }

    // Planes are luma, chroma, alpha.
    std::uint8_t& at(int plane, int byte, int row) {
        return mMemory[plane][static_cast<std::size_t>(kGuard + row * mLinesize + byte)];
    }
    std::uint8_t at(int plane, int byte, int row) const {
        return mMemory[plane][static_cast<std::size_t>(kGuard + row * mLinesize + byte)];
    }

    template <class Function>
    void fill(Function function) {
        for (int plane : {0, 1, 2}) {
            for (int y = 0; y < rows(plane); ++y) {
                for (int x = 0; x < rowBytes(plane); ++x) {
                    at(plane, x, y) = static_cast<std::uint8_t>(function(plane, x, y));
                }
            }
        }
    }

    Nv12Buffer<void> destination() {
        return {data(0), data(1), mAlpha ? data(2) : nullptr, mLinesize, mWidth, mHeight};
    }
    Nv12Buffer<const void> source() const {
        auto* self = const_cast<TestPicture*>(this);
        return {self->data(0), self->data(1), mAlpha ? self->data(2) : nullptr, mLinesize, mWidth, mHeight};
    }

    int planes() const { return mAlpha ? 3 : 2; }
    int width() const { return mWidth; }
    int height() const { return mHeight; }
    int linesize() const { return mLinesize; }
    std::uint8_t* data(int plane) { return mMemory[plane].data() + kGuard; }

    // Whether only pixels have changed since before drawing.
    bool onlyPixelsWritten() const {
        TestPicture blank(*this);
        for (int plane = 0; plane < planes(); ++plane) {
            for (int y = 0; y < rows(plane); ++y) {
                for (int x = 0; x < rowBytes(plane); ++x) {
                    blank.at(plane, x, y) = 77;
                }
            }
        }
        return std::all_of(blank.mMemory.begin(), blank.mMemory.end(), [](const auto& memory) {
            return std::all_of(memory.begin(), memory.end(), [](std::uint8_t byte) { return byte == 77; });
        });
    }

private:
    static constexpr int kGuard = 64;

    int mWidth;
    int mHeight;
    bool mAlpha;
    int mLinesize;
    std::array<std::vector<std::uint8_t>, 3> mMemory;
};

// One sample by the definition: the mean of the source under a triangle in each direction, in floating point.
double referenceSample(const TestPicture& src, int plane, int component, int step, int x, int y, int dstWidth,
                       int dstHeight) {
    const int srcWidth = src.rowBytes(plane) / step;
    const int srcHeight = src.rows(plane);
    const double reachX = std::max(1.0, static_cast<double>(srcWidth) / dstWidth);
    const double reachY = std::max(1.0, static_cast<double>(srcHeight) / dstHeight);
    const double middleX = (x + 0.5) * srcWidth / dstWidth - 0.5;
    const double middleY = (y + 0.5) * srcHeight / dstHeight - 0.5;
    double sum = 0;
    double weights = 0;
    for (int j = static_cast<int>(std::floor(middleY - reachY)); j <= middleY + reachY; ++j) {
        for (int i = static_cast<int>(std::floor(middleX - reachX)); i <= middleX + reachX; ++i) {
            const double weight = std::max(0.0, 1 - std::abs(i - middleX) / reachX) *
                                  std::max(0.0, 1 - std::abs(j - middleY) / reachY);
            const int column = std::clamp(i, 0, srcWidth - 1);
            sum += weight * src.at(plane, column * step + component, std::clamp(j, 0, srcHeight - 1));
            weights += weight;
        }
    }
    return sum / weights;
}

struct SizeRow {
    int srcWidth;
    int srcHeight;
    int dstWidth;
    int dstHeight;
};

constexpr SizeRow kSizes[] = {
    {16, 16, 32, 32}, {16, 16, 8, 8}, {17, 9, 40, 31}, {40, 31, 17, 9}, {33, 20, 33, 7},   {20, 33, 7, 33},
    {1, 1, 9, 7},     {9, 7, 1, 1},   {2, 2, 3, 3},    {64, 4, 3, 40},  {100, 50, 99, 49},
};

TEST(ScalerProcess, GivesTheWeightedMeanOfWhatLiesAroundASample) {
    std::mt19937 random(3);
    for (const SizeRow& row : kSizes) {
        for (const bool alpha : {false, true}) {
            TestPicture src(row.srcWidth, row.srcHeight, alpha, 3);
            src.fill([&](int, int, int) { return random(); });
            TestPicture dst(row.dstWidth, row.dstHeight, alpha, 5);
            kScaler.process(dst.destination(), src.source(), 0);
            for (int plane = 0; plane < dst.planes(); ++plane) {
                const int step = plane == 1 ? 2 : 1;
                for (int y = 0; y < dst.rows(plane); ++y) {
                    for (int x = 0; x < dst.rowBytes(plane); ++x) {
                        const double expected = referenceSample(src, plane, x % step, step, x / step, y,
                                                                dst.rowBytes(plane) / step, dst.rows(plane));
                        // Half a step of rounding, and a little for the weights, which are rounded too.
                        ASSERT_NEAR(dst.at(plane, x, y), expected, 0.56)
                            << row.srcWidth << "x" << row.srcHeight << " to " << row.dstWidth << "x"
                            << row.dstHeight << ", plane " << plane << " at " << x << "," << y;
                    }
                }
            }
            EXPECT_TRUE(dst.onlyPixelsWritten());
        }
    }
}

TEST(ScalerProcess, RoundsUpAsOftenAsDown) {
    std::mt19937 random(8);
    TestPicture src(230, 190, false);
    src.fill([&](int, int, int) { return random(); });
    TestPicture dst(410, 290, false);
    kScaler.process(dst.destination(), src.source(), 0);
    double sum = 0;
    for (int y = 0; y < dst.height(); ++y) {
        for (int x = 0; x < dst.width(); ++x) {
            sum += dst.at(0, x, y) - referenceSample(src, 0, 0, 1, x, y, dst.width(), dst.height());
        }
    }
    EXPECT_NEAR(sum / (dst.width() * dst.height()), 0, 0.002);
}

TEST(ScalerProcess, TheSameSizeIsACopy) {
    std::mt19937 random(4);
    for (const auto& [width, height] : {std::pair{64, 32}, std::pair{33, 17}, std::pair{1, 1}}) {
        TestPicture src(width, height, true, 6);
        src.fill([&](int, int, int) { return random(); });
        TestPicture dst(width, height, true);
        kScaler.process(dst.destination(), src.source(), 0);
        for (int plane : {0, 1, 2}) {
            for (int y = 0; y < dst.rows(plane); ++y) {
                for (int x = 0; x < dst.rowBytes(plane); ++x) {
                    ASSERT_EQ(dst.at(plane, x, y), src.at(plane, x, y)) << plane << " " << x << "," << y;
                }
            }
        }
    }
}

TEST(ScalerProcess, AnEvenAreaStaysAsItIs) {
    for (const SizeRow& row : kSizes) {
        for (const int value : {0, 1, 127, 128, 254, 255}) {
            TestPicture src(row.srcWidth, row.srcHeight, true);
            src.fill([&](int plane, int x, int) { return plane == 1 && x % 2 == 1 ? 255 - value : value; });
            TestPicture dst(row.dstWidth, row.dstHeight, true);
            kScaler.process(dst.destination(), src.source(), 0);
            for (int plane : {0, 1, 2}) {
                for (int y = 0; y < dst.rows(plane); ++y) {
                    for (int x = 0; x < dst.rowBytes(plane); ++x) {
                        ASSERT_EQ(dst.at(plane, x, y), plane == 1 && x % 2 == 1 ? 255 - value : value);
                    }
                }
            }
        }
    }
}

TEST(ScalerProcess, IsCloseToTheBilinearScalingOfLibswscale) {
    struct ContextDeleter {
        void operator()(SwsContext* context) const { sws_freeContext(context); }
    };
    std::mt19937 random(5);
    for (const SizeRow& row :
         {SizeRow{64, 48, 128, 96}, SizeRow{128, 96, 64, 48}, SizeRow{90, 50, 122, 40}}) {
        TestPicture src(row.srcWidth, row.srcHeight, false);
        src.fill([&](int, int, int) { return random(); });
        TestPicture dst(row.dstWidth, row.dstHeight, false);
        kScaler.process(dst.destination(), src.source(), 0);

        const std::unique_ptr<SwsContext, ContextDeleter> context(sws_getContext(
            row.srcWidth, row.srcHeight, AV_PIX_FMT_GRAY8, row.dstWidth, row.dstHeight, AV_PIX_FMT_GRAY8,
            SWS_BILINEAR | SWS_ACCURATE_RND | SWS_BITEXACT, nullptr, nullptr, nullptr));
        ASSERT_NE(context, nullptr);
        TestPicture theirs(row.dstWidth, row.dstHeight, false, 32);
        const std::uint8_t* const planes[4] = {src.data(0)};
        const int linesizes[4] = {src.linesize()};
        std::uint8_t* const dstPlanes[4] = {theirs.data(0)};
        const int dstLinesizes[4] = {theirs.linesize()};
        ASSERT_EQ(sws_scale(context.get(), planes, linesizes, 0, row.srcHeight, dstPlanes, dstLinesizes),
                  row.dstHeight);
        // Noise shows every difference between two sets of weights, and theirs are cut to fewer bits.
        double sum = 0;
        for (int y = 0; y < row.dstHeight; ++y) {
            for (int x = 0; x < row.dstWidth; ++x) {
                ASSERT_NEAR(dst.at(0, x, y), theirs.at(0, x, y), 4)
                    << row.srcWidth << " to " << row.dstWidth << " at " << x << "," << y;
                sum += std::abs(dst.at(0, x, y) - theirs.at(0, x, y));
            }
        }
        EXPECT_LT(sum / (row.dstWidth * row.dstHeight), 0.5);
    }
}

TEST(ScalerProcess, FlagsHaveNoEffect) {
    std::mt19937 random(6);
    TestPicture src(30, 20, true);
    src.fill([&](int, int, int) { return random(); });
    TestPicture expected(50, 14, true);
    kScaler.process(expected.destination(), src.source(), 0);
    for (const unsigned flags : {56U, ~0U}) {
        TestPicture dst(50, 14, true);
        kScaler.process(dst.destination(), src.source(), flags);
        for (int plane : {0, 1, 2}) {
            for (int y = 0; y < dst.rows(plane); ++y) {
                for (int x = 0; x < dst.rowBytes(plane); ++x) {
                    ASSERT_EQ(dst.at(plane, x, y), expected.at(plane, x, y));
                }
            }
        }
    }
}

TEST(ScalerProcess, RefusesRecordsThatAreNoPictureAndWritesNothing) {
    constexpr const char* kPlane = "z5 hw accel: a buffer to scale lacks a plane";
    constexpr const char* kEmpty = "z5 hw accel: a buffer to scale has no pixels";
    constexpr const char* kLine = "z5 hw accel: a row to scale is wider than a line";
    constexpr const char* kAlpha = "z5 hw accel: one of the buffers to scale lacks an alpha plane";
    TestPicture dst(15, 15, true);
    TestPicture src(15, 15, true);
    src.fill([](int, int, int) { return 1; });
    const auto expectRefusal = [&](const char* text, auto change) {
        Nv12Buffer<void> to = dst.destination();
        Nv12Buffer<const void> from = src.source();
        change(to, from);
        EXPECT_THROW_TEXT(std::invalid_argument, text, kScaler.process(std::move(to), std::move(from), 0));
        TestPicture blank(15, 15, true);
        EXPECT_EQ(dst.at(0, 0, 0), blank.at(0, 0, 0));
        EXPECT_TRUE(dst.onlyPixelsWritten());
    };
    expectRefusal(kPlane, [](auto& to, auto&) { to.luma = nullptr; });
    expectRefusal(kPlane, [](auto& to, auto&) { to.chroma = nullptr; });
    expectRefusal(kPlane, [](auto&, auto& from) { from.luma = nullptr; });
    expectRefusal(kPlane, [](auto&, auto& from) { from.chroma = nullptr; });
    for (const int wrong : {INT_MIN, -1, 0}) {
        expectRefusal(kEmpty, [&](auto& to, auto&) { to.width = wrong; });
        expectRefusal(kEmpty, [&](auto& to, auto&) { to.height = wrong; });
        expectRefusal(kEmpty, [&](auto&, auto& from) { from.width = wrong; });
        expectRefusal(kEmpty, [&](auto&, auto& from) { from.height = wrong; });
    }
    // 15 pixels take 16 bytes of chroma.
    for (const int wrong : {15, 0, -16, INT_MIN}) {
        expectRefusal(kLine, [&](auto& to, auto&) { to.linesize = wrong; });
        expectRefusal(kLine, [&](auto&, auto& from) { from.linesize = wrong; });
    }
    expectRefusal(kLine, [](auto& to, auto&) { to.width = INT_MAX; });
    expectRefusal(kAlpha, [](auto& to, auto&) { to.alpha = nullptr; });
    expectRefusal(kAlpha, [](auto&, auto& from) { from.alpha = nullptr; });
}

}  // namespace
}  // namespace z5::hw::accel
