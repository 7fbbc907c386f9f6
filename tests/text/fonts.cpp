#include "text/fonts.h"

#include <cstdio>

#include "support/media.h"

namespace vidorra::test {
namespace {

std::string hexRow(const std::string& row) {
    std::string result;
    for (std::size_t x = 0; x < row.size(); x += 8) {
        unsigned byte = 0;
        for (std::size_t i = x; i < x + 8; ++i) {
            byte = byte * 2 + (i < row.size() && row[i] == '#' ? 1 : 0);
        }
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02X", byte);
        result += digits;
    }
    return result;
}

}  // namespace

std::string bdfFile(const std::string& name, const PlainFont& font, const std::vector<PlainGlyph>& glyphs) {
    const auto number = [](int value) { return std::to_string(value); };
    std::string text = "STARTFONT 2.1\nFONT -test-Plain-Medium-R-Normal--" + number(font.size) +
                       "-80-75-75-P-50-" + font.registry + "-" + font.encoding + "\nSIZE " +
                       number(font.size) + " 75 75\nFONTBOUNDINGBOX 8 8 -1 -" + number(font.descent) +
                       "\nSTARTPROPERTIES 5\nPIXEL_SIZE " + number(font.size) + "\nFONT_ASCENT " +
                       number(font.ascent) + "\nFONT_DESCENT " + number(font.descent) +
                       "\nCHARSET_REGISTRY \"" + font.registry + "\"\nCHARSET_ENCODING \"" + font.encoding +
                       "\"\nENDPROPERTIES\nCHARS " + number(static_cast<int>(glyphs.size())) + "\n";
    for (const PlainGlyph& glyph : glyphs) {
        const std::size_t width = glyph.rows.empty() ? 0 : glyph.rows[0].size();
        text += "STARTCHAR c" + std::to_string(glyph.code) + "\nENCODING " + std::to_string(glyph.code) +
                "\nSWIDTH 500 0\nDWIDTH " + number(glyph.advance) + " 0\nBBX " + std::to_string(width) + " " +
                std::to_string(glyph.rows.size()) + " " + number(glyph.left) + " " + number(glyph.bottom) +
                "\nBITMAP\n";
        for (const std::string& row : glyph.rows) {
            text += hexRow(row) + "\n";
        }
        text += "ENDCHAR\n";
    }
    return temporaryFile(name, text + "ENDFONT\n").string();
}

std::string plainFont(const PlainFont& font) {
    return bdfFile("plain.bdf", font,
                   {
                       {' ', 3, 0, 0, {"."}},
                       {'?', 5, 0, 0, {"##", "#."}},
                       {'a', 5, 1, 0, {".#.", "#.#", "###", "#.#"}},
                       {'b', 5, 0, -2, {"#..#", "####"}},
                       {'c', 2, -1, 1, {"###"}},
                   });
}

}  // namespace vidorra::test
