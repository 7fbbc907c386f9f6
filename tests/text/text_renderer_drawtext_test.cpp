// Compares text with that of FFmpeg's drawtext filter, in its own picture.
//
// Where the two draw alike, their bytes are the same. By design they differ in these respects:
//
//   what                    drawtext                               this library
//   base line of line 1     below the text's highest glyph         below the font's ascender
//   distance of lines       from the highest to the lowest glyph   by the font's size and descender
//   kerning                 asks FreeType by character codes       asks by glyph indices
//   tabs                    advances by tabsize blanks             by four blanks
//   characters              expansions such as %{pts}              as they are
//
// Padding compensates for the first here, and expansions are disabled. Later versions of drawtext place
// glyphs with HarfBuzz; with these the drawing is compared glyph by glyph.
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
#include <libavfilter/avfilter.h>
#include <libavutil/frame.h>
#include <libavutil/opt.h>
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

// From a filter that makes a picture of one colour, through a drawtext for each of the arguments; empty when
// one of them does not know the format.
Picture filtered(AVPixelFormat format, const std::vector<std::string>& drawtexts) {
    std::vector<std::pair<std::string, std::string>> filters = {
        {"color", fmt::format("s={}x{}:c=0x305070", kSize.width, kSize.height)}};
    for (const std::string& arguments : drawtexts) {
        filters.emplace_back("drawtext", arguments);
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

// A face of FreeType at a size.
class Face {
public:
    Face(const char* font, int size) {
        EXPECT_EQ(FT_Init_FreeType(&mLibrary), 0);
        mOwner.reset(mLibrary);
        EXPECT_EQ(FT_New_Face(mLibrary, font, 0, &mFace), 0);
        EXPECT_EQ(FT_Set_Pixel_Sizes(mFace, 0, static_cast<FT_UInt>(size)), 0);
    }

    // The height above the base line of the glyph's pixels.
    FT_Pos top(char32_t code) { return topOf(code, FT_LOAD_RENDER, FT_GLYPH_BBOX_PIXELS); }

    // The same of its outline, in pixels.
    double outlineTop(char32_t code) {
        return static_cast<double>(topOf(code, FT_LOAD_DEFAULT, FT_GLYPH_BBOX_SUBPIXELS)) / 64.0;
    }

    FT_Pos highest(const std::u32string& codes) {
        FT_Pos result = -1000;
        for (const char32_t code : codes) {
            result = std::max(result, top(code));
        }
        return result;
    }

    FT_Pos advance(char32_t code) {
        EXPECT_EQ(FT_Load_Char(mFace, code, FT_LOAD_DEFAULT), 0);
        return mFace->glyph->advance.x >> 6;
    }

    FT_Pos kerning(FT_UInt left, FT_UInt right) {
        FT_Vector kerning{};
        FT_Get_Kerning(mFace, left, right, FT_KERNING_DEFAULT, &kerning);
        return kerning.x >> 6;
    }

    FT_Pos ascender() const { return mFace->size->metrics.ascender / 64; }

private:
    FT_Pos topOf(char32_t code, FT_Int32 flags, FT_UInt mode) {
        EXPECT_EQ(FT_Load_Char(mFace, code, flags), 0);
        FT_Glyph glyph = nullptr;
        EXPECT_EQ(FT_Get_Glyph(mFace->glyph, &glyph), 0);
        FT_BBox box;
        FT_Glyph_Get_CBox(glyph, mode, &box);
        FT_Done_Glyph(glyph);
        return box.yMax;
    }

    FT_Library mLibrary = nullptr;
    FT_Face mFace = nullptr;
    std::unique_ptr<FT_LibraryRec_, Deleter> mOwner;
};

// How much lower than drawtext's the base line of the renderer is.
int baseLineDifference(const Caption& caption) {
    Face face(caption.font, caption.size);
    return static_cast<int>(face.ascender() - face.highest(caption.codes));
}

// Later versions place glyphs with HarfBuzz, in fractions of pixels.
bool drawtextPlacesByFractions() {
    const AVFilter* filter = avfilter_get_by_name("drawtext");
    const AVClass* options = filter->priv_class;
    return av_opt_find(&options, "y_align", nullptr, 0, AV_OPT_SEARCH_FAKE_OBJ) != nullptr;
}

std::string drawtextArguments(const Caption& caption, int x, double y, const std::string& utf8) {
    return fmt::format(
        "fontfile={}:fontsize={}:text_shaping=0:expansion=none:x={}:y={}:fontcolor=0x{:02x}{:02x}{:02x}{:02x}"
        ":"
        "text='{}'",
        caption.font, caption.size, x, y, caption.color.red, caption.color.green, caption.color.blue,
        caption.color.alpha, utf8);
}

// The caption's characters in bytes, one by one.
std::vector<std::string> charactersOf(const Caption& caption) {
    std::vector<std::string> result;
    for (const char byte : caption.utf8) {
        if ((static_cast<unsigned char>(byte) & 0xC0U) != 0x80U) {
            result.emplace_back();
        }
        result.back() += byte;
    }
    return result;
}

// Where drawtext places by fractions, each glyph is drawn by a filter of its own, with its base line and its
// origin at whole pixels.
Picture byDrawtext(AVPixelFormat format, const Caption& caption, Point position) {
    if (!drawtextPlacesByFractions()) {
        return filtered(format, {drawtextArguments(caption, position.x, position.y, caption.utf8)});
    }
    Face face(caption.font, caption.size);
    const FT_Pos baseLine = position.y + face.highest(caption.codes);
    const std::vector<std::string> characters = charactersOf(caption);
    std::vector<std::string> filters;
    FT_Pos pen = position.x;
    char32_t previous = 0;
    for (std::size_t i = 0; i < characters.size(); ++i) {
        const char32_t code = caption.codes[i];
        pen += previous != 0 ? face.kerning(previous, code) : 0;
        if (code != U' ') {
            filters.push_back(drawtextArguments(caption, static_cast<int>(pen),
                                                static_cast<double>(baseLine) - face.outlineTop(code),
                                                characters[i]));
        }
        pen += face.advance(code);
        previous = code;
    }
    return filtered(format, filters);
}

Picture byRenderer(AVPixelFormat format, const Caption& caption, Point position) {
    Picture picture = filtered(format, {});
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
        const Picture empty = filtered(format, {});
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
        const Picture empty = filtered(format, {});
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

    Face face(pairs.font, pairs.size);
    Picture picture = filtered(AV_PIX_FMT_GRAY8, {});
    FreeTypeTextRenderer renderer(pairs.font, pairs.size);
    renderer.setFontColor(pairs.color);
    renderer.setBackgroundColor(Color(0, 0, 0, 0));
    FT_Pos pen = 0;
    char32_t previous = 0;
    for (const char32_t code : pairs.codes) {
        pen += previous != 0 ? face.kerning(previous, code) : 0;
        renderer.setPadding(static_cast<int>(pen), -baseLineDifference(pairs), 100, 100);
        renderer.renderOn(picture, std::string(1, static_cast<char>(code)), {}, {});
        pen += face.advance(code);
        previous = code;
    }
    EXPECT_EQ(differences(picture, theirs), 0);
}

}  // namespace
}  // namespace vidorra::test
