#include "vidorra/text/freetype_text_renderer.h"

#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_GLYPH_H

#include <algorithm>
#include <cctype>
#include <codecvt>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <locale>
#include <new>
#include <stdexcept>
#include <utility>

#include "picture/chroma_grid.h"
#include "picture/picture_view.h"
#include "process/drawing/draw_context.h"
#include "process/drawing/ff_draw.h"
#include "text/freetype_face.h"
#include "vidorra/core/enum_text.h"
#include "vidorra/picture/default_picture_allocator.h"
#include "vidorra/process/drawing.h"

namespace vidorra {

struct FreeTypeTextRenderer::Glyph {
    // kMissing for all characters that the font lacks.
    char32_t code;
    // 0 for a character that the font lacks.
    unsigned index;
    FT_Glyph image;
    // Its pixels belong to `image`.
    FT_Bitmap bitmap;
    FT_BBox box;
    // In pixels.
    int advanceX;
    int advanceY;
    int left;
    int top;
    // The memory that the glyph takes, with everything that belongs to it.
    std::size_t bytes;
    // The number of the last layout that shows the glyph; 0 for none.
    std::uint64_t layout;
};

namespace {

// FreeType's units are 64ths of a pixel.
constexpr int kUnits = 64;
constexpr char32_t kReplacement = U'?';
// The key for all characters that the font lacks; not a character itself.
constexpr char32_t kMissing = 0xffffffff;

int madeEven(std::int64_t length) {
    return static_cast<int>(length > 0 ? length + length % 2 : length);
}

std::u32string decoded(const std::string& text) {
    // Deprecated without a replacement. Deliberate: callers rely on the text of its exception.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    std::wstring_convert<std::codecvt_utf8<char32_t, 0x10ffff>, char32_t> convert;
    return convert.from_bytes(text);
#pragma GCC diagnostic pop
}

std::size_t bytesOf(const FT_Bitmap& bitmap) {
    // The last term is for the links of the map's node and the heap's overhead for three blocks.
    constexpr std::size_t kOverhead = sizeof(std::pair<const char32_t, FreeTypeTextRenderer::Glyph>) +
                                      sizeof(FT_BitmapGlyphRec) + 10 * sizeof(void*);
    return kOverhead + std::size_t{bitmap.rows} * static_cast<unsigned>(std::abs(bitmap.pitch));
}

void draw(const PictureView& view, const FFDrawContext& context, const FFDrawColor& color,
          const FT_Bitmap& bitmap, std::int64_t x, std::int64_t y) {
    // A glyph farther away would not show either, and its position does not fit the call.
    if (x >= view.size.width || y >= view.size.height || x + bitmap.width <= 0 || y + bitmap.rows <= 0) {
        return;
    }
    const bool oneBit = bitmap.pixel_mode == FT_PIXEL_MODE_MONO;
    // Deliberate: all other bitmaps are treated as bytes, but rows with 2 or 4 bits a pixel are shorter.
    const int width =
        static_cast<int>(oneBit ? bitmap.width : std::min(bitmap.width, static_cast<unsigned>(bitmap.pitch)));
    ffmpeg_ext::ff_blend_mask(&context, &color, view.data.data(), view.linesize.data(), view.size.width,
                              view.size.height, bitmap.buffer, bitmap.pitch, width,
                              static_cast<int>(bitmap.rows), oneBit ? 0 : 3, 0, static_cast<int>(x),
                              static_cast<int>(y));
}

// A transparent background needs an alpha plane, any other does not.
AVPixelFormat workingFormat(AVPixelFormat format, bool transparent) {
    switch (static_cast<int>(format)) {
    case AV_PIX_FMT_NV12:
    case NVA12:
        return transparent ? NVA12 : AV_PIX_FMT_NV12;
    case AV_PIX_FMT_YUV420P:
    case AV_PIX_FMT_YUVA420P:
        return transparent ? AV_PIX_FMT_YUVA420P : AV_PIX_FMT_YUV420P;
    default:
        return format;
    }
}

}  // namespace

FreeTypeTextRenderer::FreeTypeTextRenderer(const std::string& fontFile, int size)
    : mFace(loadFace(fontFile, size)), mAllocator(getDefaultPictureAllocator()) {
    if (const Glyph* blank = keptGlyph(U' ')) {
        mTabWidth = blank->advanceX * 4;
    }
}

FreeTypeTextRenderer::~FreeTypeTextRenderer() {
    for (auto& [code, glyph] : mGlyphs) {
        FT_Done_Glyph(glyph.image);
    }
}

void FreeTypeTextRenderer::setFontColor(Color color) {
    mFontColor = color;
}

void FreeTypeTextRenderer::setBackgroundColor(Color color) {
    mBackgroundColor = color;
}

void FreeTypeTextRenderer::setPadding(int left, int top, int right, int bottom) {
    mPadding = {left, top, right, bottom};
    mTextWidth = -1;
    mTextHeight = -1;
}

void FreeTypeTextRenderer::setLineSpacing(int pixels) {
    mLineSpacing = pixels;
    mTextWidth = -1;
    mTextHeight = -1;
}

void FreeTypeTextRenderer::setGlyphCacheSize(std::size_t bytes) {
    mGlyphCacheSize = bytes;
    makeRoom(0);
}

void FreeTypeTextRenderer::setPictureAllocator(PictureAllocator* allocator) {
    mAllocator = allocator != nullptr ? allocator : getDefaultPictureAllocator();
}

void FreeTypeTextRenderer::loadGlyph(char32_t code) {
    static_cast<void>(keptGlyph(code));
}

FreeTypeTextRenderer::Glyph* FreeTypeTextRenderer::keptGlyph(char32_t code) {
    auto kept = mGlyphs.find(code);
    if (kept != mGlyphs.end()) {
        return &kept->second;
    }
    FT_Face face = mFace->face;
    Glyph glyph{};
    // Deliberate: the index of the requested character, even if another one is shown.
    glyph.index = FT_Get_Char_Index(face, code);
    glyph.code = glyph.index != 0 ? code : kMissing;
    kept = mGlyphs.find(glyph.code);
    if (kept != mGlyphs.end()) {
        return &kept->second;
    }
    mFace->outOfMemory = false;
    if (FT_Load_Char(face, code, FT_LOAD_RENDER) != 0 && !mFace->outOfMemory) {
        // Deliberate: if this fails too, the content of the slot decides.
        FT_Load_Char(face, kReplacement, FT_LOAD_RENDER);
    }
    FT_Glyph image = nullptr;
    const FT_Error error = FT_Get_Glyph(face->glyph, &image);
    std::unique_ptr<FT_GlyphRec, void (*)(FT_Glyph)> owner(image, FT_Done_Glyph);
    if (mFace->outOfMemory) {
        throw std::bad_alloc();
    }
    if (error != 0) {
        return nullptr;
    }
    glyph.image = image;
    // The slot's own bitmap may share its pixels with the font. A glyph that could not be rendered has no
    // bitmap.
    if (image->format == FT_GLYPH_FORMAT_BITMAP) {
        glyph.bitmap = reinterpret_cast<FT_BitmapGlyph>(image)->bitmap;
    }
    FT_Glyph_Get_CBox(image, FT_GLYPH_BBOX_TRUNCATE, &glyph.box);
    glyph.advanceX = static_cast<int>(face->glyph->advance.x / kUnits);
    glyph.advanceY = static_cast<int>(face->glyph->advance.y / kUnits);
    glyph.left = face->glyph->bitmap_left;
    glyph.top = face->glyph->bitmap_top;
    glyph.bytes = bytesOf(glyph.bitmap);
    makeRoom(glyph.bytes);
    kept = mGlyphs.emplace(glyph.code, glyph).first;
    static_cast<void>(owner.release());
    mGlyphBytes += glyph.bytes;
    mUnusedBytes += glyph.bytes;
    return &kept->second;
}

void FreeTypeTextRenderer::makeRoom(std::size_t bytes) {
    if (mUnusedBytes == 0 || mGlyphBytes + bytes <= mGlyphCacheSize) {
        return;
    }
    for (auto glyph = mGlyphs.begin(); glyph != mGlyphs.end();) {
        if (glyph->second.layout == mLayout) {
            ++glyph;
            continue;
        }
        FT_Done_Glyph(glyph->second.image);
        glyph = mGlyphs.erase(glyph);
    }
    mGlyphBytes -= mUnusedBytes;
    mUnusedBytes = 0;
}

void FreeTypeTextRenderer::prepare(const std::string& text) {
    if (text == mText && mTextWidth >= 0 && mTextHeight >= 0) {
        return;
    }
    // The last text's memory is released, since that text may have been a very long one.
    std::string(text).swap(mText);
    std::vector<Placement>().swap(mPlacements);
    // There is no layout until it is complete, since memory may run out.
    mTextWidth = -1;
    mTextHeight = -1;
    ++mLayout;
    mUnusedBytes = mGlyphBytes;
    try {
        layOut(decoded(text));
    } catch (const std::range_error&) {
        // Deliberate: from now on a text that cannot be decoded counts as empty.
        mTextWidth = 0;
        mTextHeight = 0;
        throw;
    }
    makeRoom(0);
}

void FreeTypeTextRenderer::layOut(const std::u32string& codes) {
    if (codes.empty()) {
        mTextWidth = 0;
        mTextHeight = 0;
        return;
    }
    mPlacements.reserve(codes.size());
    FT_Face face = mFace->face;
    const FT_Size_Metrics& metrics = face->size->metrics;
    const auto ascender = static_cast<int>(metrics.ascender / kUnits);
    const std::int64_t lineHeight = metrics.y_ppem + std::abs(metrics.descender / kUnits);

    // 64 bits, since texts and spacings may have any length.
    std::int64_t width = 0;
    std::int64_t height = 0;
    std::int64_t pen = 0;
    unsigned previous = 0;
    for (const char32_t code : codes) {
        if (code < 128 && std::isprint(static_cast<int>(code)) == 0) {
            if (code == U'\t') {
                pen += mTabWidth;
                previous = 0;
            } else if (code == U'\n') {
                width = std::max(width, pen);
                height += lineHeight + mLineSpacing;
                pen = 0;
                previous = 0;
            }
            continue;
        }
        Glyph* glyph = keptGlyph(code);
        if (glyph == nullptr) {
            continue;
        }
        if (glyph->layout != mLayout) {
            glyph->layout = mLayout;
            mUnusedBytes -= glyph->bytes;
        }
        if (previous != 0 && glyph->index != 0 && FT_HAS_KERNING(face)) {
            FT_Vector delta{};
            FT_Get_Kerning(face, previous, glyph->index, FT_KERNING_DEFAULT, &delta);
            // Deliberate: rounded down, unlike the advances.
            pen += delta.x >> 6;
        }
        mPlacements.push_back({code, static_cast<int>(pen + glyph->left),
                               static_cast<int>(height - glyph->top + ascender), *glyph});
        pen += glyph->advanceX;
        previous = glyph->index;
    }
    mTextWidth = madeEven(std::max(width, pen));
    mTextHeight = madeEven(height + lineHeight);
}

Size FreeTypeTextRenderer::getTextSize(const std::string& text, AVPixelFormat format) {
    prepare(text);
    const auto width = static_cast<int>(std::int64_t{mTextWidth} + mPadding.left + mPadding.right);
    const auto height = static_cast<int>(std::int64_t{mTextHeight} + mPadding.top + mPadding.bottom);
    return ChromaGrid(format).down(Size{width, height});
}

Size FreeTypeTextRenderer::getVisibleAreaSize(const Size& textSize, const Rect& visibleArea) {
    if (visibleArea == Rect{}) {
        return textSize;
    }
    const Rect common = Rect{0, 0, textSize.width, textSize.height}.intersected(visibleArea);
    return {common.width, common.height};
}

Picture FreeTypeTextRenderer::render(const std::string& text, AVPixelFormat format, AVColorRange range,
                                     Size minimumSize, Rect visibleArea) {
    const bool transparent = mBackgroundColor.alpha == 0;
    const AVPixelFormat working = workingFormat(format, transparent);
    const Size visible = getVisibleAreaSize(getTextSize(text, working), visibleArea);
    if (visible.width == 0 || visible.height == 0) {
        return {};
    }
    Picture result;
    {
        const Picture canvas = mAllocator->allocate(
            {std::max(visible.width, minimumSize.width), std::max(visible.height, minimumSize.height)},
            working, range);
        result = canvas.crop({0, 0, visible.width, visible.height});
    }
    if (transparent && result.hasAlpha()) {
        fillRectangle(result, Color(mFontColor.red, mFontColor.green, mFontColor.blue, 0));
    }
    renderOn(result, text, {0, 0}, visibleArea);
    return result;
}

void FreeTypeTextRenderer::renderOn(Picture& picture, const std::string& text, Point position,
                                    Rect visibleArea) {
    if (!picture.editable()) {
        throw std::runtime_error("renderOn: Picture must be editable");
    }
    const Size visible = getVisibleAreaSize(getTextSize(text, picture.pixelFormat()), visibleArea);
    if (visible.width == 0 || visible.height == 0) {
        return;
    }
    const Rect area{position.x, position.y, visible.width, visible.height};
    if (mBackgroundColor.alpha != 0) {
        fillRectangle(picture, area, mBackgroundColor);
    }
    const FFDrawContext context =
        initDrawContext(picture.pixelFormat(), picture.colorRange() == AVCOL_RANGE_JPEG);
    const FFDrawColor color = initDrawColor(context, mFontColor);
    // Not crop(): markModified() below would throw because of its reference, and it would need memory.
    const PictureView view = viewOf(picture, area);
    // Deliberate: the position is added again, although the view begins there.
    const std::int64_t offsetX = std::int64_t{mPadding.left} - visibleArea.x + position.x;
    const std::int64_t offsetY = std::int64_t{mPadding.top} - visibleArea.y + position.y;
    for (const Placement& placement : mPlacements) {
        draw(view, context, color, placement.glyph.bitmap, offsetX + placement.x, offsetY + placement.y);
    }
    picture.markModified();
}

}  // namespace vidorra
