#include "vidorra/process/alphablend/blend.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <limits>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

#include "support/blend_reference.h"
#include "vidorra/process/alphablend/multithreaded.h"

namespace vidorra::alphablend {
namespace {

using test::Raster;
using test::RasterFormat;

struct Row {
    const char* name;
    RasterFormat src;
    RasterFormat dst;
    decltype(&blendNv12) blend;
    decltype(&blendRgba32Impl) impl;
};

const Row kRows[] = {
    {.name = "Nv12",
     .src = RasterFormat::Nv12,
     .dst = RasterFormat::Nv12,
     .blend = blendNv12,
     .impl = nullptr},
    {.name = "Nva12",
     .src = RasterFormat::Nva12,
     .dst = RasterFormat::Nv12,
     .blend = blendNva12,
     .impl = nullptr},
    {.name = "Rgba32",
     .src = RasterFormat::Rgba,
     .dst = RasterFormat::Rgba,
     .blend = blendRgba32,
     .impl = blendRgba32Impl},
    {.name = "Argb32",
     .src = RasterFormat::Argb,
     .dst = RasterFormat::Argb,
     .blend = blendArgb32,
     .impl = blendArgb32Impl},
    {.name = "Rgb24",
     .src = RasterFormat::Rgb24,
     .dst = RasterFormat::Rgb24,
     .blend = blendRgb24,
     .impl = blendRgb24Impl},
    {.name = "Bgr24",
     .src = RasterFormat::Bgr24,
     .dst = RasterFormat::Bgr24,
     .blend = blendBgr24,
     .impl = blendBgr24Impl},
};

// The arrays that the functions take.
struct Arrays {
    unsigned char* data[4];
    int linesize[4];

    explicit Arrays(Raster& raster) {
        for (int i = 0; i < 4; ++i) {
            data[i] = raster.plane(i);
            linesize[i] = raster.linesize(i);
        }
    }
};

void blend(const Row& row, Raster& dst, Raster& src, int x, int y, double opacity, int numThreads) {
    Arrays to(dst);
    const Arrays from(src);
    row.blend(to.data, to.linesize, dst.width(), dst.height(), from.data, from.linesize, src.width(),
              src.height(), x, y, opacity, numThreads);
}

void blendImpl(const Row& row, Raster& dst, Raster& src, int x, int y, double opacity) {
    Arrays to(dst);
    const Arrays from(src);
    row.impl(to.data, to.linesize, dst.width(), dst.height(), from.data, from.linesize, src.width(),
             src.height(), x, y, opacity);
}

class Blend : public testing::TestWithParam<Row> {
protected:
    std::mt19937 mRandom{17};

    int number(int low, int high) { return std::uniform_int_distribution<int>(low, high)(mRandom); }

    Raster raster(RasterFormat format, int width, int height, int padding = 0, int guard = 0) {
        Raster result(format, width, height, padding, guard, mRandom);
        if (format == RasterFormat::Nva12) {
            result.addRuns(3, 1, 0, mRandom);
        } else if (format == RasterFormat::Rgba || format == RasterFormat::Argb) {
            result.addRuns(0, 4, format == RasterFormat::Rgba ? 3 : 0, mRandom);
        }
        return result;
    }
};

class BlendPacked : public Blend {};

std::string rowName(const testing::TestParamInfo<Row>& info) {
    return info.param.name;
}

INSTANTIATE_TEST_SUITE_P(Formats, Blend, testing::ValuesIn(kRows), rowName);
INSTANTIATE_TEST_SUITE_P(Formats, BlendPacked, testing::ValuesIn(kRows + 2, kRows + 6), rowName);

TEST_P(Blend, GivesTheBytesOfTheEquationsAndTouchesNoOthers) {
    const Row& row = GetParam();
    for (int round = 0; round < 250; ++round) {
        const Raster before = raster(row.dst, number(1, 200), number(1, 200), number(0, 40), 80);
        Raster src = raster(row.src, number(1, 200), number(1, 200), number(0, 40), 80);
        const int x = number(-src.width() - 2, before.width() + 2);
        const int y = number(-src.height() - 2, before.height() + 2);
        const double opacity = round % 4 == 0 ? 1.0 : number(0, 1100) / 1000.0;
        const int numThreads = number(1, 8);
        Raster expected = before;
        test::referenceBlend(row.src, expected, src, x, y, opacity);
        Raster actual = before;
        blend(row, actual, src, x, y, opacity, numThreads);
        ASSERT_EQ(actual.difference(expected), "")
            << before.width() << "x" << before.height() << ", source " << src.width() << "x" << src.height()
            << " at " << x << "," << y << ", opacity " << opacity << ", threads " << numThreads;
    }
}

TEST_P(Blend, ReadsNothingOutsideOfTheSource) {
    // No guards: every plane ends where its memory does, for the address sanitizer.
    const Row& row = GetParam();
    for (int round = 0; round < 100; ++round) {
        const Raster before = raster(row.dst, number(1, 200), number(1, 60));
        Raster src = raster(row.src, number(1, 200), number(1, 60));
        const int x = 2 * number(-src.width() / 2, before.width() / 2);
        const int y = 2 * number(-src.height() / 2, before.height() / 2);
        const double opacity = round % 3 == 0 ? 1.0 : 0.4;
        Raster expected = before;
        test::referenceBlend(row.src, expected, src, x, y, opacity);
        Raster actual = before;
        blend(row, actual, src, x, y, opacity, 1);
        ASSERT_EQ(actual.difference(expected), "") << "at " << x << "," << y << ", opacity " << opacity;
    }
}

TEST_P(Blend, GivesTheSameBytesForEachNumberOfThreads) {
    const Row& row = GetParam();
    for (const int height : {3, 4, 5, 10, 33, 64, 97}) {
        const Raster before = raster(row.dst, 131, height, 3, 64);
        Raster src = raster(row.src, 131, height, 5, 64);
        Raster expected = before;
        test::referenceBlend(row.src, expected, src, 0, 0, 0.7);
        for (int numThreads = 1; numThreads <= 9; ++numThreads) {
            Raster actual = before;
            blend(row, actual, src, 0, 0, 0.7, numThreads);
            EXPECT_EQ(actual.difference(expected), "") << height << " rows, " << numThreads << " threads";
        }
    }
}

TEST_P(Blend, LeavesTheDestinationWhereTheOpacityIsNothing) {
    const Row& row = GetParam();
    const Raster before = raster(row.dst, 40, 20, 0, 64);
    Raster src = raster(row.src, 40, 20);
    for (const double opacity :
         {0.0, -0.0, -1.0, 1.0 / 256, 0.99 / 255, std::numeric_limits<double>::quiet_NaN(),
          -std::numeric_limits<double>::infinity(), std::numeric_limits<double>::denorm_min(),
          -std::numeric_limits<double>::max()}) {
        Raster actual = before;
        blend(row, actual, src, 0, 0, opacity, 1);
        EXPECT_EQ(actual.difference(before), "") << opacity;
    }
}

TEST_P(Blend, TakesAnOpacityAboveOneAsOne) {
    const Row& row = GetParam();
    const Raster before = raster(row.dst, 40, 20, 0, 64);
    Raster src = raster(row.src, 40, 20);
    Raster expected = before;
    blend(row, expected, src, 0, 0, 1.0, 1);
    for (const double opacity : {1.0000001, 2.0, 1e300, std::numeric_limits<double>::infinity()}) {
        Raster actual = before;
        blend(row, actual, src, 0, 0, opacity, 1);
        EXPECT_EQ(actual.difference(expected), "") << opacity;
    }
}

TEST_P(Blend, DrawsNothingAtPositionsNearTheLimitsOfInt) {
    const Row& row = GetParam();
    const Raster before = raster(row.dst, 40, 20, 0, 64);
    Raster src = raster(row.src, 40, 20);
    for (const int far : {INT_MIN, INT_MIN + 1, -(1 << 30), 1 << 30, INT_MAX - 1, INT_MAX}) {
        for (const auto& [x, y] : {std::pair{far, 0}, std::pair{0, far}, std::pair{far, far}}) {
            Raster actual = before;
            blend(row, actual, src, x, y, 1.0, 1);
            blend(row, actual, src, x, y, 0.5, 4);
            if (row.impl != nullptr) {
                blendImpl(row, actual, src, x, y, 1.0);
            }
            EXPECT_EQ(actual.difference(before), "") << x << "," << y;
        }
    }
}

TEST_P(Blend, DrawsNothingWhereSourceAndDestinationMerelyTouch) {
    const Row& row = GetParam();
    const Raster before = raster(row.dst, 40, 20, 0, 64);
    Raster src = raster(row.src, 10, 8);
    for (const auto& [x, y] : {std::pair{-10, 0}, std::pair{40, 0}, std::pair{0, -8}, std::pair{0, 20}}) {
        Raster actual = before;
        blend(row, actual, src, x, y, 1.0, 1);
        EXPECT_EQ(actual.difference(before), "") << x << "," << y;
    }
}

TEST_P(Blend, TakesSizesBelowOneAsNothingToDraw) {
    const Row& row = GetParam();
    const Raster before = raster(row.dst, 40, 20, 0, 64);
    Raster src = raster(row.src, 40, 20);
    for (const int size : {0, -1, INT_MIN}) {
        Raster actual = before;
        Arrays to(actual);
        const Arrays from(src);
        row.blend(to.data, to.linesize, 40, 20, from.data, from.linesize, size, 20, 0, 0, 1.0, 1);
        row.blend(to.data, to.linesize, 40, 20, from.data, from.linesize, 40, size, -1, -1, 1.0, 1);
        row.blend(to.data, to.linesize, size, 20, from.data, from.linesize, 40, 20, 1, 1, 1.0, 1);
        row.blend(to.data, to.linesize, 40, size, from.data, from.linesize, 40, 20, 0, 0, 1.0, 1);
        EXPECT_EQ(actual.difference(before), "") << size;
    }
}

TEST_P(BlendPacked, ClipsByItselfAndHonoursTheOpacityOnOneThread) {
    const Row& row = GetParam();
    for (int round = 0; round < 200; ++round) {
        const Raster before = raster(row.dst, number(1, 90), number(1, 60), number(0, 40), 80);
        Raster src = raster(row.src, number(1, 90), number(1, 60), number(0, 40), 80);
        const int x = number(-src.width() - 2, before.width() + 2);
        const int y = number(-src.height() - 2, before.height() + 2);
        const double opacity = number(-10, 1100) / 1000.0;
        Raster expected = before;
        test::referenceBlendImpl(row.src, expected, src, x, y, opacity);
        Raster actual = before;
        blendImpl(row, actual, src, x, y, opacity);
        ASSERT_EQ(actual.difference(expected), "") << "at " << x << "," << y << ", opacity " << opacity;
    }
}

// Planes of a raster.
template <class F, class P>
Planes<F, P> planesOf(Raster& raster) {
    Planes<F, P> planes{raster.width(), raster.height(), {}, {}};
    if constexpr (std::is_array_v<decltype(planes.data)>) {
        for (std::size_t i = 0; i < std::extent_v<decltype(planes.linesize)>; ++i) {
            planes.data[i] = raster.plane(static_cast<int>(i));
            planes.linesize[i] = raster.linesize(static_cast<int>(i));
        }
    } else {
        planes.data = raster.plane(0);
        planes.linesize = raster.linesize(0);
    }
    return planes;
}

// The functions for planes, with a byte as the opacity.
struct PlaneFunctions {
    void (*sameSize)(Raster& dst, Raster& src, Opacity opacity);
    void (*multithreaded)(Raster& dst, Raster& src, Point position, Opacity opacity, int numThreads);
};

template <class F, class F2>
constexpr PlaneFunctions kPlaneFunctions = {
    [](Raster& dst, Raster& src, Opacity opacity) {
        blendPlanesOfSameSize(planesOf<F, unsigned char*>(dst), planesOf<F2, const unsigned char*>(src),
                              opacity);
    },
    [](Raster& dst, Raster& src, Point position, Opacity opacity, int numThreads) {
        blendPlanesMultithreaded<8, F, unsigned char*, F2, const unsigned char*>(
            planesOf<F, unsigned char*>(dst), planesOf<F2, const unsigned char*>(src), position, opacity,
            numThreads);
    }};

const PlaneFunctions& planeFunctions(RasterFormat src) {
    using namespace pixel_format;
    switch (src) {
    case RasterFormat::Nv12:
        return kPlaneFunctions<NV12, NV12>;
    case RasterFormat::Nva12:
        return kPlaneFunctions<NV12, NVA12>;
    case RasterFormat::Rgba:
        return kPlaneFunctions<RGBA32, RGBA32>;
    case RasterFormat::Argb:
        return kPlaneFunctions<ARGB32, ARGB32>;
    case RasterFormat::Rgb24:
        return kPlaneFunctions<RGB24, RGB24>;
    case RasterFormat::Bgr24:
        break;
    }
    return kPlaneFunctions<BGR24, BGR24>;
}

// A little above the byte, which truncation takes off.
double opacityAbove(int byte) {
    return (byte + 0.5) / 255.0;
}

TEST_P(Blend, OfPlanesOfTheSameSizeTakesTheOpacityAsAByte) {
    const Row& row = GetParam();
    const Raster before = raster(row.dst, 75, 7, 5, 64);
    Raster src = raster(row.src, 75, 7, 3, 64);
    for (int byte = 1; byte < 256; ++byte) {
        Raster expected = before;
        test::referenceBlend(row.src, expected, src, 0, 0, opacityAbove(byte));
        Raster actual = before;
        planeFunctions(row.src).sameSize(actual, src, Opacity(static_cast<unsigned char>(byte)));
        ASSERT_EQ(actual.difference(expected), "") << "opacity " << byte;
    }
}

TEST_P(Blend, OfPlanesOnThreadsClipsAndTakesTheOpacityAsAByte) {
    const Row& row = GetParam();
    const Raster before = raster(row.dst, 50, 40, 5, 64);
    Raster src = raster(row.src, 75, 31, 3, 64);
    for (const int byte : {0, 1, 128, 254, 255}) {
        for (const Point position :
             {Point{0, 0}, Point{-13, 9}, Point{21, -5}, Point{50, 0}, Point{0, -31}}) {
            for (const int numThreads : {1, 3}) {
                Raster expected = before;
                if (byte > 0) {
                    test::referenceBlend(row.src, expected, src, position.x, position.y, opacityAbove(byte));
                }
                Raster actual = before;
                planeFunctions(row.src).multithreaded(actual, src, position,
                                                      Opacity(static_cast<unsigned char>(byte)), numThreads);
                ASSERT_EQ(actual.difference(expected), "") << "opacity " << byte << " at " << position;
            }
        }
    }
}

TEST(BlendRgba32, CopiesAnOpaqueSourceWhateverTheOpacity) {
    unsigned char src[] = {200, 100, 50, 255};
    unsigned char dst[] = {0, 0, 0, 9};
    unsigned char* to = dst;
    const unsigned char* from = src;
    const int linesize = 4;
    blendRgba32(&to, &linesize, 1, 1, &from, &linesize, 1, 1, 0, 0, 0.5, 1);
    EXPECT_EQ(std::vector<int>(dst, dst + 4), (std::vector<int>{200, 100, 50, 9}));
}

TEST(BlendArgb32, MixesAnOpaqueSourceByTheOpacity) {
    unsigned char src[] = {255, 200, 100, 50};
    unsigned char dst[] = {9, 0, 0, 0};
    unsigned char* to = dst;
    const unsigned char* from = src;
    const int linesize = 4;
    blendArgb32(&to, &linesize, 1, 1, &from, &linesize, 1, 1, 0, 0, 0.5, 1);
    // (255 * 127 + 255) >> 8 is 127.
    EXPECT_EQ(std::vector<int>(dst, dst + 4), (std::vector<int>{9, 100, 50, 25}));
}

TEST(BlendRgb24, RoundsToNearest) {
    unsigned char src[] = {255, 0, 255};
    unsigned char dst[] = {0, 255, 255};
    unsigned char* to = dst;
    const unsigned char* from = src;
    const int linesize = 3;
    blendRgb24(&to, &linesize, 1, 1, &from, &linesize, 1, 1, 0, 0, 128.5 / 255, 1);
    EXPECT_EQ(std::vector<int>(dst, dst + 3), (std::vector<int>{128, 127, 255}));
}

TEST(BlendNva12, DarkensWhatAFadedOpaqueSourceCovers) {
    unsigned char luma[] = {200, 200, 200, 200};
    unsigned char chroma[] = {200, 200};
    const unsigned char opaque[] = {255, 255, 255, 255};
    const unsigned char sourceLuma[] = {200, 200, 200, 200};
    const unsigned char sourceChroma[] = {200, 200};
    unsigned char* to[] = {luma, chroma};
    const int toLinesize[] = {2, 2};
    const unsigned char* from[] = {sourceLuma, sourceChroma, nullptr, opaque};
    const int fromLinesize[] = {2, 2, 0, 2};
    blendNva12(to, toLinesize, 2, 2, from, fromLinesize, 2, 2, 0, 0, 128.5 / 255, 1);
    EXPECT_EQ(std::vector<int>(luma, luma + 4), (std::vector<int>{101, 101, 101, 101}));
    EXPECT_EQ(std::vector<int>(chroma, chroma + 2), (std::vector<int>{101, 101}));
}

TEST(BlendNv12, TakesTheLastColumnOfAnOddWidthByRoundingAndLeavesItsV) {
    // Width 1: nothing but the last column. By the other equation the luma would be (255 * 128) >> 8 = 127.
    unsigned char luma[] = {0, 0};
    unsigned char chroma[] = {0, 77};
    const unsigned char sourceLuma[] = {255, 255};
    const unsigned char sourceChroma[] = {255, 255};
    unsigned char* to[] = {luma, chroma};
    const int toLinesize[] = {1, 2};
    const unsigned char* from[] = {sourceLuma, sourceChroma};
    blendNv12(to, toLinesize, 1, 2, from, toLinesize, 1, 2, 0, 0, 128.5 / 255, 1);
    EXPECT_EQ(std::vector<int>(luma, luma + 2), (std::vector<int>{128, 128}));
    EXPECT_EQ(std::vector<int>(chroma, chroma + 2), (std::vector<int>{128, 77}));
}

TEST(BlendNv12, LeavesAPictureOfHeightOne) {
    unsigned char luma[] = {1, 2};
    unsigned char chroma[] = {3, 4};
    const unsigned char source[] = {9, 9};
    unsigned char* to[] = {luma, chroma};
    const int linesize[] = {2, 2};
    const unsigned char* from[] = {source, source};
    blendNv12(to, linesize, 2, 1, from, linesize, 2, 1, 0, 0, 1.0, 1);
    EXPECT_EQ(std::vector<int>(luma, luma + 2), (std::vector<int>{1, 2}));
    EXPECT_EQ(std::vector<int>(chroma, chroma + 2), (std::vector<int>{3, 4}));
}

TEST(BlendNva12, KeepsANullPlaneThatIsNotUsed) {
    // Plane 2 with a line size, moved by negative and positive positions and by slices.
    std::mt19937 random(3);
    Raster src(RasterFormat::Nva12, 64, 64, 0, 0, random);
    const Raster before(RasterFormat::Nv12, 64, 64, 0, 64, random);
    for (const int position : {-9, 9}) {
        Raster expected = before;
        test::referenceBlend(RasterFormat::Nva12, expected, src, position, position, 1.0);
        Raster actual = before;
        Arrays to(actual);
        Arrays from(src);
        from.linesize[2] = 32;
        blendNva12(to.data, to.linesize, 64, 64, from.data, from.linesize, 64, 64, position, position, 1.0,
                   4);
        EXPECT_EQ(actual.difference(expected), "") << position;
    }
}

TEST(BlendRgb24, AcceptsRowsThatRunBackwards) {
    std::mt19937 random(4);
    Raster src(RasterFormat::Rgb24, 20, 9, 4, 0, random);
    Raster actual(RasterFormat::Rgb24, 20, 9, 4, 64, random);
    Raster expected = actual;
    for (int row = 0; row < 9; ++row) {
        std::copy_n(&src.at(0, 0, 8 - row), 60, &expected.at(0, 0, row));
    }
    unsigned char* to = actual.plane(0);
    const unsigned char* from = &src.at(0, 0, 8);
    const int toLinesize = actual.linesize(0);
    const int fromLinesize = -src.linesize(0);
    blendRgb24(&to, &toLinesize, 20, 9, &from, &fromLinesize, 20, 9, 0, 0, 1.0, 3);
    EXPECT_EQ(actual.difference(expected), "");
}

TEST(BlendImageRgb32, TakesAnyPlacesOfTheBytesInAPixel) {
    std::mt19937 random(5);
    for (int code = 0; code < 256; ++code) {
        int offsets[] = {code & 3, (code >> 2) & 3, (code >> 4) & 3, code >> 6};
        Raster src(RasterFormat::Rgba, 37, 2, 0, 0, random);
        Raster actual(RasterFormat::Rgba, 37, 2, 0, 64, random);
        Raster expected = actual;
        for (int row = 0; row < 2; ++row) {
            for (int pixel = 0; pixel < 148; pixel += 4) {
                const int a = test::referenceFaded(src.at(0, pixel + offsets[3], row), 180);
                for (int i = 0; i < 3; ++i) {
                    std::uint8_t& d = expected.at(0, pixel + offsets[i], row);
                    d = test::referenceBlend255(src.at(0, pixel + offsets[i], row), d, a);
                }
            }
        }
        blend_image_rgb32_ref(offsets, actual.plane(0), actual.linesize(0), 37, 2, src.plane(0),
                              src.linesize(0), 37, 2, 0, 0, 180);
        ASSERT_EQ(actual.difference(expected), "") << "offsets " << code;
    }
}

}  // namespace
}  // namespace vidorra::alphablend
