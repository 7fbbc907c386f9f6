#pragma once

#include <algorithm>
#include <array>
#include <cstdint>

namespace vidorra {

/// Limited range begins at 16 for luma and chroma alike; this is how many steps it has up to 235 and 240.
inline constexpr int kLimitedLumaSteps = 219;
inline constexpr int kLimitedChromaSteps = 224;

/// (v - 16) * 255 / steps for all bytes v, rounded to the nearest integer, halves up, and clamped to a byte.
constexpr std::array<std::uint8_t, 256> makeRangeTable(int steps) {
    std::array<std::uint8_t, 256> table{};
    for (int v = 0; v < 256; ++v) {
        // Below 16 the sum can be negative, where a division would round up; the clamp takes that away.
        table[static_cast<std::size_t>(v)] =
            static_cast<std::uint8_t>(std::clamp((2 * (v - 16) * 255 + steps) / (2 * steps), 0, 255));
    }
    return table;
}

/// For luma.
inline constexpr std::array<std::uint8_t, 256> kRangeLimitedToFullTable235 =
    makeRangeTable(kLimitedLumaSteps);

/// For chroma. Deliberate: anchored at 16 as luma is, and not scaled about 128, which stays 128 all the same.
inline constexpr std::array<std::uint8_t, 256> kRangeLimitedToFullTable240 =
    makeRangeTable(kLimitedChromaSteps);

}  // namespace vidorra
