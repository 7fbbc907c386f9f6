// The definition of the range kernels: one look-up a sample. The other sets are tested against these loops.

#include "process/color_range/range_kernels.h"
#include "process/color_range/range_tables.h"

namespace vidorra {
namespace {

// Source bytes between two prefetches.
constexpr std::ptrdiff_t kBlock = 64;

void convertRow(const std::array<std::uint8_t, 256>& table, unsigned char* dst, const unsigned char* src,
                std::ptrdiff_t count) {
    std::ptrdiff_t x = 0;
    for (; x + kBlock <= count; x += kBlock) {
        __builtin_prefetch(src + x + kBlock);
        for (std::ptrdiff_t i = x; i < x + kBlock; ++i) {
            dst[i] = table[src[i]];
        }
    }
    for (; x < count; ++x) {
        dst[x] = table[src[x]];
    }
}

void convertLuma(unsigned char* dst, const unsigned char* src, std::ptrdiff_t count) {
    convertRow(kRangeLimitedToFullTable235, dst, src, count);
}

void convertChroma(unsigned char* dst, const unsigned char* src, std::ptrdiff_t count) {
    convertRow(kRangeLimitedToFullTable240, dst, src, count);
}

void splitChroma(unsigned char* u, unsigned char* v, const unsigned char* src, std::ptrdiff_t pairs) {
    const std::array<std::uint8_t, 256>& table = kRangeLimitedToFullTable240;
    std::ptrdiff_t i = 0;
    for (; i + kBlock / 2 <= pairs; i += kBlock / 2) {
        __builtin_prefetch(src + 2 * i + kBlock);
        for (std::ptrdiff_t j = i; j < i + kBlock / 2; ++j) {
            u[j] = table[src[2 * j]];
            v[j] = table[src[2 * j + 1]];
        }
    }
    for (; i < pairs; ++i) {
        u[i] = table[src[2 * i]];
        v[i] = table[src[2 * i + 1]];
    }
}

}  // namespace

const RangeKernels kPlainRangeKernels = {
    .name = "plain", .convertLuma = convertLuma, .convertChroma = convertChroma, .splitChroma = splitChroma};

}  // namespace vidorra
