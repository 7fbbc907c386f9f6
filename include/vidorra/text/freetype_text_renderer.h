#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "vidorra/core/color.h"
#include "vidorra/core/export.h"
#include "vidorra/core/ffmpeg_fwd.h"
#include "vidorra/core/geometry.h"
#include "vidorra/picture/picture.h"
#include "vidorra/picture/picture_allocator.h"

namespace vidorra {

/// Draws UTF-8 text on pictures, or makes pictures of text, with one font at one size.
///
///     FreeTypeTextRenderer renderer("/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf", 48);
///     renderer.setFontColor(Color(255, 255, 255));
///     renderer.setBackgroundColor(Color(0, 0, 0, 0));
///     Picture title = renderer.render("Hello", AV_PIX_FMT_NV12, AVCOL_RANGE_MPEG, Size{}, Rect{});
///
/// The layout is plain: lines end at line feeds and nowhere else, begin at the left, and are neither wrapped
/// nor shaped. Each code point is one glyph, so combining marks are drawn as glyphs of their own. A tab
/// advances by four blanks, not to a tab stop. All other control characters are dropped. A character that
/// the font lacks is drawn as the font's symbol for missing glyphs.
///
/// A text is laid out only if it differs from that of the last call; drawing the same text again allocates
/// nothing and does not call FreeType. Glyphs are kept for later texts, up to setGlyphCacheSize(). All
/// characters that the font lacks share one glyph.
///
/// Owns: the font, with its file in memory, the glyphs and the last layout, but not the allocator. Threads:
/// one at a time, even for getTextSize(); objects share nothing.
///
/// Errors of all functions with a text: std::range_error with "wstring_convert::from_bytes" for invalid
/// UTF-8; this is thrown once, since the text then counts as laid out and empty. A sequence that is cut off
/// by the end of the text is dropped instead. std::bad_alloc, after which the call can be repeated.
class VIDORRA_API FreeTypeTextRenderer {
public:
    /// A cached glyph.
    struct Glyph;
    /// FreeType and an open font.
    struct Face;
    using FacePtr = std::unique_ptr<Face, void (*)(Face*)>;

    /// Opens a font as loadFace() does. Also throws std::bad_alloc.
    FreeTypeTextRenderer(const std::string& fontFile, int size);
    FreeTypeTextRenderer(const FreeTypeTextRenderer&) = delete;
    FreeTypeTextRenderer& operator=(const FreeTypeTextRenderer&) = delete;
    ~FreeTypeTextRenderer();

    /// Sets the colour of the glyphs; its alpha is their opacity. 255, 225, 255 by default. Keeps the
    /// layout.
    void setFontColor(Color color);

    /// Sets the colour that overwrites the text's area before the glyphs are drawn; opaque black by default.
    /// With an alpha of 0 the area stays unchanged, and render() makes pictures with an alpha plane.
    void setBackgroundColor(Color color);

    /// Sets the pixels around the text, 0 by default. The next text is laid out again.
    void setPadding(int left, int top, int right, int bottom);

    /// Sets the pixels between two lines, 0 by default. The next text is laid out again.
    void setLineSpacing(int pixels);

    /// Sets where render() gets its pictures; null means the default allocator. The allocator must outlive
    /// this object and the pictures.
    void setPictureAllocator(PictureAllocator* allocator);

    /// Sets how many bytes of memory the glyphs may take, 16 MiB by default. When there is no room for
    /// another glyph, glyphs that are not in the last text are released. The glyphs of one text are kept
    /// even if they take more.
    void setGlyphCacheSize(std::size_t bytes);

    /// Opens a font file of any kind that FreeType reads, at `size` pixels to the em. The file is read into
    /// memory, so it may change or disappear afterwards.
    ///
    /// Throws std::bad_alloc, and std::runtime_error with
    /// - "Could not initialize FreeType library" when there is no memory for it;
    /// - "Could not load font FILE" for a file that is missing, not regular, larger than 1 GiB, or not a
    /// font;
    /// - "Could not select unicode charmap for font FILE";
    /// - "Could not set fontsize for font FILE" for a size below 1, or one that a bitmap font lacks.
    [[nodiscard]] static FacePtr loadFace(const std::string& fontFile, int size);

    /// Renders the glyph of a code point unless it is cached. A glyph that the font cannot load is cached
    /// with the picture of the question mark; one that FreeType cannot copy is left out of texts. Throws
    /// std::bad_alloc; nothing is cached then.
    void loadGlyph(char32_t code);

    /// Lays out a text unless it is laid out already.
    void prepare(const std::string& text);

    /// The size of a text with its padding, each side rounded down to whole chroma samples of the format. A
    /// text's own width and height are even; both are 0 for an empty text.
    [[nodiscard]] Size getTextSize(const std::string& text, AVPixelFormat format);

    /// The size of the part of a text of `textSize` that `visibleArea` selects, in the text's own
    /// coordinates; an area of all zeros selects everything.
    [[nodiscard]] static Size getVisibleAreaSize(const Size& textSize, const Rect& visibleArea);

    /// A new picture of the part of the text that `visibleArea` selects, as large as that part. Its memory
    /// is at least that of a picture of `minimumSize`. If that is more than the part needs, an odd part
    /// loses its last column or row in formats with subsampled chroma.
    ///
    /// With a transparent background NV12 and NVA12 both mean NVA12, and YUV420P and YUVA420P both mean
    /// YUVA420P. With another background they mean the format without alpha. Any other format is used
    /// unchanged. With a transparent background a picture with alpha has the font's colour everywhere.
    ///
    /// Empty when there is nothing to show. Throws std::runtime_error for a format that fillRectangle() does
    /// not draw on, and what the allocator throws.
    [[nodiscard]] Picture render(const std::string& text, AVPixelFormat format, AVColorRange range,
                                 Size minimumSize, Rect visibleArea);

    /// Draws the part of the text that `visibleArea` selects. The area of that size at `position` is filled
    /// with the background and clips the glyphs.
    ///
    /// Note that the glyphs begin at `position` within that area, and therefore at twice `position` in the
    /// picture. For text at a position other than 0, 0, render() it and compose() the result there.
    ///
    /// Does nothing when there is nothing to show; otherwise the picture is marked as modified. Throws
    /// std::runtime_error when the picture is not editable, and for a format that fillRectangle() does not
    /// draw on.
    void renderOn(Picture& picture, const std::string& text, Point position, Rect visibleArea);

private:
    struct Padding {
        int left = 0;
        int top = 0;
        int right = 0;
        int bottom = 0;
    };
    // A glyph of the layout, with the position of its bitmap relative to the corner of the text.
    struct Placement {
        char32_t code;
        int x;
        int y;
        const Glyph& glyph;
    };

    void layOut(const std::u32string& codes);
    // Null if the glyph cannot be cached.
    Glyph* keptGlyph(char32_t code);
    // Makes room for another glyph of `bytes`, which may be 0.
    void makeRoom(std::size_t bytes);

    // Destroyed last, since the glyphs need FreeType until then.
    FacePtr mFace;
    int mTabWidth = 0;
    int mLineSpacing = 0;
    Color mFontColor{255, 225, 255};
    Color mBackgroundColor{0, 0, 0};
    Padding mPadding;
    std::string mText;
    // Without padding; -1 while there is no layout.
    int mTextWidth = -1;
    int mTextHeight = -1;
    std::map<char32_t, Glyph> mGlyphs;
    std::vector<Placement> mPlacements;
    PictureAllocator* mAllocator;
    std::size_t mGlyphCacheSize = std::size_t{16} << 20;
    std::size_t mGlyphBytes = 0;
    // The bytes of glyphs that are not in the layout.
    std::size_t mUnusedBytes = 0;
    // The number of the layout.
    std::uint64_t mLayout = 1;
};

}  // namespace vidorra
