#pragma once

namespace vidorra::alphablend {

/// The mean of `s` with the weight `a` and `d` with the weight 255 - `a`, rounded to nearest.
constexpr unsigned char blend255(unsigned s, unsigned d, unsigned a) {
    return static_cast<unsigned char>(((s * a + d * (255 - a) + 128) * 257) >> 16);
}

/// `s` with the weight `sWeight` + 1 and `d` with the weight 256 - `dWeight`, where `sWeight` is at most
/// `dWeight`: 0 for both gives `d`, 255 for both gives `s`, and the sum fits 16 bits.
constexpr unsigned char blend256(unsigned s, unsigned d, unsigned sWeight, unsigned dWeight) {
    return static_cast<unsigned char>((s * (sWeight + 1) + d * (256 - dWeight)) >> 8);
}

/// An alpha as it is left by an opacity; at opacity 255 the alpha itself.
constexpr unsigned faded(unsigned alpha, unsigned opacity) {
    return (alpha * opacity + 255) >> 8;
}

}  // namespace vidorra::alphablend
