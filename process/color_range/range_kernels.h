#pragma once

#include <cstddef>
#include <span>

namespace vidorra {

/// The rows of ColorRangeConverter, for one set of instructions. All sets give the bytes of the tables. No
/// kernel reads or writes a byte outside of its rows. A row may be converted in place.
struct RangeKernels {
    const char* name;

    /// `count` luma samples.
    void (*convertLuma)(unsigned char* dst, const unsigned char* src, std::ptrdiff_t count);
    /// `count` samples of one chroma plane.
    void (*convertChroma)(unsigned char* dst, const unsigned char* src, std::ptrdiff_t count);
    /// `pairs` pairs of U and V, which go to a row of U and a row of V. Not in place.
    void (*splitChroma)(unsigned char* u, unsigned char* v, const unsigned char* src, std::ptrdiff_t pairs);
};

/// The loops that define what all others have to give.
extern const RangeKernels kPlainRangeKernels;

/// What this processor can run, the plain loops first and the fastest last.
std::span<const RangeKernels* const> supportedRangeKernels();

/// The fastest of them.
const RangeKernels& rangeKernels();

}  // namespace vidorra
