// Real fonts, compared with pictures assembled from FreeType's glyphs one by one.
#include <gtest/gtest.h>

#include <ft2build.h>
#include FT_FREETYPE_H

#include <algorithm>
#include <cstring>
#include <future>
#include <memory>
#include <string>
#include <vector>

#include "text/drawn.h"
#include "text/fonts.h"
#include "vidorra/text/freetype_text_renderer.h"

namespace vidorra::test {
namespace {

struct Sample {
    const char* name;
    std::string utf8;
    std::u32string codes;
};

const Sample kSamples[] = {
    {"latin", "Quick AV To.", U"Quick AV To."},
    {"accents", "\xc3\x84rger na\xc3\xafve", U"\u00c4rger na\u00efve"},
    {"greek", "\xce\x91\xce\xb8\xce\xae\xce\xbd\xce\xb1", U"\u0391\u03b8\u03ae\u03bd\u03b1"},
    {"cyrillic", "\xd0\x9c\xd0\xbe\xd1\x81\xd0\xba\xd0\xb2\xd0\xb0", U"\u041c\u043e\u0441\u043a\u0432\u0430"},
    {"cjk", "\xe6\xbc\xa2\xe5\xad\x97", U"\u6f22\u5b57"},
    {"emoji",
     "a\xf0\x9f\x98\x80"
     "b",
     U"a\U0001f600b"},
    // A glyph of its own, not put on the letter before it by anything but its bearing.
    {"combining", "e\xcc\x81x", U"e\u0301x"},
    {"lines", "AV\nTo\n\n.", U"AV\nTo\n\n."},
};

struct Font {
    const char* name;
    const char* file;
    int size;
};

const Font kFonts[] = {
    {"sans", kSans, 40}, {"small", kSans, 9}, {"mono", kMono, 23}, {"cff", kCff, 31}, {"bitmap", kBitmap, 16},
};

struct Deleter {
    void operator()(FT_Library library) const { FT_Done_FreeType(library); }
};

// The expected text: each glyph is loaded in turn and blended pixel by pixel, white on black.
Drawn plainlyDrawn(const Font& font, const std::u32string& codes, int width, int height) {
    FT_Library library = nullptr;
    EXPECT_EQ(FT_Init_FreeType(&library), 0);
    const std::unique_ptr<FT_LibraryRec_, Deleter> owner(library);
    FT_Face face = nullptr;
    EXPECT_EQ(FT_New_Face(library, font.file, 0, &face), 0);
    EXPECT_EQ(FT_Set_Pixel_Sizes(face, 0, static_cast<FT_UInt>(font.size)), 0);
    const auto lineHeight =
        static_cast<int>(face->size->metrics.y_ppem + -face->size->metrics.descender / 64);
    std::vector<std::vector<unsigned>> pixels(static_cast<std::size_t>(height),
                                              std::vector<unsigned>(static_cast<std::size_t>(width)));
    int pen = 0;
    auto baseLine = static_cast<int>(face->size->metrics.ascender / 64);
    unsigned previous = 0;
    for (const char32_t code : codes) {
        if (code == U'\n') {
            pen = 0;
            baseLine += lineHeight;
            previous = 0;
            continue;
        }
        const unsigned index = FT_Get_Char_Index(face, code);
        FT_Vector kerning{};
        if (previous != 0 && index != 0) {
            FT_Get_Kerning(face, previous, index, FT_KERNING_DEFAULT, &kerning);
        }
        pen += static_cast<int>(kerning.x >> 6);
        EXPECT_EQ(FT_Load_Glyph(face, index, FT_LOAD_RENDER), 0);
        const FT_GlyphSlot slot = face->glyph;
        for (int y = 0; y < static_cast<int>(slot->bitmap.rows); ++y) {
            for (int x = 0; x < static_cast<int>(slot->bitmap.width); ++x) {
                const int px = pen + slot->bitmap_left + x;
                const int py = baseLine - slot->bitmap_top + y;
                if (px < 0 || py < 0 || px >= width || py >= height) {
                    continue;
                }
                const unsigned char* row = slot->bitmap.buffer + y * slot->bitmap.pitch;
                const unsigned covered = slot->bitmap.pixel_mode == FT_PIXEL_MODE_MONO
                                             ? (row[x / 8] >> (7 - x % 8) & 1) * 255U
                                             : row[x];
                unsigned& pixel = pixels[static_cast<std::size_t>(py)][static_cast<std::size_t>(px)];
                const unsigned weight = covered * ((0x10307 * 255 + 3) / 256);
                pixel = ((0x1010101 - weight) * pixel + weight * 255) >> 24;
            }
        }
        pen += static_cast<int>(slot->advance.x / 64);
        previous = index;
    }
    FT_Done_Face(face);
    Drawn result;
    for (const std::vector<unsigned>& row : pixels) {
        std::string text;
        for (const unsigned pixel : row) {
            text += static_cast<char>(pixel);
        }
        result.push_back(text);
    }
    return result;
}

// Whether the glyph of the font for characters that it lacks has no ink.
bool showsNothingForOthers(const Font& font) {
    FT_Library library = nullptr;
    EXPECT_EQ(FT_Init_FreeType(&library), 0);
    const std::unique_ptr<FT_LibraryRec_, Deleter> owner(library);
    FT_Face face = nullptr;
    EXPECT_EQ(FT_New_Face(library, font.file, 0, &face), 0);
    EXPECT_EQ(FT_Set_Pixel_Sizes(face, 0, static_cast<FT_UInt>(font.size)), 0);
    EXPECT_EQ(FT_Load_Glyph(face, 0, FT_LOAD_RENDER), 0);
    const bool blank = face->glyph->bitmap.rows == 0;
    FT_Done_Face(face);
    return blank;
}

Drawn bytes(const Picture& picture) {
    Drawn result;
    for (int y = 0; y < picture.frameSize().height; ++y) {
        result.emplace_back(reinterpret_cast<const char*>(picture.data()[0] + y * picture.linesize()[0]),
                            static_cast<std::size_t>(picture.frameSize().width));
    }
    return result;
}

class RealFonts : public testing::TestWithParam<Font> {};

TEST_P(RealFonts, TextIsFreeTypesGlyphsInLine) {
    FreeTypeTextRenderer renderer(GetParam().file, GetParam().size);
    renderer.setFontColor(Color(255, 255, 255));
    renderer.setBackgroundColor(Color(0, 0, 0, 0));
    const bool othersAreBlank = showsNothingForOthers(GetParam());
    // Several times, so that cached glyphs are drawn too.
    for (int round = 0; round < 2; ++round) {
        for (const Sample& sample : kSamples) {
            SCOPED_TRACE(sample.name);
            const Size size = renderer.getTextSize(sample.utf8, AV_PIX_FMT_GRAY8);
            ASSERT_GT(size.width, 0);
            Picture picture = blackPicture(size.width + 10, size.height + 10);
            renderer.renderOn(picture, sample.utf8, {}, {});
            Drawn expected = plainlyDrawn(GetParam(), sample.codes, size.width, size.height);
            for (std::string& row : expected) {
                row.append(10, '\0');
            }
            expected.resize(static_cast<std::size_t>(size.height) + 10,
                            std::string(expected[0].size(), '\0'));
            const Drawn drawn = bytes(picture);
            ASSERT_EQ(drawn, expected);
            const bool inked = std::any_of(drawn.begin(), drawn.end(), [](const std::string& row) {
                return row.find_first_not_of('\0') != std::string::npos;
            });
            EXPECT_TRUE(inked || othersAreBlank);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Fonts, RealFonts, testing::ValuesIn(kFonts),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(RealFont, BitmapFontsHaveNoShadesAndOutlinesHave) {
    for (const Font& font : {Font{"", kBitmap, 16}, Font{"", kSans, 16}}) {
        FreeTypeTextRenderer renderer(font.file, font.size);
        renderer.setFontColor(Color(255, 255, 255));
        const Picture picture = renderer.render("Sample", AV_PIX_FMT_GRAY8, AVCOL_RANGE_JPEG, {}, {});
        std::string all;
        for (const std::string& row : drawn(picture)) {
            all += row;
        }
        EXPECT_NE(all.find('#'), std::string::npos) << font.file;
        EXPECT_EQ(all.find('+') == std::string::npos, font.file == kBitmap) << font.file;
    }
}

TEST(RealFont, ObjectsWorkOnThreadsOfTheirOwn) {
    const auto render = [] {
        FreeTypeTextRenderer renderer(kSans, 23);
        Drawn result;
        for (const Sample& sample : kSamples) {
            const Drawn rows =
                bytes(renderer.render(sample.utf8, AV_PIX_FMT_GRAY8, AVCOL_RANGE_JPEG, {}, {}));
            result.insert(result.end(), rows.begin(), rows.end());
        }
        return result;
    };
    const Drawn expected = render();
    EXPECT_GT(expected.size(), 100U);
    std::vector<std::future<int>> others;
    others.reserve(4);
    for (int i = 0; i < 4; ++i) {
        others.push_back(std::async(std::launch::async, [&] {
            int same = 0;
            for (int round = 0; round < 100; ++round) {
                same += render() == expected ? 1 : 0;
            }
            return same;
        }));
    }
    for (std::future<int>& other : others) {
        EXPECT_EQ(other.get(), 100);
    }
}

TEST(RealFont, ManyDistinctCharactersAreAllKept) {
    FreeTypeTextRenderer renderer(kSans, 12);
    renderer.setFontColor(Color(255, 255, 255));
    std::string all;
    for (unsigned code = 0x100; code < 0x600; ++code) {
        all += static_cast<char>(0xc0 | code >> 6);
        all += static_cast<char>(0x80 | (code & 0x3f));
    }
    const Drawn first = bytes(renderer.render(all, AV_PIX_FMT_GRAY8, AVCOL_RANGE_JPEG, {}, {}));
    static_cast<void>(renderer.getTextSize("a", AV_PIX_FMT_GRAY8));
    EXPECT_EQ(bytes(renderer.render(all, AV_PIX_FMT_GRAY8, AVCOL_RANGE_JPEG, {}, {})), first);
}

}  // namespace
}  // namespace vidorra::test
