#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>

#include "vidorra/core/export.h"

namespace vidorra {

/// A colour of four bytes in this order; alpha 255 is opaque. Opaque black by default.
///
///     const Color white(255, 255, 255);
///     const Color veil("black@0.5");
struct VIDORRA_API Color {
    std::uint8_t red = 0;
    std::uint8_t green = 0;
    std::uint8_t blue = 0;
    std::uint8_t alpha = 255;

    constexpr Color() noexcept = default;
    constexpr Color(std::uint8_t r, std::uint8_t g, std::uint8_t b, std::uint8_t a = 255) noexcept
        : red(r), green(g), blue(b), alpha(a) {}

    /// Any text that FFmpeg knows as a colour: "red", "#ff8000", "0xff8000@0.5". Throws std::runtime_error
    /// for any other text.
    explicit Color(const std::string& text);

    friend constexpr bool operator==(Color a, Color b) noexcept {
        return a.red == b.red && a.green == b.green && a.blue == b.blue && a.alpha == b.alpha;
    }
    friend constexpr bool operator!=(Color a, Color b) noexcept { return !(a == b); }
};

/// Reads one word and converts it as the constructor does. An exhausted stream gives an empty word, which
/// throws.
VIDORRA_API std::istream& operator>>(std::istream& stream, Color& color);

/// Writes "#", "0" and the four bytes as raw characters, which operator>> cannot read. The stream's fill
/// character is "0" afterwards.
VIDORRA_API std::ostream& operator<<(std::ostream& stream, const Color& color);

}  // namespace vidorra
