#pragma once

#include <cstdint>

#include "vidorra/core/color.h"

namespace vidorra {

/// The two chroma bytes of a colour.
struct Chroma {
    std::uint8_t u = 0;
    std::uint8_t v = 0;
};

/// The chroma of a colour by BT.601 in full range, for the chroma keyers; alpha is ignored.
Chroma toUV(const Color& color);

}  // namespace vidorra
