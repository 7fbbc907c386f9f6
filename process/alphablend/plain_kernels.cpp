// The definition of all kernels: one sample after the other, as the equations say. The other sets are tested
// against these loops.

#include "process/alphablend/equations.h"
#include "process/alphablend/kernels.h"

namespace vidorra::alphablend {
namespace {

void fade(unsigned char* dst, const unsigned char* src, std::ptrdiff_t count, unsigned opacity) {
    for (std::ptrdiff_t i = 0; i < count; ++i) {
        dst[i] = blend256(src[i], dst[i], opacity, opacity);
    }
}

void fadeNva12(const RowPair& dst, const SourceRowPair& src, std::ptrdiff_t columns, unsigned opacity) {
    for (std::ptrdiff_t x = 0; x < columns; x += 2) {
        unsigned sum = 0;
        for (int row = 0; row < 2; ++row) {
            for (std::ptrdiff_t i = x; i < x + 2; ++i) {
                const unsigned alpha = src.alpha[row][i];
                unsigned char& luma = dst.luma[row][i];
                // Deliberate: the destination's weight comes from the alpha without the opacity, so that a
                // faded overlay darkens what it covers.
                luma = blend256(src.luma[row][i], luma, faded(alpha, opacity), alpha);
                sum += alpha;
            }
        }
        const unsigned alpha = sum >> 2;
        for (std::ptrdiff_t i = x; i < x + 2; ++i) {
            dst.chroma[i] = blend256(src.chroma[i], dst.chroma[i], faded(alpha, opacity), alpha);
        }
    }
}

void blendNva12(const RowPair& dst, const SourceRowPair& src, std::ptrdiff_t columns) {
    fadeNva12(dst, src, columns, 255);
}

void blend32(const PackedRows& rows, std::ptrdiff_t pixels, int alphaOffset, unsigned opacity) {
    for (std::ptrdiff_t i = 0; i < 4 * pixels; i += 4) {
        const unsigned alpha = faded(rows.src[i + alphaOffset], opacity);
        for (int offset = 0; offset < 4; ++offset) {
            if (offset != alphaOffset) {
                unsigned char& d = rows.dst[i + offset];
                d = blend255(rows.src[i + offset], d, alpha);
            }
        }
    }
}

void blend24(const PackedRows& rows, std::ptrdiff_t bytes, unsigned opacity) {
    for (std::ptrdiff_t i = 0; i < bytes; ++i) {
        rows.dst[i] = blend255(rows.src[i], rows.dst[i], opacity);
    }
}

}  // namespace

const Kernels kPlainKernels = {.name = "plain",
                               .fade = fade,
                               .blendNva12 = blendNva12,
                               .fadeNva12 = fadeNva12,
                               .blend32 = blend32,
                               .blend24 = blend24};

}  // namespace vidorra::alphablend
