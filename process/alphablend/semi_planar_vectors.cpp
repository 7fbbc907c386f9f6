// The kernels of the semi-planar formats on vectors, for all sets of instructions: their templates are
// instantiated nowhere else, which is why this file is long. On x86 what multiplies bytes is in intrinsics.
#include <cstdint>
#include <cstring>

#include "process/alphablend/vector_kernels.h"
#include "process/alphablend/vector_lanes.h"
#include "process/instructions.h"

namespace vidorra::alphablend {
namespace {

// Whether all bytes of the block are those of `word`, in all rows.
template <std::size_t kRows>
VIDORRA_INLINE bool isRun(const unsigned char* const (&rows)[kRows], std::ptrdiff_t x, std::uint64_t word) {
    std::uint64_t different = 0;
    for (const unsigned char* row : rows) {
        for (int i = 0; i < kBlock; i += 8) {
            different |= wordAt(row + x + i) ^ word;
        }
    }
    return different == 0;
}

// The equation with equal weights for all bytes.
template <int N>
VIDORRA_INLINE void fade(unsigned char* dst, const unsigned char* src, unsigned opacity) {
    Lanes<N> s;
    Lanes<N> d;
    load<N>(s, src);
    load<N>(d, dst);
    const Lanes<N> low = Lanes<N>{} + static_cast<std::uint16_t>(0xff);
    const Lanes<N> sWeight = Lanes<N>{} + static_cast<std::uint16_t>(opacity + 1);
    const Lanes<N> dWeight = Lanes<N>{} + static_cast<std::uint16_t>(256 - opacity);
    const Lanes<N> even = ((s & low) * sWeight + (d & low) * dWeight) >> 8;
    const Lanes<N> odd = ((s >> 8) * sWeight + (d >> 8) * dWeight) & ~low;
    store<N>(dst, even | odd);
}

// The equation at full opacity, with the alphas of the even and of the odd bytes:
// s * (a + 1) + d * (256 - a) is (s - d) * a + s + 256 * d, where the difference may wrap.
template <int N>
VIDORRA_INLINE void blend(unsigned char* dst, const unsigned char* src, const Lanes<N>& alphaEven,
                          const Lanes<N>& alphaOdd) {
    Lanes<N> s;
    Lanes<N> d;
    load<N>(s, src);
    load<N>(d, dst);
    const Lanes<N> low = Lanes<N>{} + static_cast<std::uint16_t>(0xff);
    const Lanes<N> sEven = s & low;
    const Lanes<N> sOdd = s >> 8;
    const Lanes<N> even = ((sEven - (d & low)) * alphaEven + sEven + (d << 8)) >> 8;
    const Lanes<N> odd = ((sOdd - (d >> 8)) * alphaOdd + sOdd + (d & ~low)) & ~low;
    store<N>(dst, even | odd);
}

// The same below full opacity.
template <int N>
VIDORRA_INLINE void blendFaded(unsigned char* dst, const unsigned char* src, const Lanes<N>& alphaEven,
                               const Lanes<N>& alphaOdd, unsigned opacity) {
    Lanes<N> s;
    Lanes<N> d;
    load<N>(s, src);
    load<N>(d, dst);
    const Lanes<N> low = Lanes<N>{} + static_cast<std::uint16_t>(0xff);
    const Lanes<N> factor = Lanes<N>{} + static_cast<std::uint16_t>(opacity);
    const Lanes<N> whole = Lanes<N>{} + static_cast<std::uint16_t>(256);
    // (a * o + 255) / 256 + 1 is (a * o + 511) / 256.
    const Lanes<N> more = Lanes<N>{} + static_cast<std::uint16_t>(511);
    const Lanes<N> sWeightEven = (alphaEven * factor + more) >> 8;
    const Lanes<N> sWeightOdd = (alphaOdd * factor + more) >> 8;
    const Lanes<N> even = ((s & low) * sWeightEven + (d & low) * (whole - alphaEven)) >> 8;
    const Lanes<N> odd = ((s >> 8) * sWeightOdd + (d >> 8) * (whole - alphaOdd)) & ~low;
    store<N>(dst, even | odd);
}

// The mean of the four alphas of a U,V pair: a lane of two luma columns is the lane of the pair below them.
template <int N>
VIDORRA_INLINE Lanes<N> meanAlpha(const unsigned char* alpha0, const unsigned char* alpha1) {
    const Lanes<N> low = Lanes<N>{} + static_cast<std::uint16_t>(0xff);
    Lanes<N> upper;
    Lanes<N> lower;
    load<N>(upper, alpha0);
    load<N>(lower, alpha1);
    return ((upper & low) + (upper >> 8) + (lower & low) + (lower >> 8)) >> 2;
}

// The steps of all sets of instructions that have none of their own: of a row of luma, and of a row of U,V
// pairs under two rows of alpha.
struct AnySteps {
    template <int N>
    VIDORRA_INLINE static void blendLuma(unsigned char* dst, const unsigned char* src,
                                         const unsigned char* alpha) {
        const Lanes<N> low = Lanes<N>{} + static_cast<std::uint16_t>(0xff);
        Lanes<N> alphas;
        load<N>(alphas, alpha);
        blend<N>(dst, src, alphas & low, alphas >> 8);
    }
    template <int N>
    VIDORRA_INLINE static void blendChroma(unsigned char* dst, const unsigned char* src,
                                           const unsigned char* alpha0, const unsigned char* alpha1) {
        const Lanes<N> mean = meanAlpha<N>(alpha0, alpha1);
        blend<N>(dst, src, mean, mean);
    }
    template <int N>
    VIDORRA_INLINE static void fadeLuma(unsigned char* dst, const unsigned char* src,
                                        const unsigned char* alpha, unsigned opacity) {
        const Lanes<N> low = Lanes<N>{} + static_cast<std::uint16_t>(0xff);
        Lanes<N> alphas;
        load<N>(alphas, alpha);
        blendFaded<N>(dst, src, alphas & low, alphas >> 8, opacity);
    }
    template <int N>
    VIDORRA_INLINE static void fadeChroma(unsigned char* dst, const unsigned char* src,
                                          const unsigned char* alpha0, const unsigned char* alpha1,
                                          unsigned opacity) {
        const Lanes<N> mean = meanAlpha<N>(alpha0, alpha1);
        blendFaded<N>(dst, src, mean, mean, opacity);
    }
};

// Calls step<N>(x) for whole vectors from `x` on, then for the last columns in ever smaller vectors, so that
// no byte outside of the row is touched. Returns the first column that is left.
template <int N, class Step>
VIDORRA_INLINE std::ptrdiff_t forVectors(std::ptrdiff_t x, std::ptrdiff_t columns, const Step& step) {
    for (; columns - x >= N; x += N) {
        step.template operator()<N>(x);
    }
    if constexpr (N > 8) {
        return forVectors<N / 2>(x, columns, step);
    }
    return x;
}

// Calls step<N>(x) for all vectors of whole blocks but those that all rows of alpha have in a run of one
// alpha: blocks where all are 0 are left alone, for the equations give the destination, and those where all
// are 255 are copied at full opacity, for they give the source. `alphas` are one row or two.
template <int N, bool kFull, std::size_t kRows, class Step>
VIDORRA_INLINE std::ptrdiff_t forBlocks(unsigned char* dst, const unsigned char* src,
                                        const unsigned char* const (&alphas)[kRows], std::ptrdiff_t columns,
                                        const Step& step) {
    std::ptrdiff_t x = 0;
    for (; x + kBlock <= columns; x += kBlock) {
        const std::uint64_t first = wordAt(alphas[0] + x);
        // A look at the first columns alone costs next to nothing where there are no runs.
        if (first == 0 && isRun(alphas, x, first)) {
            continue;
        }
        if (kFull && ~first == 0 && isRun(alphas, x, first)) {
            std::memcpy(dst + x, src + x, kBlock);
            continue;
        }
        for (int i = 0; i < kBlock; i += N) {
            step.template operator()<N>(x + i);
        }
    }
    return x;
}

template <int N>
VIDORRA_INLINE void fadeRow(unsigned char* dst, const unsigned char* src, std::ptrdiff_t count,
                            unsigned opacity) {
    const std::ptrdiff_t x = forVectors<N>(
        0, count, [&]<int M>(std::ptrdiff_t at) VIDORRA_INLINED { fade<M>(dst + at, src + at, opacity); });
    kPlainKernels.fade(dst + x, src + x, count - x, opacity);
}

RowPair advanced(const RowPair& rows, std::ptrdiff_t x) {
    return {{rows.luma[0] + x, rows.luma[1] + x}, rows.chroma + x};
}

SourceRowPair advanced(const SourceRowPair& rows, std::ptrdiff_t x) {
    return {{rows.luma[0] + x, rows.luma[1] + x}, rows.chroma + x, {rows.alpha[0] + x, rows.alpha[1] + x}};
}

// One row after the other: the hardware follows the three streams of one row, not the eight of all.
template <int N, bool kFull, class Steps>
VIDORRA_INLINE void blendNva12Rows(const RowPair& dst, const SourceRowPair& src, std::ptrdiff_t columns,
                                   unsigned opacity) {
    std::ptrdiff_t done = 0;
    const auto blendRow = [&](unsigned char* to, const unsigned char* from, const auto& alphas,
                              const auto& step) VIDORRA_INLINED {
        done = forBlocks<N, kFull>(to, from, alphas, columns, step);
        done = forVectors<N>(done, columns, step);
    };
    for (int row = 0; row < 2; ++row) {
        unsigned char* const to = dst.luma[row];
        const unsigned char* const from = src.luma[row];
        const unsigned char* const alphas[] = {src.alpha[row]};
        blendRow(to, from, alphas, [&]<int M>(std::ptrdiff_t x) VIDORRA_INLINED {
            if constexpr (kFull) {
                Steps::template blendLuma<M>(to + x, from + x, alphas[0] + x);
            } else {
                Steps::template fadeLuma<M>(to + x, from + x, alphas[0] + x, opacity);
            }
        });
    }
    unsigned char* const to = dst.chroma;
    const unsigned char* const from = src.chroma;
    const unsigned char* const alphas[] = {src.alpha[0], src.alpha[1]};
    blendRow(to, from, alphas, [&]<int M>(std::ptrdiff_t x) VIDORRA_INLINED {
        if constexpr (kFull) {
            Steps::template blendChroma<M>(to + x, from + x, alphas[0] + x, alphas[1] + x);
        } else {
            Steps::template fadeChroma<M>(to + x, from + x, alphas[0] + x, alphas[1] + x, opacity);
        }
    });
    if (done < columns) {
        kPlainKernels.fadeNva12(advanced(dst, done), advanced(src, done), columns - done, opacity);
    }
}

}  // namespace

namespace vector16 {

void fade(unsigned char* dst, const unsigned char* src, std::ptrdiff_t count, unsigned opacity) {
    fadeRow<16>(dst, src, count, opacity);
}

void blendNva12(const RowPair& dst, const SourceRowPair& src, std::ptrdiff_t columns) {
    blendNva12Rows<16, true, AnySteps>(dst, src, columns, 255);
}

void fadeNva12(const RowPair& dst, const SourceRowPair& src, std::ptrdiff_t columns, unsigned opacity) {
    blendNva12Rows<16, false, AnySteps>(dst, src, columns, opacity);
}

}  // namespace vector16

#if defined(__x86_64__)

namespace {

// Fading multiplies and adds in pairs: samples of both pictures are interleaved, and their weights, opacity +
// 1 and 256 - opacity, are bytes for all opacities from 1 to 254. One factor of that instruction is signed:
// 128 is taken off the samples, and 128 * 257 given back. Sums below 128 saturate to 128, which gives 0 all
// the same.
constexpr char kSampleBias = -0x80;
constexpr short kSumBias = static_cast<short>(128 * 257);

constexpr short fadeWeights(unsigned opacity) {
    return static_cast<short>((256 - opacity) << 8 | (opacity + 1));
}

VIDORRA_AVX2 inline __m256i fadeAvx2(__m256i s, __m256i d, __m256i weights) {
    const __m256i bias = _mm256_set1_epi8(kSampleBias);
    const __m256i sumBias = _mm256_set1_epi16(kSumBias);
    s = _mm256_xor_si256(s, bias);
    d = _mm256_xor_si256(d, bias);
    const __m256i low = _mm256_maddubs_epi16(weights, _mm256_unpacklo_epi8(s, d));
    const __m256i high = _mm256_maddubs_epi16(weights, _mm256_unpackhi_epi8(s, d));
    return _mm256_packus_epi16(_mm256_srli_epi16(_mm256_add_epi16(low, sumBias), 8),
                               _mm256_srli_epi16(_mm256_add_epi16(high, sumBias), 8));
}

VIDORRA_AVX512 inline __m512i fadeAvx512(__m512i s, __m512i d, __m512i weights) {
    const __m512i bias = _mm512_set1_epi8(kSampleBias);
    const __m512i sumBias = _mm512_set1_epi16(kSumBias);
    s = _mm512_xor_si512(s, bias);
    d = _mm512_xor_si512(d, bias);
    const __m512i low = _mm512_maddubs_epi16(weights, _mm512_unpacklo_epi8(s, d));
    const __m512i high = _mm512_maddubs_epi16(weights, _mm512_unpackhi_epi8(s, d));
    return _mm512_packus_epi16(_mm512_srli_epi16(_mm512_add_epi16(low, sumBias), 8),
                               _mm512_srli_epi16(_mm512_add_epi16(high, sumBias), 8));
}

// At full opacity s * (a + 1) + d * (256 - a) is (s - d) * a + s + 256 * d. Interleaved samples are s + 256 *
// d as they are, and multiplied by 1 and -1 and added in pairs they are s - d.
constexpr short kDifference = static_cast<short>(0xff01);

struct Avx2Steps : AnySteps {
    template <int N>
    VIDORRA_AVX2 static void blendLuma(unsigned char* dst, const unsigned char* src,
                                       const unsigned char* alpha) {
        if constexpr (N == 32) {
            const __m256i a = load32(alpha);
            const __m256i zero = _mm256_setzero_si256();
            blend(dst, src, _mm256_unpacklo_epi8(a, zero), _mm256_unpackhi_epi8(a, zero));
        } else {
            AnySteps::blendLuma<N>(dst, src, alpha);
        }
    }
    template <int N>
    VIDORRA_AVX2 static void blendChroma(unsigned char* dst, const unsigned char* src,
                                         const unsigned char* alpha0, const unsigned char* alpha1) {
        if constexpr (N == 32) {
            const __m256i mean = meanAlphas(alpha0, alpha1);
            blend(dst, src, _mm256_unpacklo_epi16(mean, mean), _mm256_unpackhi_epi16(mean, mean));
        } else {
            AnySteps::blendChroma<N>(dst, src, alpha0, alpha1);
        }
    }

    template <int N>
    VIDORRA_AVX2 static void fadeChroma(unsigned char* dst, const unsigned char* src,
                                        const unsigned char* alpha0, const unsigned char* alpha1,
                                        unsigned opacity) {
        if constexpr (N == 32) {
            const auto mean = (Lanes<N>)meanAlphas(alpha0, alpha1);
            blendFaded<N>(dst, src, mean, mean, opacity);
        } else {
            AnySteps::fadeChroma<N>(dst, src, alpha0, alpha1, opacity);
        }
    }

private:
    VIDORRA_AVX2 static __m256i meanAlphas(const unsigned char* alpha0, const unsigned char* alpha1) {
        const __m256i ones = _mm256_set1_epi8(1);
        const __m256i upper = _mm256_maddubs_epi16(load32(alpha0), ones);
        const __m256i lower = _mm256_maddubs_epi16(load32(alpha1), ones);
        return _mm256_srli_epi16(_mm256_add_epi16(upper, lower), 2);
    }
    VIDORRA_AVX2 static void blend(unsigned char* dst, const unsigned char* src, __m256i alphaLow,
                                   __m256i alphaHigh) {
        const __m256i s = load32(src);
        const __m256i d = load32(dst);
        const __m256i difference = _mm256_set1_epi16(kDifference);
        const __m256i low = _mm256_unpacklo_epi8(s, d);
        const __m256i high = _mm256_unpackhi_epi8(s, d);
        const __m256i lowProduct = _mm256_mullo_epi16(_mm256_maddubs_epi16(low, difference), alphaLow);
        const __m256i highProduct = _mm256_mullo_epi16(_mm256_maddubs_epi16(high, difference), alphaHigh);
        store32(dst, _mm256_packus_epi16(_mm256_srli_epi16(_mm256_add_epi16(lowProduct, low), 8),
                                         _mm256_srli_epi16(_mm256_add_epi16(highProduct, high), 8)));
    }
};

struct Avx512Steps : AnySteps {
    template <int N>
    VIDORRA_AVX512 static void blendLuma(unsigned char* dst, const unsigned char* src,
                                         const unsigned char* alpha) {
        if constexpr (N == 64) {
            const __m512i a = _mm512_loadu_si512(alpha);
            const __m512i zero = _mm512_setzero_si512();
            blend(dst, src, _mm512_unpacklo_epi8(a, zero), _mm512_unpackhi_epi8(a, zero));
        } else {
            AnySteps::blendLuma<N>(dst, src, alpha);
        }
    }
    template <int N>
    VIDORRA_AVX512 static void blendChroma(unsigned char* dst, const unsigned char* src,
                                           const unsigned char* alpha0, const unsigned char* alpha1) {
        if constexpr (N == 64) {
            const __m512i mean = meanAlphas(alpha0, alpha1);
            blend(dst, src, _mm512_unpacklo_epi16(mean, mean), _mm512_unpackhi_epi16(mean, mean));
        } else {
            AnySteps::blendChroma<N>(dst, src, alpha0, alpha1);
        }
    }

    template <int N>
    VIDORRA_AVX512 static void fadeChroma(unsigned char* dst, const unsigned char* src,
                                          const unsigned char* alpha0, const unsigned char* alpha1,
                                          unsigned opacity) {
        if constexpr (N == 64) {
            const auto mean = (Lanes<N>)meanAlphas(alpha0, alpha1);
            blendFaded<N>(dst, src, mean, mean, opacity);
        } else {
            AnySteps::fadeChroma<N>(dst, src, alpha0, alpha1, opacity);
        }
    }

private:
    VIDORRA_AVX512 static __m512i meanAlphas(const unsigned char* alpha0, const unsigned char* alpha1) {
        const __m512i ones = _mm512_set1_epi8(1);
        const __m512i upper = _mm512_maddubs_epi16(_mm512_loadu_si512(alpha0), ones);
        const __m512i lower = _mm512_maddubs_epi16(_mm512_loadu_si512(alpha1), ones);
        return _mm512_srli_epi16(_mm512_add_epi16(upper, lower), 2);
    }
    VIDORRA_AVX512 static void blend(unsigned char* dst, const unsigned char* src, __m512i alphaLow,
                                     __m512i alphaHigh) {
        const __m512i s = _mm512_loadu_si512(src);
        const __m512i d = _mm512_loadu_si512(dst);
        const __m512i difference = _mm512_set1_epi16(kDifference);
        const __m512i low = _mm512_unpacklo_epi8(s, d);
        const __m512i high = _mm512_unpackhi_epi8(s, d);
        const __m512i lowProduct = _mm512_mullo_epi16(_mm512_maddubs_epi16(low, difference), alphaLow);
        const __m512i highProduct = _mm512_mullo_epi16(_mm512_maddubs_epi16(high, difference), alphaHigh);
        _mm512_storeu_si512(dst,
                            _mm512_packus_epi16(_mm512_srli_epi16(_mm512_add_epi16(lowProduct, low), 8),
                                                _mm512_srli_epi16(_mm512_add_epi16(highProduct, high), 8)));
    }
};

}  // namespace

namespace avx2 {

VIDORRA_AVX2 void fade(unsigned char* dst, const unsigned char* src, std::ptrdiff_t count, unsigned opacity) {
    const __m256i weights = _mm256_set1_epi16(fadeWeights(opacity));
    std::ptrdiff_t i = 0;
    for (; i + 64 <= count; i += 64) {
        store32(dst + i, fadeAvx2(load32(src + i), load32(dst + i), weights));
        store32(dst + i + 32, fadeAvx2(load32(src + i + 32), load32(dst + i + 32), weights));
    }
    if (i + 32 <= count) {
        store32(dst + i, fadeAvx2(load32(src + i), load32(dst + i), weights));
        i += 32;
    }
    vector16::fade(dst + i, src + i, count - i, opacity);
}

VIDORRA_AVX2 void blendNva12(const RowPair& dst, const SourceRowPair& src, std::ptrdiff_t columns) {
    blendNva12Rows<32, true, Avx2Steps>(dst, src, columns, 255);
}

VIDORRA_AVX2 void fadeNva12(const RowPair& dst, const SourceRowPair& src, std::ptrdiff_t columns,
                            unsigned opacity) {
    blendNva12Rows<32, false, Avx2Steps>(dst, src, columns, opacity);
}

}  // namespace avx2

namespace avx512 {

VIDORRA_AVX512 void fade(unsigned char* dst, const unsigned char* src, std::ptrdiff_t count,
                         unsigned opacity) {
    const __m512i weights = _mm512_set1_epi16(fadeWeights(opacity));
    std::ptrdiff_t i = 0;
    for (; i + 64 <= count; i += 64) {
        const __m512i s = _mm512_loadu_si512(src + i);
        _mm512_storeu_si512(dst + i, fadeAvx512(s, _mm512_loadu_si512(dst + i), weights));
    }
    if (i < count) {
        const __mmask64 rest = (__mmask64{1} << (count - i)) - 1;
        const __m512i s = _mm512_maskz_loadu_epi8(rest, src + i);
        const __m512i d = _mm512_maskz_loadu_epi8(rest, dst + i);
        _mm512_mask_storeu_epi8(dst + i, rest, fadeAvx512(s, d, weights));
    }
}

VIDORRA_AVX512 void blendNva12(const RowPair& dst, const SourceRowPair& src, std::ptrdiff_t columns) {
    blendNva12Rows<64, true, Avx512Steps>(dst, src, columns, 255);
}

VIDORRA_AVX512 void fadeNva12(const RowPair& dst, const SourceRowPair& src, std::ptrdiff_t columns,
                              unsigned opacity) {
    blendNva12Rows<64, false, Avx512Steps>(dst, src, columns, opacity);
}

}  // namespace avx512

#endif

}  // namespace vidorra::alphablend
