#pragma once

#include <cstddef>
#include <span>

namespace vidorra::alphablend {

/// Two rows of luma and the row of U,V pairs below them.
struct RowPair {
    unsigned char* luma[2];
    unsigned char* chroma;
};
/// The same of NVA12, with the two rows of alpha.
struct SourceRowPair {
    const unsigned char* luma[2];
    const unsigned char* chroma;
    const unsigned char* alpha[2];
};

/// A row of packed pixels.
struct PackedRows {
    unsigned char* dst;
    const unsigned char* src;
};

/// The inner loops of blending, for one set of instructions. All sets give the same bytes. No kernel reads or
/// writes a byte outside of its rows; rows of `columns` luma bytes have as many bytes of U,V pairs.
struct Kernels {
    const char* name;

    /// A row of samples, of luma or of U,V pairs, with an opacity from 1 to 254.
    void (*fade)(unsigned char* dst, const unsigned char* src, std::ptrdiff_t count, unsigned opacity);
    /// NVA12 onto NV12 at full opacity. `columns` is even.
    void (*blendNva12)(const RowPair& dst, const SourceRowPair& src, std::ptrdiff_t columns);
    /// NVA12 onto NV12 with an opacity from 1 to 254. `columns` is even.
    void (*fadeNva12)(const RowPair& dst, const SourceRowPair& src, std::ptrdiff_t columns, unsigned opacity);
    /// Pixels of four bytes, of which the one at `alphaOffset` is the alpha, with any opacity.
    void (*blend32)(const PackedRows& rows, std::ptrdiff_t pixels, int alphaOffset, unsigned opacity);
    /// Bytes that all have the same weight, with any opacity.
    void (*blend24)(const PackedRows& rows, std::ptrdiff_t bytes, unsigned opacity);
};

/// The loops that define what all others have to give.
extern const Kernels kPlainKernels;

/// What this processor can run, the plain loops first and the fastest last.
std::span<const Kernels* const> supportedKernels();

/// The fastest of them.
const Kernels& kernels();

}  // namespace vidorra::alphablend
