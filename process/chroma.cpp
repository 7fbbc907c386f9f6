#include "process/chroma.h"

namespace vidorra {
namespace {

// The weights of red, green and blue have 10 fractional bits and are rounded before they are summed.
std::uint8_t chromaByte(const Color& color, std::int64_t r, std::int64_t g, std::int64_t b) {
    const std::int64_t sum = r * color.red + g * color.green + b * color.blue + 511;
    return static_cast<std::uint8_t>((sum >> 10) - 128);
}

}  // namespace

Chroma toUV(const Color& color) {
    return {chromaByte(color, -173, -339, 512), chromaByte(color, 512, -429, -83)};
}

}  // namespace vidorra
