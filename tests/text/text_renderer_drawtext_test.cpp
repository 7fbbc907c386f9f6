// Text beside that of FFmpeg's drawtext filter, in its own picture.
//
// Where the two draw alike, their bytes are the same. They differ in these things, by design of each:
//
//   what                    drawtext                               this library
//   base line of line 1     below the text's highest glyph         below the font's ascender
//   distance of lines       from the highest to the lowest glyph   by the font's size and descender
//   kerning                 asks FreeType by character codes       asks by glyph indices
//   tabs                    advances by tabsize blanks             by four blanks
//   characters              expansions such as %{pts}              as they are
//
// The first is made up for by padding here, the expansions are turned off.
#include <gtest/gtest.h>

#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_GLYPH_H

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "support/filtered_picture.h"
#include "text/fonts.h"
#include "vidorra/core/enum_text.h"
#include "vidorra/core/format.h"
#include "vidorra/text/freetype_text_renderer.h"

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/pixdesc.h>
}

namespace vidorra::test {
namespace {

constexpr Size kSize{334, 66};

struct Caption {
    const char* font;
    int size;
    std::string utf8;
    std::u32string codes;
    Color color;
};

// From a filter that makes a picture of one colour, through drawtext if it has arguments; empty when one of
// the two does not know the format.
Picture filtered(AVPixelFormat format, const std::string& drawtext) {
    std::vector<std::pair<std::string, std::string>> filters = {
        {"color", fmt::format("s={}x{}:c=0x305070", kSize.width, kSize.height)}};
    if (!drawtext.empty()) {
        filters.emplace_back("drawtext", drawtext);
    }
    const auto frame = test::filteredPicture(to_string(format), filters);
    if (frame == nullptr) {
        return {};
    }
    Picture picture(frame.get());
    picture.makeEditable();
    return picture;
}

struct Deleter {
    void operator()(FT_Library library) const { FT_Done_FreeType(library); }
};

// How much lower than drawtext's the base line of the renderer is.
int baseLineDifference(const Caption& caption) {
    FT_Library library = nullptr;
    EXPECT_EQ(FT_Init_FreeType(&library), 0);
    const std::unique_ptr<FT_LibraryRec_, Deleter> owner(library);
    FT_Face face = nullptr;
    EXPECT_EQ(FT_New_Face(library, caption.font, 0, &face), 0);
    EXPECT_EQ(FT_Set_Pixel_Sizes(face, 0, static_cast<FT_UInt>(caption.size)), 0);
    FT_Pos highest = -1000;
    for (const char32_t code : caption.codes) {
        EXPECT_EQ(FT_Load_Char(face, code, FT_LOAD_RENDER), 0);
        FT_Glyph glyph = nullptr;
        EXPECT_EQ(FT_Get_Glyph(face->glyph, &glyph), 0);
        FT_BBox box;
        FT_Glyph_Get_CBox(glyph, FT_GLYPH_BBOX_PIXELS, &box);
        highest = std::max(highest, box.yMax);
        FT_Done_Glyph(glyph);
    }
    const FT_Pos ascender = face->size->metrics.ascender / 64;
    FT_Done_Face(face);
    return static_cast<int>(ascender - highest);
}

Picture byDrawtext(AVPixelFormat format, const Caption& caption, Point position) {
    return filtered(format,
                    fmt::format("fontfile={}:fontsize={}:text_shaping=0:expansion=none:x={}:y={}:"
                                "fontcolor=0x{:02x}{:02x}{:02x}{:02x}:text='{}'",
                                caption.font, caption.size, position.x, position.y, caption.color.red,
                                caption.color.green, caption.color.blue, caption.color.alpha, caption.utf8));
}

Picture byRenderer(AVPixelFormat format, const Caption& caption, Point position) {
    Picture picture = filtered(format, "");
    if (picture.empty()) {
        return picture;
    }
    FreeTypeTextRenderer renderer(caption.font, caption.size);
    renderer.setFontColor(caption.color);
    renderer.setBackgroundColor(Color(0, 0, 0, 0));
    renderer.setPadding(position.x, position.y - baseLineDifference(caption), 400, 200);
    renderer.renderOn(picture, caption.utf8, {}, {});
    return picture;
}

// Bytes that differ in one plane.
int differences(const Picture& left, const Picture& right, std::size_t plane) {
    if (left.data()[plane] == nullptr) {
        return 0;
    }
    const AVPixFmtDescriptor* descriptor = av_pix_fmt_desc_get(left.pixelFormat());
    const bool chroma = (plane == 1 || plane == 2) && (descriptor->flags & AV_PIX_FMT_FLAG_RGB) == 0;
    const int rows = -(-left.frameSize().height >> (chroma ? descriptor->log2_chroma_h : 0));
    const int width = -(-left.frameSize().width >> (chroma ? descriptor->log2_chroma_w : 0));
    int step = 0;
    for (int i = 0; i < descriptor->nb_components; ++i) {
        step = descriptor->comp[i].plane == static_cast<int>(plane) ? descriptor->comp[i].step : step;
    }
    int result = 0;
    for (int y = 0; y < rows; ++y) {
        for (int x = 0; x < width * step; ++x) {
            result += left.data()[plane][y * left.linesize()[plane] + x] !=
                              right.data()[plane][y * right.linesize()[plane] + x]
                          ? 1
                          : 0;
        }
    }
    return result;
}

int differences(const Picture& left, const Picture& right) {
    int result = 0;
    for (std::size_t plane = 0; plane < 4; ++plane) {
        result += differences(left, right, plane);
    }
    return result;
}

constexpr AVPixelFormat kFormats[] = {
    AV_PIX_FMT_YUV420P,     AV_PIX_FMT_NV12,  AV_PIX_FMT_NV21,     AV_PIX_FMT_YUV422P, AV_PIX_FMT_YUV444P,
    AV_PIX_FMT_GRAY8,       AV_PIX_FMT_RGB24, AV_PIX_FMT_BGR24,    AV_PIX_FMT_RGBA,    AV_PIX_FMT_ARGB,
    AV_PIX_FMT_RGB0,        AV_PIX_FMT_GBRP,  AV_PIX_FMT_YUVA420P, AV_PIX_FMT_YA8,     AV_PIX_FMT_YUV420P10LE,
    AV_PIX_FMT_YUV444P16LE, AV_PIX_FMT_P010LE};

const Caption kOpaque{kMono, 26, "Hexagon: 3/8 of (yj)", U"Hexagon: 3/8 of (yj)", Color(250, 240, 20)};
const Caption kCyrillic{kMono, 31, "\xd0\x9f\xd1\x80\xd0\xb8\xd0\xb2\xd0\xb5\xd1\x82",
                        U"\u041f\u0440\u0438\u0432\u0435\u0442", Color(255, 255, 255)};
const Caption kOutlinesOfCff{kCff, 24, "Quick, 42!", U"Quick, 42!", Color(0, 0, 0)};
const Caption kThin{kMono, 20, "transparent", U"transparent", Color(200, 100, 50, 100)};

TEST(BesideDrawtext, TheBytesAreTheSameInEveryFormat) {
    for (const AVPixelFormat format : kFormats) {
        const Picture empty = filtered(format, "");
        for (const Caption* caption : {&kOpaque, &kCyrillic, &kOutlinesOfCff, &kThin}) {
            const Picture theirs = byDrawtext(format, *caption, {6, 8});
            ASSERT_FALSE(theirs.empty()) << format;
            const Picture ours = byRenderer(format, *caption, {6, 8});
            EXPECT_EQ(differences(ours, theirs), 0) << format << " " << caption->utf8;
            EXPECT_GT(differences(ours, empty), 300) << format << " " << caption->utf8;
        }
    }
}

TEST(BesideDrawtext, TextIsCutAtTheEdgesOfThePictureAlike) {
    for (const AVPixelFormat format :
         {AV_PIX_FMT_YUV420P, AV_PIX_FMT_NV12, AV_PIX_FMT_RGBA, AV_PIX_FMT_P010LE}) {
        const Picture empty = filtered(format, "");
        for (const Point position : {Point{300, 40}, Point{-30, -10}, Point{-100, 50}}) {
            const Picture theirs = byDrawtext(format, kOpaque, position);
            const Picture ours = byRenderer(format, kOpaque, position);
            EXPECT_EQ(differences(ours, theirs), 0) << format << " " << position;
            EXPECT_GT(differences(ours, empty), 50) << format << " " << position;
        }
    }
}

// The renderer's glyphs, each drawn by itself at the place where kerning by character codes puts it, are
// drawtext's.
TEST(BesideDrawtext, DrawtextAsksForKerningByCharacterCodes) {
    const Caption pairs{kSans, 40, "AVAToVA, yo", U"AVAToVA, yo", Color(255, 255, 255)};
    const Picture theirs = byDrawtext(AV_PIX_FMT_GRAY8, pairs, {});
    EXPECT_GT(differences(byRenderer(AV_PIX_FMT_GRAY8, pairs, {}), theirs), 300);

    FT_Library library = nullptr;
    ASSERT_EQ(FT_Init_FreeType(&library), 0);
    const std::unique_ptr<FT_LibraryRec_, Deleter> owner(library);
    FT_Face face = nullptr;
    ASSERT_EQ(FT_New_Face(library, pairs.font, 0, &face), 0);
    ASSERT_EQ(FT_Set_Pixel_Sizes(face, 0, static_cast<FT_UInt>(pairs.size)), 0);
    Picture picture = filtered(AV_PIX_FMT_GRAY8, "");
    FreeTypeTextRenderer renderer(pairs.font, pairs.size);
    renderer.setFontColor(pairs.color);
    renderer.setBackgroundColor(Color(0, 0, 0, 0));
    FT_Pos pen = 0;
    char32_t previous = 0;
    for (const char32_t code : pairs.codes) {
        FT_Vector kerning{};
        if (previous != 0) {
            FT_Get_Kerning(face, previous, code, FT_KERNING_DEFAULT, &kerning);
        }
        pen += kerning.x >> 6;
        renderer.setPadding(static_cast<int>(pen), -baseLineDifference(pairs), 100, 100);
        renderer.renderOn(picture, std::string(1, static_cast<char>(code)), {}, {});
        ASSERT_EQ(FT_Load_Char(face, code, FT_LOAD_DEFAULT), 0);
        pen += face->glyph->advance.x >> 6;
        previous = code;
    }
    FT_Done_Face(face);
    EXPECT_EQ(differences(picture, theirs), 0);
}

}  // namespace
}  // namespace vidorra::test
