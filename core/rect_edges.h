#pragma once

#include <cstdint>

#include "vidorra/core/geometry.h"

namespace vidorra {

// The edges of a rectangle, in 64 bits because they can exceed the limits of 32 bits.
inline std::int64_t right(const Rect& rect) {
    return std::int64_t{rect.x} + rect.width;
}
inline std::int64_t bottom(const Rect& rect) {
    return std::int64_t{rect.y} + rect.height;
}

}  // namespace vidorra
