#include <gtest/gtest.h>

#include <climits>
#include <stdexcept>
#include <string>

#include "support/throw_text.h"
#include "text/fonts.h"
#include "vidorra/core/enum_text.h"
#include "vidorra/text/freetype_text_renderer.h"

namespace vidorra::test {
namespace {

constexpr AVPixelFormat kAnyPixel = AV_PIX_FMT_GRAY8;

class TextLayout : public testing::Test {
protected:
    Size sizeOf(const std::string& text) { return mRenderer.getTextSize(text, kAnyPixel); }

    FreeTypeTextRenderer mRenderer{plainFont(), 8};
};

TEST_F(TextLayout, AdvancesAddUpAndAnOddWidthGetsOneMore) {
    EXPECT_EQ(sizeOf("a"), (Size{6, 10}));
    EXPECT_EQ(sizeOf("ab"), (Size{10, 10}));
    EXPECT_EQ(sizeOf("aba"), (Size{16, 10}));
}

TEST_F(TextLayout, ALineIsTheSizeAndTheDescenderHighMadeEven) {
    FreeTypeTextRenderer odd(plainFont({.descent = 3}), 8);
    EXPECT_EQ(odd.getTextSize("a", kAnyPixel), (Size{6, 12}));
    EXPECT_EQ(odd.getTextSize("a\na", kAnyPixel), (Size{6, 22}));
}

TEST_F(TextLayout, AnEmptyTextHasTheSizeOfThePadding) {
    EXPECT_EQ(sizeOf(""), (Size{0, 0}));
    mRenderer.setPadding(1, 2, 4, 5);
    EXPECT_EQ(sizeOf(""), (Size{5, 7}));
    EXPECT_EQ(mRenderer.getTextSize("", AV_PIX_FMT_YUV420P), (Size{4, 6}));
}

TEST_F(TextLayout, LineFeedsBeginLinesWithSpacingBetweenThem) {
    EXPECT_EQ(sizeOf("a\nbb"), (Size{10, 20}));
    EXPECT_EQ(sizeOf("bb\na"), (Size{10, 20}));
    mRenderer.setLineSpacing(3);
    EXPECT_EQ(sizeOf("a\nbb"), (Size{10, 24}));
    EXPECT_EQ(sizeOf("a"), (Size{6, 10}));
    mRenderer.setLineSpacing(-4);
    EXPECT_EQ(sizeOf("a\nb\na"), (Size{6, 22}));
}

TEST_F(TextLayout, ATrailingLineFeedAddsALine) {
    EXPECT_EQ(sizeOf("a\n"), (Size{6, 20}));
    EXPECT_EQ(sizeOf("\n"), (Size{0, 20}));
}

TEST_F(TextLayout, ATabAdvancesByFourBlanksWhereverItStands) {
    EXPECT_EQ(sizeOf("\t"), (Size{12, 10}));
    EXPECT_EQ(sizeOf("a\t"), (Size{18, 10}));
    EXPECT_EQ(sizeOf("aaa\t\t"), (Size{40, 10}));
    EXPECT_EQ(sizeOf("    "), (Size{12, 10}));
}

TEST_F(TextLayout, OtherControlCharactersAreDropped) {
    for (int code = 0; code < 128; ++code) {
        if ((code < 32 && code != '\t' && code != '\n') || code == 127) {
            EXPECT_EQ(sizeOf(std::string("a") + static_cast<char>(code) + "b"), (Size{10, 10})) << code;
        }
    }
    // Control characters of two bytes are characters that the font lacks, shown as its first glyph.
    EXPECT_EQ(sizeOf("a\xc2\x85"
                     "a"),
              (Size{14, 10}));
}

TEST_F(TextLayout, LongLinesAreNotWrapped) {
    EXPECT_EQ(sizeOf(std::string(20000, 'a')), (Size{100000, 10}));
}

TEST_F(TextLayout, PaddingIsAddedAndTheSumRoundedDownToTheChromaGrid) {
    mRenderer.setPadding(1, 2, 4, 3);
    EXPECT_EQ(sizeOf("aba"), (Size{21, 15}));
    struct Row {
        AVPixelFormat format;
        Size size;
    };
    for (const Row& row :
         {Row{AV_PIX_FMT_YUV420P, {20, 14}}, Row{AV_PIX_FMT_NV12, {20, 14}}, Row{NVA12, {20, 14}},
          Row{AV_PIX_FMT_YUV422P, {20, 15}}, Row{AV_PIX_FMT_YUV440P, {21, 14}},
          Row{AV_PIX_FMT_YUV410P, {20, 12}}, Row{AV_PIX_FMT_YUV444P, {21, 15}},
          Row{AV_PIX_FMT_RGBA, {21, 15}}, Row{AV_PIX_FMT_NONE, {21, 15}}}) {
        EXPECT_EQ(mRenderer.getTextSize("aba", row.format), row.size) << row.format;
    }
}

TEST_F(TextLayout, ANewPaddingOrSpacingAppliesToTheSameText) {
    EXPECT_EQ(sizeOf("a\nb"), (Size{6, 20}));
    mRenderer.setLineSpacing(2);
    EXPECT_EQ(sizeOf("a\nb"), (Size{6, 22}));
    mRenderer.setPadding(2, 0, 0, 0);
    EXPECT_EQ(sizeOf("a\nb"), (Size{8, 22}));
}

TEST_F(TextLayout, KerningDrawsPairsTogetherUnlessATabOrALineEndComesBetween) {
    FreeTypeTextRenderer sans(kSans, 60);
    const auto width = [&](const std::string& text) { return sans.getTextSize(text, kAnyPixel).width; };
    const int alone = width("A") + width("V");
    EXPECT_LT(width("AV"), alone - 2);
    // Dropped characters and those that draw nothing but do not count as glyphs leave the pair together.
    EXPECT_EQ(width("A\rV"), width("AV"));
    EXPECT_EQ(width("A\x01V"), width("AV"));
    EXPECT_GE(width("A\tV"), alone - 2 + width("\t"));
    EXPECT_EQ(width("A\nV"), std::max(width("A"), width("V")));
}

TEST_F(TextLayout, ACharacterThatTheFontLacksEndsKerning) {
    FreeTypeTextRenderer sans(kSans, 60);
    const auto width = [&](const std::string& text) { return sans.getTextSize(text, kAnyPixel).width; };
    const std::string lacking = "\xf0\x90\x80\x80";
    EXPECT_GE(width("A" + lacking + "V"), width("A") + width(lacking) + width("V") - 3);
    EXPECT_GT(width(lacking), 0);
}

TEST_F(TextLayout, TheVisibleAreaIsCutToTheText) {
    struct Row {
        Rect area;
        Size size;
    };
    for (const Row& row : {
             Row{{0, 0, 0, 0}, {20, 10}},
             Row{{0, 0, 20, 10}, {20, 10}},
             Row{{5, 3, 100, 100}, {15, 7}},
             Row{{5, 3, 4, 2}, {4, 2}},
             Row{{-5, -3, 10, 10}, {5, 7}},
             Row{{1, 0, 0, 0}, {0, 0}},
             Row{{0, 0, 5, 0}, {0, 0}},
             Row{{30, 0, 5, 5}, {0, 0}},
             Row{{20, 0, 5, 5}, {0, 5}},
             Row{{INT_MAX, INT_MAX, INT_MAX, INT_MAX}, {0, 0}},
             Row{{INT_MIN, INT_MIN, INT_MAX, INT_MAX}, {0, 0}},
         }) {
        EXPECT_EQ(FreeTypeTextRenderer::getVisibleAreaSize({20, 10}, row.area), row.size) << row.area;
    }
}

TEST_F(TextLayout, InvalidUtf8IsReportedOnceAndThenAnEmptyText) {
    const std::string bad = "a\xff";
    EXPECT_EQ(sizeOf("a"), (Size{6, 10}));
    EXPECT_THROW_TEXT(std::range_error, "wstring_convert::from_bytes", sizeOf(bad));
    EXPECT_EQ(sizeOf(bad), (Size{0, 0}));
    EXPECT_EQ(sizeOf("a"), (Size{6, 10}));
    EXPECT_THROW_TEXT(std::range_error, "wstring_convert::from_bytes", sizeOf(bad));
    // Everything that invalidates a layout invalidates this one too.
    mRenderer.setLineSpacing(0);
    EXPECT_THROW_TEXT(std::range_error, "wstring_convert::from_bytes", sizeOf(bad));
}

TEST_F(TextLayout, EachInvalidSequenceIsReported) {
    for (const std::string bad :
         {"\x80", "\xbf", "\xc3(", "\xc0\x80", "\xc1\xbf", "\xe2(\xa1", "\xe0\x80\x80", "\xe0\x9f\xbf",
          "\xf0\x80\x80\x80", "\xf0\x8f\xbf\xbf", "\xf4\x90\x80\x80", "\xf5\x80\x80\x80", "\xff",
          "a\xfe"
          "b"}) {
        EXPECT_THROW_TEXT(std::range_error, "wstring_convert::from_bytes", sizeOf(bad));
    }
}

TEST_F(TextLayout, ASequenceThatEndsWithTheTextTooEarlyIsDropped) {
    for (const std::string cut : {"\xc3", "\xe2\x82", "\xf0\x9f\x98"}) {
        EXPECT_EQ(sizeOf("ab" + cut), (Size{10, 10}));
        EXPECT_THROW_TEXT(std::range_error, "wstring_convert::from_bytes", sizeOf(cut + "ab"));
    }
}

TEST_F(TextLayout, EveryLengthOfSequenceIsOneGlyph) {
    // All of them are the font's glyph for missing characters.
    const int lacking = sizeOf("\xc2\x80").width;
    EXPECT_GT(lacking, 0);
    for (const std::string text : {"\xdf\xbf", "\xe0\xa0\x80", "\xef\xbf\xbf", "\xf0\x90\x80\x80",
                                   "\xf4\x8f\xbf\xbf", "\xef\xbb\xbf"}) {
        EXPECT_EQ(sizeOf(text).width, lacking);
    }
}

}  // namespace
}  // namespace vidorra::test
