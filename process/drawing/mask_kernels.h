#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

namespace vidorra::masks {

/// Bytes in rows.
template <class Byte>
struct Rows {
    Byte* data;
    std::ptrdiff_t stride;

    [[nodiscard]] Byte* row(int y) const { return data + y * stride; }
};
using Bytes = Rows<std::uint8_t>;
using Coverages = Rows<const std::uint8_t>;

/// Values whose bytes need no alignment.
template <class T>
void load(T& value, const std::uint8_t* bytes) {
    std::memcpy(&value, bytes, sizeof(T));
}

template <class T>
void store(std::uint8_t* bytes, const T& value) {
    std::memcpy(bytes, &value, sizeof(T));
}

/// Bytes of one pixel of 8-bit samples.
inline constexpr int kLargestStep = 4;
/// The most bytes that are blended at a time.
inline constexpr int kLargestVector = 16;
/// A byte times this has the byte in its highest byte.
inline constexpr unsigned kWhole = 0x1010101;

/// What is drawn into the pixels of one plane.
struct Ink {
    /// Bytes of a pixel.
    int step = 1;
    /// Times a coverage of 255, at most kWhole.
    unsigned alpha = 0;
    /// The colour's bytes, repeated as far as a vector that begins within a pixel reaches.
    std::array<std::uint8_t, kLargestVector + kLargestStep> bytes{};
    /// 255 for the bytes of a pixel that are drawn.
    std::array<std::uint8_t, kLargestStep> drawn{};
};

/// The inner loop of blending through masks, for one instruction set. All sets give the same bytes, and none
/// reads or writes outside its rows.
struct Kernels {
    const char* name;

    /// Blends rows of bytes with one coverage for each: (kWhole - weight) * old + weight * fresh, where the
    /// weight is the coverage times the ink's alpha. The sum has 32 bits; the highest 8 are the result.
    void (*blendRows)(const Bytes& dst, const Coverages& coverages, int bytes, int rows, const Ink& ink);
};

/// The kernels that this processor can run, the plain loop first and the fastest last. The plain loop
/// defines the results of all others.
std::span<const Kernels* const> supportedKernels();

/// The fastest of them.
const Kernels& kernels();

}  // namespace vidorra::masks
