#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <random>
#include <stdexcept>
#include <vector>

#include "picture_probe.h"
#include "vidorra/core/enum_text.h"
#include "vidorra/picture/picture.h"

namespace vidorra {
namespace {

using test::bufferCount;
using test::noisePicture;
using test::pixelsOf;
using test::slotsOf;

constexpr std::int32_t kMax = INT32_MAX;
constexpr std::int32_t kMin = INT32_MIN;

// One plane of a format, as the reference knows it: how many pixels share a sample in each direction, and the
// bytes of a sample.
struct PlaneRule {
    int sharedColumns = 1;
    int sharedRows = 1;
    int bytes = 0;
};

// A format with the grid to which views are rounded.
struct FormatRule {
    AVPixelFormat format;
    int gridColumns;
    int gridRows;
    std::array<PlaneRule, 4> planes;
};

const FormatRule kRules[] = {
    {AV_PIX_FMT_YUV420P, 2, 2, {{{1, 1, 1}, {2, 2, 1}, {2, 2, 1}, {}}}},
    {AV_PIX_FMT_YUVA420P, 2, 2, {{{1, 1, 1}, {2, 2, 1}, {2, 2, 1}, {1, 1, 1}}}},
    {AV_PIX_FMT_NV12, 2, 2, {{{1, 1, 1}, {2, 2, 2}, {}, {}}}},
    {NVA12, 2, 2, {{{1, 1, 1}, {2, 2, 2}, {}, {1, 1, 1}}}},
    {AV_PIX_FMT_RGBA, 1, 1, {{{1, 1, 4}, {}, {}, {}}}},
    {AV_PIX_FMT_RGB24, 1, 1, {{{1, 1, 3}, {}, {}, {}}}},
    {AV_PIX_FMT_GRAY8, 1, 1, {{{1, 1, 1}, {}, {}, {}}}},
    {AV_PIX_FMT_PAL8, 1, 1, {{{1, 1, 1}, {}, {}, {}}}},
    {AV_PIX_FMT_YUV422P, 2, 1, {{{1, 1, 1}, {2, 1, 1}, {2, 1, 1}, {}}}},
    {AV_PIX_FMT_YUV444P, 1, 1, {{{1, 1, 1}, {1, 1, 1}, {1, 1, 1}, {}}}},
    {AV_PIX_FMT_YUV410P, 4, 4, {{{1, 1, 1}, {4, 4, 1}, {4, 4, 1}, {}}}},
    {AV_PIX_FMT_P010, 2, 2, {{{1, 1, 2}, {2, 2, 4}, {}, {}}}},
    {AV_PIX_FMT_YUV440P, 1, 2, {{{1, 1, 1}, {1, 2, 1}, {1, 2, 1}, {}}}},
    {AV_PIX_FMT_YUVA444P, 1, 1, {{{1, 1, 1}, {1, 1, 1}, {1, 1, 1}, {1, 1, 1}}}},
};

constexpr Size kSize{38, 22};

// Downwards also for a negative number.
std::int64_t roundDown(std::int64_t value, int grid) {
    const std::int64_t rest = value % grid;
    return value - (rest < 0 ? rest + grid : rest);
}

struct Span {
    std::int64_t start = 0;
    std::int64_t length = 0;
};

// What a span has in common with 0 to `limit`; nothing at all when they lie apart.
bool meet(std::int64_t start, std::int64_t length, std::int64_t limit, Span& common) {
    if (start > limit || start + length < 0) {
        return false;
    }
    common.start = start < 0 ? 0 : start;
    common.length = (start + length < limit ? start + length : limit) - common.start;
    return true;
}

// The part of a picture that a view shows, before rounding.
Rect commonPart(const Rect& rect, Size size) {
    Span columns;
    Span rows;
    if (rect.width == 0 || rect.height == 0 || !meet(rect.x, rect.width, size.width, columns) ||
        !meet(rect.y, rect.height, size.height, rows)) {
        return {};
    }
    return {static_cast<std::int32_t>(columns.start), static_cast<std::int32_t>(rows.start),
            static_cast<std::int32_t>(columns.length), static_cast<std::int32_t>(rows.length)};
}

// The rounded view.
Rect expectedView(const Rect& rect, Size size, const FormatRule& rule) {
    const Rect part = commonPart(rect, size);
    if (part == Rect{0, 0, size.width, size.height}) {
        return part;
    }
    return {static_cast<std::int32_t>(roundDown(part.x, rule.gridColumns)),
            static_cast<std::int32_t>(roundDown(part.y, rule.gridRows)),
            static_cast<std::int32_t>(roundDown(part.width, rule.gridColumns)),
            static_cast<std::int32_t>(roundDown(part.height, rule.gridRows))};
}

const std::uint8_t* sample(const Picture& picture, std::size_t plane, const PlaneRule& rule, int x, int y) {
    return picture.data()[plane] +
           static_cast<std::ptrdiff_t>(y / rule.sharedRows) * picture.linesize()[plane] +
           static_cast<std::ptrdiff_t>(x / rule.sharedColumns) * rule.bytes;
}

// Each pixel of a view must be, in each plane, the very bytes of the source at the place of the rule.
void expectView(const Picture& source, const Rect& rect, const FormatRule& rule) {
    SCOPED_TRACE(testing::Message() << source.pixelFormat() << " " << source.frameSize() << " crop " << rect);
    const Picture view = source.crop(rect);
    const Rect expected = expectedView(rect, source.frameSize(), rule);
    ASSERT_EQ(view.frameSize(), (Size{expected.width, expected.height}));
    EXPECT_EQ(view.pixelFormat(), source.pixelFormat());
    EXPECT_EQ(view.colorRange(), source.colorRange());
    EXPECT_EQ(view.linesize(), source.linesize());
    EXPECT_FALSE(view.empty());
    EXPECT_EQ(slotsOf(view)[0].data, slotsOf(source)[0].data);
    for (std::size_t plane = 0; plane < 4; ++plane) {
        const PlaneRule& planeRule = rule.planes[plane];
        if (planeRule.bytes == 0) {
            EXPECT_EQ(view.data()[plane], source.data()[plane]) << "plane " << plane << " is none of pixels";
            continue;
        }
        ASSERT_EQ(view.data()[plane], sample(source, plane, planeRule, expected.x, expected.y))
            << "start of plane " << plane;
        for (int y = 0; y < expected.height; ++y) {
            for (int x = 0; x < expected.width; ++x) {
                const std::uint8_t* actual = sample(view, plane, planeRule, x, y);
                const std::uint8_t* wanted = sample(source, plane, planeRule, expected.x + x, expected.y + y);
                ASSERT_EQ(actual, wanted) << "plane " << plane << " at " << x << ", " << y;
                ASSERT_TRUE(std::equal(wanted, wanted + planeRule.bytes, actual));
            }
        }
    }
}

void expectViewInAllFormats(const Rect& rect) {
    for (const FormatRule& rule : kRules) {
        expectView(noisePicture(kSize, rule.format), rect, rule);
    }
}

TEST(PictureCrop, OfARandomPartShowsTheSourcesPixels) {
    std::minstd_rand random(4711);
    std::uniform_int_distribution<int> size(1, 40);
    std::uniform_int_distribution<int> position(-10, 45);
    std::uniform_int_distribution<int> length(0, 60);
    for (const FormatRule& rule : kRules) {
        for (int round = 0; round < 40; ++round) {
            const Picture source =
                noisePicture(Size{size(random), size(random)}, rule.format, static_cast<unsigned>(round));
            for (int i = 0; i < 5; ++i) {
                expectView(source, {position(random), position(random), length(random), length(random)},
                           rule);
            }
        }
    }
}

TEST(PictureCrop, OfAPartInsideRoundsDownToTheChromaGrid) {
    for (int x = 0; x < 5; ++x) {
        for (int y = 0; y < 5; ++y) {
            expectViewInAllFormats({x, y, 9 + y, 13 + x});
        }
    }
}

TEST(PictureCrop, OfAPartSmallerThanAChromaSampleIsEmptyInThatDirection) {
    const Picture source = noisePicture(kSize, AV_PIX_FMT_YUV410P);
    EXPECT_EQ(source.crop(Rect{5, 5, 3, 8}).frameSize(), (Size{0, 8}));
    EXPECT_EQ(source.crop(Rect{5, 5, 8, 3}).frameSize(), (Size{8, 0}));
    expectViewInAllFormats({5, 5, 1, 1});
}

TEST(PictureCrop, OverTheEdgesIsCutOff) {
    for (const Rect& rect : {Rect{-5, -3, 20, 20}, Rect{-5, 3, 100, 5}, Rect{30, 15, 100, 100},
                             Rect{5, -50, 7, 100}, Rect{-1, -1, 2, 2}, Rect{37, 21, 9, 9}}) {
        expectViewInAllFormats(rect);
    }
}

TEST(PictureCrop, NearTheLimitsOfIntIsCutOffAsAnyOther) {
    for (const Rect& rect :
         {Rect{kMin, kMin, kMax, kMax}, Rect{kMax, kMax, kMax, kMax}, Rect{1, 1, kMax, kMax},
          Rect{-1, -1, kMax, kMax}, Rect{kMin, 0, kMax, kMax}, Rect{3, 5, kMax, 4}, Rect{3, 5, 4, kMax},
          Rect{kMin, kMin, 1, 1}, Rect{kMax, 0, 1, 1}, Rect{0, kMax, kMax, 1}, Rect{-kMax, -kMax, kMax, kMax},
          Rect{1 - kMax, 1 - kMax, kMax, kMax}, Rect{-kMax + 10, -kMax + 11, kMax, kMax}}) {
        expectViewInAllFormats(rect);
    }
}

TEST(PictureCrop, WithANegativeSideDoesWhatTheIntersectionSays) {
    for (const Rect& rect : {Rect{5, 5, -3, 10}, Rect{20, 15, -10, -10}, Rect{2, 2, kMin, 4},
                             Rect{0, 0, -1, -1}, Rect{kMax, kMax, kMin, kMin}, Rect{38, 22, kMin, kMin}}) {
        expectViewInAllFormats(rect);
    }
}

TEST(PictureCrop, OutsideIsZeroByZeroWithTheBuffersAndPlanesOfTheSource) {
    for (const Rect& rect : {Rect{39, 0, 5, 5}, Rect{0, 23, 5, 5}, Rect{-6, 0, 5, 5}, Rect{0, -6, 5, 5},
                             Rect{0, 0, 0, 0}, Rect{3, 3, 0, 9}, Rect{3, 3, 9, 0}}) {
        SCOPED_TRACE(testing::Message() << rect);
        const Picture source = noisePicture(kSize, AV_PIX_FMT_YUVA420P);
        const Picture view = source.crop(rect);
        EXPECT_EQ(view.frameSize(), (Size{0, 0}));
        EXPECT_EQ(view.data(), source.data());
        EXPECT_FALSE(view.empty());
        EXPECT_EQ(slotsOf(source)[0].references, 2);
        expectViewInAllFormats(rect);
    }
}

TEST(PictureCrop, ThatMerelyTouchesStandsAtTheEdgeWithoutColumnsOrRows) {
    const Picture source = noisePicture(kSize, AV_PIX_FMT_GRAY8);
    const Picture right = source.crop(Rect{kSize.width, 3, 5, 7});
    EXPECT_EQ(right.frameSize(), (Size{0, 7}));
    EXPECT_EQ(right.data()[0], source.data()[0] + 3 * source.linesize()[0] + kSize.width);
    const Picture below = source.crop(Rect{3, kSize.height, 5, 7});
    EXPECT_EQ(below.frameSize(), (Size{5, 0}));
    EXPECT_EQ(below.data()[0], source.data()[0] + kSize.height * source.linesize()[0] + 3);
    for (const Rect& rect : {Rect{kSize.width, 0, 5, 5}, Rect{0, kSize.height, 5, 5}, Rect{-5, 3, 5, 5},
                             Rect{3, -5, 5, 5}, Rect{-5, -5, 5, 5}, Rect{kSize.width, kSize.height, 5, 5}}) {
        expectViewInAllFormats(rect);
    }
}

TEST(PictureCrop, OfTheWholeIsAPlainCopyAlsoOffTheChromaGrid) {
    for (const FormatRule& rule : kRules) {
        const Picture source = noisePicture(Size{33, 17}, rule.format);
        for (const Rect& rect : {Rect{0, 0, 33, 17}, Rect{-1, -1, 40, 40}, Rect{-9, -9, kMax, kMax}}) {
            const Picture view = source.crop(rect);
            EXPECT_EQ(view.frameSize(), (Size{33, 17}));
            EXPECT_EQ(view.data(), source.data());
            EXPECT_FALSE(source.editable());
        }
        EXPECT_TRUE(source.editable());
    }
}

TEST(PictureCrop, OfTheWholeNeedsNoKnownFormat) {
    std::uint8_t pixels[64] = {};
    std::uint8_t* planes[4] = {pixels};
    const int linesizes[4] = {8};
    const Picture source(MemBuffer(64, true), Size{8, 8}, planes, linesizes, AV_PIX_FMT_NONE,
                         AVCOL_RANGE_MPEG);
    EXPECT_EQ(source.crop(Rect{0, 0, 8, 8}).data()[0], pixels);
    EXPECT_THROW(static_cast<void>(source.crop(Rect{0, 0, 8, 7})), std::invalid_argument);
}

TEST(PictureCrop, OfAnEmptyPictureIsEmpty) {
    const Picture view = Picture().crop(Rect{0, 0, 8, 8});
    EXPECT_TRUE(view.empty());
    EXPECT_EQ(view.frameSize(), (Size{0, 0}));
    EXPECT_EQ(view.data(), Picture::Planes{});
}

TEST(PictureCrop, OfNv12AtAnOddPlaceStartsOnTheChromaGrid) {
    const Picture source = noisePicture(Size{320, 240}, AV_PIX_FMT_NV12);
    const Picture view = source.crop(Rect{3, 5, 101, 51});
    EXPECT_EQ(view.frameSize(), (Size{100, 50}));
    EXPECT_EQ(view.data()[0] - source.data()[0], 2 + 4 * source.linesize()[0]);
    EXPECT_EQ(view.data()[1] - source.data()[1], 2 + 2 * source.linesize()[1]);
    EXPECT_EQ(view.data()[2], nullptr);
    EXPECT_EQ(view.data()[3], nullptr);
}

TEST(PictureCrop, MovesTheAlphaPlaneAsTheFirst) {
    for (const AVPixelFormat format : {AV_PIX_FMT_YUVA420P, NVA12}) {
        const Picture source = noisePicture(Size{64, 48}, format);
        const Picture view = source.crop(Rect{10, 6, 20, 20});
        EXPECT_EQ(view.data()[3] - source.data()[3], 10 + 6 * source.linesize()[3]);
        EXPECT_EQ(view.data()[0] - source.data()[0], 10 + 6 * source.linesize()[0]);
    }
}

TEST(PictureCrop, MovesAnAlphaPlaneByItsOwnLineSize) {
    const Picture colour = noisePicture(Size{64, 48}, AV_PIX_FMT_NV12, 1, 64);
    const Picture alpha = noisePicture(Size{100, 100}, AV_PIX_FMT_GRAY8, 2, 1).crop(Rect{1, 1, 64, 48});
    const Picture whole(colour, alpha);
    ASSERT_NE(whole.linesize()[3], whole.linesize()[0]);
    const Picture view = whole.crop(Rect{10, 6, 20, 20});
    EXPECT_EQ(view.data()[3] - alpha.data()[0], 10 + 6 * 100);
    EXPECT_EQ(view.data()[0] - colour.data()[0], 10 + 6 * 64);
}

TEST(PictureCrop, OfRgbaMovesFourBytesForAPixelAndRoundsNothing) {
    const Picture source = noisePicture(Size{64, 48}, AV_PIX_FMT_RGBA);
    const Picture view = source.crop(Rect{3, 5, 7, 9});
    EXPECT_EQ(view.frameSize(), (Size{7, 9}));
    EXPECT_EQ(view.data()[0] - source.data()[0], 3 * 4 + 5 * source.linesize()[0]);
}

// Decoders give a palette a line size too.
TEST(PictureCrop, KeepsThePaletteWhereItIsWhateverItsLineSize) {
    const Picture pixels = noisePicture(Size{64, 48}, AV_PIX_FMT_PAL8, 1, 1);
    ASSERT_NE(pixels.data()[1], nullptr);
    const int linesizes[4] = {64, 4};
    const Picture source(MemBuffer(64, true), Size{64, 48}, pixels.data().data(), linesizes, AV_PIX_FMT_PAL8,
                         AVCOL_RANGE_JPEG);
    const Picture view = source.crop(Rect{3, 5, 7, 9});
    EXPECT_EQ(view.data()[1], source.data()[1]);
    EXPECT_EQ(view.data()[0] - source.data()[0], 3 + 5 * 64);
}

TEST(PictureCrop, OfRowsThatStandBottomUpGoesUp) {
    const Picture top = noisePicture(Size{64, 48}, AV_PIX_FMT_GRAY8, 1, 1);
    std::uint8_t* planes[4] = {top.data()[0] + 47 * 64};
    const int linesizes[4] = {-64};
    const Picture source(MemBuffer(64, true), Size{64, 48}, planes, linesizes, AV_PIX_FMT_GRAY8,
                         AVCOL_RANGE_MPEG);
    const Picture view = source.crop(Rect{3, 5, 7, 9});
    EXPECT_EQ(view.data()[0], top.data()[0] + 42 * 64 + 3);
    EXPECT_EQ(view.linesize()[0], -64);
}

TEST(PictureCrop, OfAViewIsAViewOfTheSource) {
    std::minstd_rand random(1);
    for (const FormatRule& rule : kRules) {
        const Picture source = noisePicture(Size{64, 48}, rule.format);
        const Picture outer = source.crop(Rect{8, 4, 40, 40});
        for (int i = 0; i < 20; ++i) {
            const Rect rect{static_cast<int>(random() % 30), static_cast<int>(random() % 30),
                            static_cast<int>(random() % 30) + 4, static_cast<int>(random() % 30) + 4};
            expectView(outer, rect, rule);
            const Picture inner = outer.crop(rect);
            EXPECT_GE(inner.data()[0], slotsOf(source)[0].data);
        }
        const Picture twice = outer.crop(Rect{4, 8, 12, 16});
        const Picture once = source.crop(Rect{12, 12, 12, 16});
        EXPECT_EQ(twice.data(), once.data());
        EXPECT_EQ(pixelsOf(twice), pixelsOf(once));
    }
}

TEST(PictureCrop, TakesAReferenceToEachBuffer) {
    const Picture source = test::pictureInSeparateBuffers(Size{64, 48}, AV_PIX_FMT_YUVA420P);
    {
        const Picture view = source.crop(Rect{2, 2, 4, 4});
        EXPECT_EQ(bufferCount(view), 4);
        for (const test::Slot& slot : slotsOf(source)) {
            EXPECT_EQ(slot.references, 2);
        }
        EXPECT_FALSE(view.editable());
        EXPECT_FALSE(source.editable());
    }
    EXPECT_TRUE(source.editable());
}

TEST(PictureCrop, OutlivesItsSource) {
    Picture source = noisePicture(Size{64, 48}, AV_PIX_FMT_YUV420P);
    const Picture view = source.crop(Rect{2, 2, 20, 20});
    const std::vector<std::uint8_t> pixels = pixelsOf(view);
    source = Picture();
    EXPECT_TRUE(view.editable());
    EXPECT_EQ(pixelsOf(view), pixels);
}

}  // namespace
}  // namespace vidorra
