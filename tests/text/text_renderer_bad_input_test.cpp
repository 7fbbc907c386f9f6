// Unusable fonts, and extreme texts and numbers.
#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <filesystem>
#include <random>
#include <stdexcept>
#include <string>

#include "support/media.h"
#include "support/throw_text.h"
#include "text/drawn.h"
#include "text/fonts.h"
#include "vidorra/text/freetype_text_renderer.h"

namespace vidorra::test {
namespace {

void expectError(const std::string& start, const std::string& file, int size) {
    EXPECT_THROW_TEXT(std::runtime_error, start + file, FreeTypeTextRenderer(file, size));
    EXPECT_THROW_TEXT(std::runtime_error, start + file,
                      static_cast<void>(FreeTypeTextRenderer::loadFace(file, size)));
}

TEST(TextBadInput, FilesThatAreNoFontsAreNamed) {
    const std::string text = "Could not load font ";
    expectError(text, "/nonexistent/font.ttf", 20);
    expectError(text, "", 20);
    expectError(text, "/tmp", 20);
    expectError(text, temporaryFile("empty.ttf", "").string(), 20);
    expectError(text, temporaryFile("text.ttf", "this is no font\n").string(), 20);
    expectError(text, temporaryFile("cut.ttf", fileContent(kSans).substr(0, 300)).string(), 20);
}

TEST(TextBadInput, FilesLargerThanAnyFontAreNotRead) {
    const std::filesystem::path file = temporaryFile("huge.ttf", fileContent(kSans));
    std::filesystem::resize_file(file, (std::uintmax_t{1} << 30) + 1);
    expectError("Could not load font ", file.string(), 20);
    std::filesystem::resize_file(file, std::filesystem::file_size(kSans) + 1);
    EXPECT_NO_THROW(FreeTypeTextRenderer(file.string(), 20));
}

TEST(TextBadInput, AFontThatIsCutShortWhileItIsOpenIsDrawnAsBefore) {
    const std::filesystem::path file = temporaryFile("shrinking.ttf", fileContent(kSans));
    FreeTypeTextRenderer renderer(file.string(), 30);
    FreeTypeTextRenderer untouched(kSans, 30);
    std::filesystem::resize_file(file, 100);
    const std::string text = "Hello \xc3\xa4 AV\n\xf0\x90\x80\x80";
    EXPECT_EQ(drawn(renderer.render(text, AV_PIX_FMT_GRAY8, AVCOL_RANGE_JPEG, {}, {})),
              drawn(untouched.render(text, AV_PIX_FMT_GRAY8, AVCOL_RANGE_JPEG, {}, {})));
}

TEST(TextBadInput, FontsWithoutAUnicodeCharmapAreNamed) {
    expectError("Could not select unicode charmap for font ",
                plainFont({.registry = "FontSpecific", .encoding = "0"}), 8);
}

TEST(TextBadInput, SizesThatABitmapFontLacksAreNamed) {
    const std::string text = "Could not set fontsize for font ";
    expectError(text, plainFont(), 9);
    expectError(text, plainFont(), 7);
    expectError(text, kBitmap, 33);
    EXPECT_NO_THROW(FreeTypeTextRenderer(plainFont(), 8));
}

TEST(TextBadInput, SizesBelowOneAreNamed) {
    for (const int size : {0, -1, INT_MIN}) {
        expectError("Could not set fontsize for font ", kSans, size);
        expectError("Could not set fontsize for font ", plainFont(), size);
    }
    EXPECT_THROW_TEXT(std::runtime_error, "Could not load font /nonexistent/font.ttf",
                      FreeTypeTextRenderer("/nonexistent/font.ttf", 0));
}

TEST(TextBadInput, SizesBeyondWhatCanBeRenderedLayOutAndDrawNothing) {
    for (const int size : {INT_MAX, 60000}) {
        FreeTypeTextRenderer renderer(kSans, size);
        Picture picture = blackPicture(8, 8);
        renderer.setBackgroundColor(Color(0, 0, 0, 0));
        renderer.renderOn(picture, "W", {}, {});
        EXPECT_EQ(drawn(picture), Drawn(8, "........")) << size;
        EXPECT_EQ(renderer.getTextSize("W", AV_PIX_FMT_GRAY8).width > 10000, size == 60000) << size;
    }
    FreeTypeTextRenderer tiny(kSans, 1);
    EXPECT_EQ(tiny.getTextSize("", AV_PIX_FMT_GRAY8), (Size{0, 0}));
    EXPECT_LT(tiny.getTextSize("W", AV_PIX_FMT_GRAY8).height, 5);
}

TEST(TextBadInput, DamagedFontsDoNotCrash) {
    const std::string whole = fileContent(kCff);
    std::mt19937 random(3);
    int opened = 0;
    for (int round = 0; round < 40; ++round) {
        std::string damaged = whole;
        for (int i = 0; i < 200; ++i) {
            damaged[200 + random() % (damaged.size() - 200)] = static_cast<char>(random());
        }
        if (round % 4 == 0) {
            damaged.resize(damaged.size() / 2);
        }
        try {
            FreeTypeTextRenderer renderer(temporaryFile("damaged.otf", damaged).string(), 30);
            ++opened;
            EXPECT_GE(renderer.getTextSize("Hello \xc3\xa4 AV\n?", AV_PIX_FMT_NV12).height, 0);
            static_cast<void>(
                renderer.render("Hello \xc3\xa4 AV\n?", AV_PIX_FMT_NV12, AVCOL_RANGE_MPEG, {}, {}));
        } catch (const std::runtime_error&) {
        }
    }
    EXPECT_GT(opened, 5);
}

// Two and four bits a pixel: FreeType gives rows that have fewer bytes than pixels.
TEST(TextBadInput, GrayBitmapsOfFewBitsAreDrawnWithinTheirMemory) {
    for (const std::string depth : {"2", "4"}) {
        std::string font = fileContent(plainFont());
        font.replace(font.find("SIZE 8 75 75"), 12, "SIZE 8 75 75 " + depth);
        FreeTypeTextRenderer renderer(temporaryFile("gray.bdf", font).string(), 8);
        renderer.setBackgroundColor(Color(0, 0, 0, 0));
        Picture picture = blackPicture(32, 10);
        EXPECT_NO_THROW(renderer.renderOn(picture, "abcab?", {}, {}));
    }
}

TEST(TextBadInput, AnyBytesAreATextOrARangeError) {
    FreeTypeTextRenderer renderer(plainFont(), 8);
    Picture picture = blackPicture(64, 32);
    std::mt19937 random(1);
    int texts = 0;
    for (int round = 0; round < 3000; ++round) {
        std::string text(random() % 12, '\0');
        for (char& byte : text) {
            byte = static_cast<char>(random() % 3 == 0 ? random() % 128 : random());
        }
        try {
            renderer.renderOn(picture, text, {}, {});
            ++texts;
        } catch (const std::range_error& error) {
            EXPECT_STREQ(error.what(), "wstring_convert::from_bytes");
        }
        EXPECT_NO_THROW(renderer.renderOn(picture, text, {}, {}));
    }
    EXPECT_GT(texts, 200);
    EXPECT_LT(texts, 2900);
}

TEST(TextBadInput, AZeroByteIsAControlCharacter) {
    FreeTypeTextRenderer renderer(plainFont(), 8);
    EXPECT_EQ(renderer.getTextSize(std::string("a\0b", 3), AV_PIX_FMT_GRAY8), (Size{10, 10}));
}

TEST(TextBadInput, PositionsAndAreasFarAwayDrawNothing) {
    FreeTypeTextRenderer renderer(plainFont(), 8);
    for (const Color background : {Color(0, 0, 0, 0), Color(0, 0, 0)}) {
        renderer.setBackgroundColor(background);
        for (const int far : {INT_MAX, INT_MAX - 3, INT_MIN, INT_MIN + 3, 1 << 30, -(1 << 30)}) {
            for (const Point position : {Point{far, 0}, Point{0, far}, Point{far, far}}) {
                Picture picture = blackPicture(8, 8);
                renderer.renderOn(picture, "ab", position, {});
                renderer.renderOn(picture, "ab", position, {1, 1, INT_MAX, INT_MAX});
                EXPECT_EQ(drawn(picture), Drawn(8, "........")) << far;
            }
            for (const Rect area :
                 {Rect{far, 0, 8, 8}, Rect{0, far, INT_MAX, INT_MAX}, Rect{far, far, far, far}}) {
                Picture picture = blackPicture(8, 8);
                EXPECT_NO_THROW(renderer.renderOn(picture, "ab", {}, area)) << area;
            }
        }
    }
}

TEST(TextBadInput, AreasOfNegativeSizeDrawNothing) {
    FreeTypeTextRenderer renderer(plainFont(), 8);
    for (const Rect area :
         {Rect{4, 4, -2, 4}, Rect{4, 4, 4, -2}, Rect{4, 4, -2, -2}, Rect{8, 8, INT_MIN, INT_MIN}}) {
        Picture picture = blackPicture(8, 8);
        renderer.renderOn(picture, "bbb", {}, area);
        renderer.renderOn(picture, "bbb", {3, 3}, area);
        EXPECT_EQ(drawn(picture), Drawn(8, "........")) << area;
    }
}

TEST(TextBadInput, PaddingAndSpacingOfAnySizeWrap) {
    FreeTypeTextRenderer renderer(plainFont(), 8);
    for (const int far : {INT_MAX, INT_MIN, -1000}) {
        Picture picture = blackPicture(8, 8);
        renderer.setPadding(far, far, far, far);
        EXPECT_NO_THROW(renderer.renderOn(picture, "b\nb", {}, {}));
        renderer.setPadding(0, 0, 0, 0);
        renderer.setLineSpacing(far);
        EXPECT_NO_THROW(renderer.renderOn(picture, "b\nb\nb", {}, {}));
        renderer.setLineSpacing(0);
    }
    renderer.setPadding(-6, 0, 0, 0);
    EXPECT_EQ(renderer.getTextSize("b", AV_PIX_FMT_GRAY8), (Size{0, 10}));
}

}  // namespace
}  // namespace vidorra::test
