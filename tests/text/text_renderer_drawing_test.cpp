#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <stdexcept>
#include <string>

#include "support/throw_text.h"
#include "text/drawn.h"
#include "text/fonts.h"
#include "vidorra/core/enum_text.h"
#include "vidorra/picture/default_picture_allocator.h"
#include "vidorra/process/drawing.h"
#include "vidorra/process/picture_analysis.h"
#include "vidorra/text/freetype_text_renderer.h"

namespace vidorra::test {
namespace {

constexpr Color kWhite{255, 255, 255};
constexpr Color kTransparent{0, 0, 0, 0};

// Records requests; the memory comes from the default allocator.
struct RecordingAllocator : PictureAllocator {
    Picture allocate(Size size, AVPixelFormat format, AVColorRange range) override {
        ++calls;
        lastSize = size;
        lastFormat = format;
        lastRange = range;
        Picture picture = getDefaultPictureAllocator()->allocate(size, format, range);
        for (std::size_t plane = 0; plane < 4; ++plane) {
            if (picture.data()[plane] != nullptr) {
                const int rows = plane == 1 || plane == 2 ? size.height / 2 : size.height;
                std::memset(picture.data()[plane], 7,
                            static_cast<std::size_t>(picture.linesize()[plane] * rows));
            }
        }
        return picture;
    }

    int calls = 0;
    Size lastSize;
    AVPixelFormat lastFormat = AV_PIX_FMT_NONE;
    AVColorRange lastRange = AVCOL_RANGE_UNSPECIFIED;
};

// White text without a background.
class TextDrawing : public testing::Test {
protected:
    TextDrawing() {
        mRenderer.setFontColor(kWhite);
        mRenderer.setBackgroundColor(kTransparent);
    }

    Drawn drawnOn(int width, int height, const std::string& text, Point position = {}, Rect area = {}) {
        Picture picture = blackPicture(width, height);
        mRenderer.renderOn(picture, text, position, area);
        return drawn(picture);
    }
    Drawn rendered(const std::string& text, Rect area = {}) {
        mRenderer.setBackgroundColor(Color(0, 0, 0));
        return drawn(mRenderer.render(text, AV_PIX_FMT_GRAY8, AVCOL_RANGE_JPEG, {}, area));
    }

    FreeTypeTextRenderer mRenderer{plainFont(), 8};
};

TEST_F(TextDrawing, GlyphsStandOnTheBaseLineWithTheirBearings) {
    EXPECT_EQ(drawnOn(12, 11, "ab"), (Drawn{"............",  //
                                            "............",  //
                                            "..#.........",  //
                                            ".#.#........",  //
                                            ".###........",  //
                                            ".#.#........",  //
                                            ".....#..#...",  //
                                            ".....####...",  //
                                            "............",  //
                                            "............",  //
                                            "............"}));
}

TEST_F(TextDrawing, LinesAreDrawnBelowEachOtherFromTheLeft) {
    mRenderer.setLineSpacing(1);
    EXPECT_EQ(rendered("\nb\n a"),
              (Drawn{"........", "........", "........", "........", "........", "........", "........",
                     "........", "........", "........", "........",
                     // Line 1 begins.
                     "........", "........", "........", "........", "........", "........", "#..#....",
                     "####....", "........", "........", "........",
                     // Line 2 begins.
                     "........", "........", ".....#..", "....#.#.", "....###.", "....#.#.", "........",
                     "........", "........", "........"}));
}

TEST_F(TextDrawing, GlyphsMayBeginLeftOfThePenAndAreCutThere) {
    EXPECT_EQ(drawnOn(5, 6, "c")[4], "##...");
    EXPECT_EQ(drawnOn(8, 6, " c")[4], "..###...");
    mRenderer.setPadding(1, 0, 0, 0);
    EXPECT_EQ(drawnOn(5, 6, "c")[4], "###..");
}

TEST_F(TextDrawing, TabsMoveThePen) {
    EXPECT_EQ(drawnOn(20, 8, "b\tb")[7], "####.............###");
}

TEST_F(TextDrawing, WhatTheFontLacksIsDrawnAsItsFirstGlyph) {
    // The first glyph of the font is the blank.
    EXPECT_EQ(drawnOn(10, 8,
                      "\xc2\x80"
                      "b")[7],
              "...####...");
}

TEST_F(TextDrawing, PaddingMovesTheTextAndIsFilledWithTheBackground) {
    mRenderer.setPadding(2, 1, 3, 2);
    mRenderer.setBackgroundColor(Color(255, 255, 255));
    mRenderer.setFontColor(Color(0, 0, 0));
    const Drawn result = drawnOn(12, 14, "b");
    ASSERT_EQ(result[0], "###########.");
    EXPECT_EQ(result[7], "##.##.#####.");
    EXPECT_EQ(result[8], "##....#####.");
    EXPECT_EQ(result[12], "###########.");
    EXPECT_EQ(result[13], "............");
}

TEST_F(TextDrawing, TheBackgroundOverwritesAndATransparentOneLeavesThePicture) {
    Picture picture = blackPicture(8, 10);
    std::memset(picture.data()[0], 128, static_cast<std::size_t>(picture.linesize()[0] * 10));
    mRenderer.renderOn(picture, "b", {}, {});
    EXPECT_EQ(drawn(picture)[7], "####++++");
    mRenderer.setBackgroundColor(Color(0, 0, 0, 1));
    mRenderer.renderOn(picture, "b", {}, {});
    EXPECT_EQ(drawn(picture)[7], "####..++");
}

TEST_F(TextDrawing, ThePositionCountsTwiceForTheGlyphsAndOnceForTheBackground) {
    mRenderer.setBackgroundColor(Color(0, 0, 0));
    Picture picture = blackPicture(14, 14);
    std::memset(picture.data()[0], 128, static_cast<std::size_t>(picture.linesize()[0] * 14));
    mRenderer.renderOn(picture, "b", {2, 1}, {});
    const Drawn result = drawn(picture);
    EXPECT_EQ(result[0], "++++++++++++++");
    EXPECT_EQ(result[1], "++......++++++");
    // The base line is that of row 5 at 0, 0.
    EXPECT_EQ(result[8], "++..#..#++++++");
    EXPECT_EQ(result[9], "++..####++++++");
    EXPECT_EQ(result[10], "++......++++++");
    EXPECT_EQ(result[11], "++++++++++++++");
}

TEST_F(TextDrawing, GlyphsAreClippedToTheAreaAtThePosition) {
    // The area is 6 pixels wide, and the text begins 5 pixels into it.
    EXPECT_EQ(drawnOn(20, 10, "b", {5, 0})[7], "..........#.........");
    EXPECT_EQ(drawnOn(20, 10, "b", {6, 0})[7], "....................");
    EXPECT_EQ(drawnOn(20, 10, "b", {-1, 0})[7], "###.................");
    EXPECT_EQ(drawnOn(20, 10, "b", {100, 0})[7], "....................");
    EXPECT_EQ(drawnOn(3, 7, "b")[6], "#..");
}

TEST_F(TextDrawing, AVisibleAreaShowsThatPartOfTheTextAtThePosition) {
    EXPECT_EQ(rendered("ab", {0, 6, 8, 2}), (Drawn{".....#..", ".....###"}));
    EXPECT_EQ(rendered("ab", {5, 6, 4, 2}), (Drawn{"#..#", "####"}));
    EXPECT_EQ(rendered("ab", {7, 7, 100, 100}), (Drawn{"##.", "...", "..."}));
    EXPECT_EQ(rendered("ab", {-2, 6, 5, 2}), (Drawn{"...", "..."}));
    EXPECT_EQ(drawnOn(8, 3, "ab", {}, {5, 6, 3, 2}), (Drawn{"#.......", "###.....", "........"}));
}

TEST_F(TextDrawing, AnAreaThatBeginsLeftOfTheTextMovesItRight) {
    EXPECT_EQ(rendered("b", {-2, 6, 6, 2}), (Drawn{"..#.", "..##"}));
}

// The view of the area has its first pixel in every plane where the one of Picture::crop() has it: what is
// drawn at a position is what is drawn on the cropped picture with the position as padding.
TEST_F(TextDrawing, InEveryFormatTheAreaIsThatOfTheCroppedPicture) {
    constexpr Size kWhole{40, 36};
    constexpr Rect kArea{8, 6, 24, 20};
    const std::string text = "abab\nb?";
    for (const AVPixelFormat format :
         {AV_PIX_FMT_GRAY8, AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUVA420P, AV_PIX_FMT_NV12, AV_PIX_FMT_NV21, NVA12,
          AV_PIX_FMT_YUV422P, AV_PIX_FMT_YUV410P, AV_PIX_FMT_YUV444P, AV_PIX_FMT_RGB24, AV_PIX_FMT_RGBA,
          AV_PIX_FMT_GBRP, AV_PIX_FMT_GBRAP, AV_PIX_FMT_YA8, AV_PIX_FMT_YUV420P10LE, AV_PIX_FMT_P010LE}) {
        SCOPED_TRACE(to_string(format));
        Picture picture(kWhole, format, AVCOL_RANGE_MPEG, 32);
        fillWithDebugData(picture);
        Picture whole = picture;
        whole.makeEditable();
        const Picture before = whole;
        FreeTypeTextRenderer atPosition(plainFont(), 8);
        atPosition.setBackgroundColor(kTransparent);
        atPosition.setPadding(0, 0, 4, 0);
        ASSERT_EQ(atPosition.getTextSize(text, format), (Size{24, 20}));
        atPosition.renderOn(picture, text, {kArea.x, kArea.y}, {});

        Picture view = whole.crop(kArea);
        view.makeEditable();
        FreeTypeTextRenderer atOrigin(plainFont(), 8);
        atOrigin.setBackgroundColor(kTransparent);
        atOrigin.setPadding(kArea.x, kArea.y, 4, 4);
        atOrigin.renderOn(view, text, {}, {});
        EXPECT_EQ(getPlanesMD5(picture.crop(kArea)), getPlanesMD5(view));
        EXPECT_NE(getPlanesMD5(before.crop(kArea)), getPlanesMD5(view));
        for (const Rect outside :
             {Rect{0, 0, 40, 6}, Rect{0, 6, 8, 20}, Rect{32, 6, 8, 20}, Rect{0, 28, 40, 8}}) {
            EXPECT_EQ(getPlanesMD5(picture.crop(outside)), getPlanesMD5(before.crop(outside))) << outside;
        }
    }
}

TEST_F(TextDrawing, NothingToShowIsNoErrorAndTouchesNothing) {
    EXPECT_EQ(drawnOn(4, 2, ""), (Drawn{"....", "...."}));
    EXPECT_EQ(drawnOn(4, 2, "a", {}, {9, 0, 5, 5}), (Drawn{"....", "...."}));
    EXPECT_TRUE(mRenderer.render("", AV_PIX_FMT_NV12, AVCOL_RANGE_MPEG, {}, {}).empty());
    EXPECT_TRUE(mRenderer.render("", AV_PIX_FMT_NV12, AVCOL_RANGE_MPEG, {8, 8}, {}).empty());
    EXPECT_TRUE(mRenderer.render("a", AV_PIX_FMT_NV12, AVCOL_RANGE_MPEG, {}, {0, 0, 5, 0}).empty());
    // Not even the format matters then.
    Picture packed(Size{4, 4}, AV_PIX_FMT_YUYV422, AVCOL_RANGE_MPEG, 32);
    EXPECT_NO_THROW(mRenderer.renderOn(packed, "", {}, {}));
}

TEST_F(TextDrawing, ATextThatCannotBeDecodedHasOnlyItsPaddingFromThenOn) {
    mRenderer.setPadding(0, 0, 4, 8);
    mRenderer.setBackgroundColor(kWhite);
    mRenderer.setFontColor(Color(0, 0, 0));
    EXPECT_EQ(drawnOn(8, 10, "b")[6], ".##.####");
    EXPECT_THROW_TEXT(std::range_error, "wstring_convert::from_bytes", drawnOn(8, 10, "b\xff"));
    Drawn padding(8, "####....");
    padding.resize(10, "........");
    EXPECT_EQ(drawnOn(8, 10, "b\xff"), padding);
}

TEST_F(TextDrawing, PicturesThatAreNotEditableAreRefusedFirst) {
    Picture picture = blackPicture(8, 8);
    const Picture other = picture;
    EXPECT_THROW_TEXT(std::runtime_error, "renderOn: Picture must be editable",
                      mRenderer.renderOn(picture, "\xff", {}, {}));
    Picture none;
    EXPECT_THROW_TEXT(std::runtime_error, "renderOn: Picture must be editable",
                      mRenderer.renderOn(none, "a", {}, {}));
    EXPECT_EQ(drawn(other), (Drawn(8, "........")));
}

TEST_F(TextDrawing, FormatsThatCannotBeDrawnOnAreRefused) {
    for (const Color background : {kTransparent, Color(0, 0, 0)}) {
        mRenderer.setBackgroundColor(background);
        Picture packed(Size{8, 8}, AV_PIX_FMT_YUYV422, AVCOL_RANGE_MPEG, 32);
        EXPECT_THROW_TEXT(std::runtime_error, "Drawing is not supported for yuyv422",
                          mRenderer.renderOn(packed, "a", {}, {}));
        EXPECT_THROW_TEXT(
            std::runtime_error, "Drawing is not supported for yuyv422",
            static_cast<void>(mRenderer.render("a", AV_PIX_FMT_YUYV422, AVCOL_RANGE_MPEG, {}, {})));
    }
}

TEST_F(TextDrawing, ColorsApplyAtOnceAndMixByTheirAlpha) {
    EXPECT_EQ(drawnOn(5, 8, "b")[7], "####.");
    mRenderer.setFontColor(Color(255, 255, 255, 128));
    EXPECT_EQ(drawnOn(5, 8, "b")[7], "++++.");
    mRenderer.setFontColor(Color(255, 255, 255, 0));
    EXPECT_EQ(drawnOn(5, 8, "b")[7], ".....");
}

TEST_F(TextDrawing, TheFirstColorsAreALightMagentaOnOpaqueBlack) {
    FreeTypeTextRenderer fresh(plainFont(), 8);
    const Picture picture = fresh.render("b", AV_PIX_FMT_RGBA, AVCOL_RANGE_JPEG, {}, {});
    const std::uint8_t expected[2][4] = {{255, 225, 255, 255}, {0, 0, 0, 255}};
    EXPECT_EQ(std::memcmp(picture.data()[0] + 6 * picture.linesize()[0], expected, 8), 0);
}

TEST_F(TextDrawing, TheFormatFollowsTheBackgroundsAlpha) {
    struct Row {
        AVPixelFormat format;
        AVPixelFormat opaque;
        AVPixelFormat transparent;
    };
    for (const Row& row : {
             Row{AV_PIX_FMT_NV12, AV_PIX_FMT_NV12, NVA12},
             Row{NVA12, AV_PIX_FMT_NV12, NVA12},
             Row{AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUVA420P},
             Row{AV_PIX_FMT_YUVA420P, AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUVA420P},
             Row{AV_PIX_FMT_RGBA, AV_PIX_FMT_RGBA, AV_PIX_FMT_RGBA},
             Row{AV_PIX_FMT_RGB24, AV_PIX_FMT_RGB24, AV_PIX_FMT_RGB24},
             Row{AV_PIX_FMT_YUV444P, AV_PIX_FMT_YUV444P, AV_PIX_FMT_YUV444P},
         }) {
        RecordingAllocator allocator;
        mRenderer.setPictureAllocator(&allocator);
        mRenderer.setBackgroundColor(Color(0, 0, 0, 1));
        EXPECT_EQ(mRenderer.render("a", row.format, AVCOL_RANGE_JPEG, {}, {}).pixelFormat(), row.opaque);
        EXPECT_EQ(allocator.lastFormat, row.opaque);
        EXPECT_EQ(allocator.lastRange, AVCOL_RANGE_JPEG);
        mRenderer.setBackgroundColor(kTransparent);
        const Picture picture = mRenderer.render("a", row.format, AVCOL_RANGE_MPEG, {}, {});
        EXPECT_EQ(picture.pixelFormat(), row.transparent);
        EXPECT_EQ(picture.colorRange(), AVCOL_RANGE_MPEG);
        EXPECT_TRUE(picture.editable());
        mRenderer.setPictureAllocator(nullptr);
    }
}

TEST_F(TextDrawing, TheMinimumSizeEnlargesTheMemoryOnly) {
    RecordingAllocator allocator;
    mRenderer.setPictureAllocator(&allocator);
    struct Row {
        Size minimum;
        Size asked;
    };
    for (const Row& row : {Row{{0, 0}, {6, 10}}, Row{{100, 0}, {100, 10}}, Row{{3, 50}, {6, 50}},
                           Row{{-5, INT_MIN}, {6, 10}}}) {
        EXPECT_EQ(mRenderer.render("a", AV_PIX_FMT_NV12, AVCOL_RANGE_MPEG, row.minimum, {}).frameSize(),
                  (Size{6, 10}));
        EXPECT_EQ(allocator.lastSize, row.asked);
    }
    mRenderer.setPictureAllocator(nullptr);
    allocator.calls = 0;
    EXPECT_FALSE(mRenderer.render("a", AV_PIX_FMT_NV12, AVCOL_RANGE_MPEG, {}, {}).empty());
    EXPECT_EQ(allocator.calls, 0);
}

TEST_F(TextDrawing, InALargerMemoryAnOddPartIsRoundedDownToChromaSamples) {
    const auto sizeOf = [&](AVPixelFormat format, Size minimum) {
        return mRenderer.render("a", format, AVCOL_RANGE_MPEG, minimum, {0, 0, 5, 3}).frameSize();
    };
    EXPECT_EQ(sizeOf(AV_PIX_FMT_NV12, {}), (Size{5, 3}));
    EXPECT_EQ(sizeOf(AV_PIX_FMT_NV12, {20, 20}), (Size{4, 2}));
    EXPECT_EQ(sizeOf(AV_PIX_FMT_GRAY8, {20, 20}), (Size{5, 3}));
}

TEST_F(TextDrawing, UnderATransparentBackgroundPicturesHaveTheFontsColorEverywhere) {
    RecordingAllocator allocator;
    mRenderer.setPictureAllocator(&allocator);
    mRenderer.setFontColor(Color(10, 20, 30, 200));
    // The colour's alpha of 200 is blended separately.
    const Picture packed = mRenderer.render("b", AV_PIX_FMT_RGBA, AVCOL_RANGE_JPEG, {}, {});
    for (int y = 0; y < 10; ++y) {
        for (int x = 0; x < 6; ++x) {
            const std::uint8_t* pixel = packed.data()[0] + y * packed.linesize()[0] + 4 * x;
            const bool inked = (y == 6 && (x == 0 || x == 3)) || (y == 7 && x < 4);
            ASSERT_EQ(std::vector<int>(pixel, pixel + 4), (std::vector<int>{10, 20, 30, inked ? 157 : 0}))
                << x << "," << y;
        }
    }
    mRenderer.setFontColor(kWhite);
    for (const AVPixelFormat format : {AV_PIX_FMT_NV12, AV_PIX_FMT_YUV420P}) {
        const Picture planar = mRenderer.render("b", format, AVCOL_RANGE_MPEG, {}, {});
        EXPECT_EQ(drawn(planar, 3)[7], "####..");
        EXPECT_EQ(drawn(planar, 3)[8], "......");
        EXPECT_EQ(planar.data()[0][0], 235);
        EXPECT_EQ(planar.data()[0][9 * planar.linesize()[0] + 5], 235);
        EXPECT_EQ(planar.data()[1][0], 128);
    }
    // Without an alpha plane the memory stays unchanged.
    const Picture plain = mRenderer.render("b", AV_PIX_FMT_RGB24, AVCOL_RANGE_JPEG, {}, {});
    EXPECT_EQ(plain.data()[0][0], 7);
    EXPECT_EQ(plain.data()[0][7 * plain.linesize()[0]], 255);
}

TEST_F(TextDrawing, AnOpaqueBackgroundFillsTheWholePicture) {
    RecordingAllocator allocator;
    mRenderer.setPictureAllocator(&allocator);
    mRenderer.setBackgroundColor(Color(255, 0, 0, 9));
    const Picture limited = mRenderer.render("a", AV_PIX_FMT_NV12, AVCOL_RANGE_MPEG, {}, {});
    EXPECT_EQ(limited.data()[0][0], 81);
    EXPECT_EQ(limited.data()[1][0], 90);
    EXPECT_EQ(limited.data()[1][1], 240);
    EXPECT_EQ(limited.data()[0][9 * limited.linesize()[0] + 5], 81);
    const Picture full = mRenderer.render("a", AV_PIX_FMT_NV12, AVCOL_RANGE_JPEG, {}, {});
    EXPECT_EQ(full.data()[0][0], 76);
}

TEST_F(TextDrawing, OnASubsampledPictureTheAreaRoundsDownToItsGrid) {
    Picture picture(Size{13, 12}, AV_PIX_FMT_YUV420P, AVCOL_RANGE_JPEG, 32);
    for (std::size_t plane = 0; plane < 3; ++plane) {
        std::memset(picture.data()[plane], 0,
                    static_cast<std::size_t>(picture.linesize()[plane] * (plane == 0 ? 12 : 6)));
    }
    // The view begins at 2, 0; the glyph at 3, 0 within it.
    mRenderer.renderOn(picture, "b", {3, 1}, {});
    const Drawn luma = drawn(picture, 0);
    EXPECT_EQ(luma[7], ".....#.......");
    EXPECT_EQ(luma[8], ".....###.....");
    // Chroma of white is 128 and covered by a quarter or the half.
    const Drawn chroma = drawn(picture, 1);
    EXPECT_EQ(chroma[3], "..+....");
    EXPECT_EQ(chroma[4], "..++...");
    EXPECT_EQ(picture.data()[1][3 * picture.linesize()[1] + 2], 31);
    EXPECT_EQ(picture.data()[2][4 * picture.linesize()[2] + 3], 63);
}

TEST_F(TextDrawing, AnAreaThatIsTheWholePictureIsNotRounded) {
    mRenderer.setPadding(1, 0, 0, 0);
    const Picture odd = mRenderer.render("b", AV_PIX_FMT_YUV420P, AVCOL_RANGE_JPEG, {}, {0, 0, 5, 7});
    ASSERT_EQ(odd.frameSize(), (Size{5, 7}));
    // White, in the last column and row.
    EXPECT_EQ(drawn(odd)[6][4], '#');
    // Of a larger picture it is rounded.
    Picture picture(Size{6, 8}, AV_PIX_FMT_YUV420P, AVCOL_RANGE_JPEG, 32);
    fillRectangle(picture, Color(0, 0, 0));
    mRenderer.renderOn(picture, "b", {}, {0, 0, 5, 7});
    EXPECT_EQ(drawn(picture), Drawn(8, "......"));
}

TEST_F(TextDrawing, RenderingTwiceGivesTheSame) {
    const Drawn once = rendered("ab?\n a");
    EXPECT_EQ(rendered("b"), rendered("b"));
    EXPECT_EQ(rendered("ab?\n a"), once);
}

}  // namespace
}  // namespace vidorra::test
