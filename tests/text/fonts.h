#pragma once

#include <unistd.h>

#include <string>
#include <vector>

namespace vidorra::test {

/// The first of two paths if a file is there, otherwise the second.
inline const char* firstFile(const char* first, const char* second) {
    return access(first, R_OK) == 0 ? first : second;
}

/// Fonts of Debian's packages, some of which have moved between releases: TrueType with kerning, of equal
/// widths, and with OpenType CFF outlines; one of bitmaps in a few sizes, of 16 pixels among them.
inline constexpr const char* kSans = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";
inline constexpr const char* kMono = "/usr/share/fonts/truetype/dejavu/DejaVuSansMono.ttf";
inline const char* const kCff = firstFile("/usr/share/fonts/truetype/inconsolata/Inconsolata.otf",
                                          "/usr/share/fonts/opentype/inconsolata/Inconsolata-Regular.otf");
inline const char* const kBitmap = firstFile("/usr/share/fonts/opentype/terminus/terminus-normal.otb",
                                             "/usr/share/fonts/opentype/terminus/ter-u16n_unicode.otb");

/// A glyph in rows of '#' and '.', the lowest of them `bottom` pixels above the base line.
struct PlainGlyph {
    unsigned code;
    int advance;
    int left;
    int bottom;
    std::vector<std::string> rows;
};

/// The properties of a font file apart from its glyphs.
struct PlainFont {
    int size = 8;
    int ascent = 6;
    int descent = 2;
    const char* registry = "ISO10646";
    const char* encoding = "1";
};

/// A file of a bitmap font in the format BDF.
std::string bdfFile(const std::string& name, const PlainFont& font, const std::vector<PlainGlyph>& glyphs);

/// The font that most tests draw with: 8 pixels, base line below row 6, lines 10 pixels apart; a blank of 3,
/// a, b and ? as wide as 5, c as wide as 2, whose pixels begin left of the pen.
std::string plainFont(const PlainFont& font = {});

}  // namespace vidorra::test
