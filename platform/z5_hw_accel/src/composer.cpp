#include "z5_hw_accel/composer.h"

#include <cstddef>
#include <cstdint>
#include <stdexcept>

namespace z5::hw::accel {
namespace {

// Mixes a sample of the overlay with the one below it. Alpha 0 keeps the one below, 255 replaces it, and the
// sum fits 16 bits.
constexpr std::uint8_t blend(unsigned overlay, unsigned below, unsigned shown, unsigned alpha) {
    return static_cast<std::uint8_t>((overlay * (shown + 1) + below * (256 - alpha)) >> 8);
}

constexpr unsigned faded(unsigned alpha, unsigned opacity) {
    return (alpha * opacity + 255) >> 8;
}

struct Overlay {
    const std::uint8_t* luma;
    const std::uint8_t* chroma;
    const std::uint8_t* alpha;
    std::ptrdiff_t linesize;
};

struct Destination {
    std::uint8_t* luma;
    std::uint8_t* chroma;
    std::ptrdiff_t linesize;
};

void blendEvenly(std::uint8_t* below, const std::uint8_t* overlay, int bytes, unsigned opacity) {
    for (int i = 0; i < bytes; ++i) {
        below[i] = blend(overlay[i], below[i], opacity, opacity);
    }
}

void blendByAlpha(std::uint8_t* below, const std::uint8_t* overlay, const std::uint8_t* alpha, int pixels,
                  unsigned opacity) {
    for (int i = 0; i < pixels; ++i) {
        // Deliberate: only the overlay's weight is faded, so that a faded overlay darkens what it covers.
        below[i] = blend(overlay[i], below[i], faded(alpha[i], opacity), alpha[i]);
    }
}

// The alpha of a pair is the mean of its four pixels', rounded down.
void blendPairsByAlpha(std::uint8_t* below, const std::uint8_t* overlay, const std::uint8_t* upperAlpha,
                       const std::uint8_t* lowerAlpha, int pixels, unsigned opacity) {
    for (int i = 0; i < pixels; i += 2) {
        const unsigned alpha = (upperAlpha[i] + upperAlpha[i + 1] + lowerAlpha[i] + lowerAlpha[i + 1]) / 4U;
        const unsigned shown = faded(alpha, opacity);
        below[i] = blend(overlay[i], below[i], shown, alpha);
        below[i + 1] = blend(overlay[i + 1], below[i + 1], shown, alpha);
    }
}

void check(bool right, const char* text) {
    if (!right) {
        throw std::invalid_argument(text);
    }
}

template <class T>
void checkBuffer(const Nv12Buffer<T>& buffer, int width, int height) {
    check(buffer.luma != nullptr && buffer.chroma != nullptr,
          "z5 hw accel: a buffer to compose lacks a plane");
    check(width <= buffer.width && height <= buffer.height,
          "z5 hw accel: the area to compose is larger than a buffer");
    check(width <= buffer.linesize, "z5 hw accel: the area to compose is wider than a line");
}

}  // namespace

Composer::Composer(int device) noexcept : mDevice(device) {}

void Composer::process(Nv12Buffer<void>&& dst, Nv12Buffer<const void>&& overlay, int width, int height,
                       unsigned char alpha, unsigned int /*flags*/) const {
    check(width >= 2 && height >= 2 && width % 2 == 0 && height % 2 == 0,
          "z5 hw accel: the area to compose must have an even width and height");
    checkBuffer(dst, width, height);
    checkBuffer(overlay, width, height);
    // Not left to the equation, which would darken with an alpha plane.
    if (alpha == 0) {
        return;
    }
    const Destination below{static_cast<std::uint8_t*>(dst.luma), static_cast<std::uint8_t*>(dst.chroma),
                            dst.linesize};
    const Overlay over{static_cast<const std::uint8_t*>(overlay.luma),
                       static_cast<const std::uint8_t*>(overlay.chroma),
                       static_cast<const std::uint8_t*>(overlay.alpha), overlay.linesize};
    for (std::ptrdiff_t y = 0; y < height; ++y) {
        std::uint8_t* const lumaBelow = below.luma + y * below.linesize;
        const std::uint8_t* const luma = over.luma + y * over.linesize;
        if (over.alpha == nullptr) {
            blendEvenly(lumaBelow, luma, width, alpha);
        } else {
            blendByAlpha(lumaBelow, luma, over.alpha + y * over.linesize, width, alpha);
        }
    }
    for (std::ptrdiff_t y = 0; y < height / 2; ++y) {
        std::uint8_t* const chromaBelow = below.chroma + y * below.linesize;
        const std::uint8_t* const chroma = over.chroma + y * over.linesize;
        if (over.alpha == nullptr) {
            blendEvenly(chromaBelow, chroma, width, alpha);
        } else {
            const std::uint8_t* const upper = over.alpha + 2 * y * over.linesize;
            blendPairsByAlpha(chromaBelow, chroma, upper, upper + over.linesize, width, alpha);
        }
    }
}

}  // namespace z5::hw::accel
