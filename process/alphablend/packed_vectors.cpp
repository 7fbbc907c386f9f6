// The kernels of the packed formats on vectors, for all sets of instructions. On x86 the division by 255 is
// written in intrinsics, where a multiplication of bytes saves half of the work.
#include <cstdint>
#include <cstring>

#include "process/alphablend/vector_kernels.h"
#include "process/alphablend/vector_lanes.h"
#include "process/instructions.h"

namespace vidorra::alphablend {
namespace {

// How far ahead the second prefetch goes. The next block alone comes too late for memory that is in no cache;
// a longer way is worth 10 to 20 % there.
constexpr std::ptrdiff_t kFar = 2048;

VIDORRA_INLINE void prefetch(const PackedRows& rows, std::ptrdiff_t at, std::ptrdiff_t bytes) {
    fetchAhead<kFar>(
        at, bytes,
        [&](std::ptrdiff_t i) VIDORRA_INLINED {
            __builtin_prefetch(rows.dst + i, 1);
            __builtin_prefetch(rows.src + i);
        },
        [&](std::ptrdiff_t i) VIDORRA_INLINED {
            __builtin_prefetch(rows.dst + rows.dstStep + i, 1);
            __builtin_prefetch(rows.src + rows.srcStep + i);
        });
}

PackedRows rest(const PackedRows& rows, std::ptrdiff_t at) {
    return {rows.dst + at, rows.src + at, rows.dstStep, rows.srcStep};
}

// (s * a + d * (255 - a) + 128) divided by 255: with t for the sum, (t + t / 256) / 256. The sum is
// (s - d) * a + 256 * d - d + 128, where the difference may wrap.
VIDORRA_INLINE void blend255Vector16(unsigned char* dst, const Lanes<16>& s, const Lanes<16>& alphaEven,
                                     const Lanes<16>& alphaOdd) {
    Lanes<16> d;
    load<16>(d, dst);
    const Lanes<16> low = Lanes<16>{} + static_cast<std::uint16_t>(0xff);
    const Lanes<16> half = Lanes<16>{} + static_cast<std::uint16_t>(128);
    const Lanes<16> dEven = d & low;
    const Lanes<16> dOdd = d >> 8;
    const Lanes<16> even = ((s & low) - dEven) * alphaEven + (d << 8) - dEven + half;
    const Lanes<16> odd = ((s >> 8) - dOdd) * alphaOdd + (d & ~low) - dOdd + half;
    store<16>(dst, ((even + (even >> 8)) >> 8) | ((odd + (odd >> 8)) & ~low));
}

using Pixels __attribute__((vector_size(16))) = std::uint32_t;

// What is the same for all pixels: masks that take the weight of the alpha byte away, so that the
// destination's alpha stays.
struct PackedMasks {
    Pixels alpha;
    Pixels even;
    Pixels odd;
    int shift;

    explicit PackedMasks(int alphaOffset)
        : alpha(Pixels{} + (0xffU << (8 * alphaOffset))),
          even(Pixels{} + weights(alphaOffset, 0)),
          odd(Pixels{} + weights(alphaOffset, 1)),
          shift(8 * alphaOffset) {}

private:
    static std::uint32_t weights(int alphaOffset, int first) {
        return alphaOffset == first ? 0xffff0000U : alphaOffset == first + 2 ? 0x0000ffffU : 0xffffffffU;
    }
};

template <bool kFull>
VIDORRA_INLINE void blend32Step(unsigned char* dst, const Pixels& s, const PackedMasks& masks,
                                unsigned opacity) {
    Pixels alpha = (s & masks.alpha) >> masks.shift;
    if constexpr (!kFull) {
        // The upper lane of a pixel is 0 and stays so.
        alpha = (Pixels)(((Lanes<16>)alpha * static_cast<std::uint16_t>(opacity) +
                          static_cast<std::uint16_t>(255)) >>
                         8);
    }
    alpha |= alpha << 16;
    blend255Vector16(dst, (Lanes<16>)s, (Lanes<16>)(alpha & masks.even), (Lanes<16>)(alpha & masks.odd));
}

template <bool kFull>
VIDORRA_INLINE void blend32RowVector16(const PackedRows& rows, std::ptrdiff_t pixels, int alphaOffset,
                                       unsigned opacity) {
    const PackedMasks masks(alphaOffset);
    unsigned char* const dst = rows.dst;
    const unsigned char* const src = rows.src;
    const std::ptrdiff_t bytes = 4 * pixels;
    std::ptrdiff_t i = 0;
    for (; i + kBlock <= bytes; i += kBlock) {
        prefetch(rows, i, bytes);
        Pixels s[4];
        std::memcpy(s, src + i, sizeof(s));
        const Words any = (Words)((s[0] | s[1] | s[2] | s[3]) & masks.alpha);
        if ((any[0] | any[1]) == 0) {
            continue;
        }
        for (int j = 0; j < 4; ++j) {
            blend32Step<kFull>(dst + i + 16 * j, s[j], masks, opacity);
        }
    }
    for (; i + 16 <= bytes; i += 16) {
        Pixels s;
        std::memcpy(&s, src + i, sizeof(s));
        blend32Step<kFull>(dst + i, s, masks, opacity);
    }
    kPlainKernels.blend32(rest(rows, i), (bytes - i) / 4, alphaOffset, opacity);
}

}  // namespace

namespace vector16 {

void blend32(const PackedRows& rows, std::ptrdiff_t pixels, int alphaOffset, unsigned opacity) {
    if (opacity == 255) {
        blend32RowVector16<true>(rows, pixels, alphaOffset, opacity);
    } else {
        blend32RowVector16<false>(rows, pixels, alphaOffset, opacity);
    }
}

void blend24(const PackedRows& rows, std::ptrdiff_t bytes, unsigned opacity) {
    unsigned char* const dst = rows.dst;
    const unsigned char* const src = rows.src;
    const Lanes<16> alpha = Lanes<16>{} + static_cast<std::uint16_t>(opacity);
    std::ptrdiff_t i = 0;
    for (; i + 16 <= bytes; i += 16) {
        prefetch(rows, i, bytes);
        Lanes<16> s;
        load<16>(s, src + i);
        blend255Vector16(dst + i, s, alpha, alpha);
    }
    kPlainKernels.blend24(rest(rows, i), bytes - i, opacity);
}

}  // namespace vector16

#if defined(__x86_64__)

namespace {

// For the division by 255 samples and weights are interleaved, s with a and d with 255 - a, and multiplied
// and added in pairs. One factor of that instruction is signed: 128 is taken off the samples, and 128 * 255
// given back, together with the 128 for rounding: 0x8000, which wraps as it should.
constexpr short kSumBias = -0x8000;
constexpr char kSampleBias = -0x80;
constexpr short kReciprocal = 257;
constexpr short kComplement = -0x100;

// Byte shuffles that spread the alpha of a pixel over its samples and their weights, for the lower and the
// upper two of four pixels, by the offset of the alpha. The alpha itself gets the weight 0, so that the
// destination's stays.
struct Spread {
    alignas(16) unsigned char low[16];
    alignas(16) unsigned char high[16];
};

constexpr Spread makeSpread(int alphaOffset, int fromOffset) {
    Spread spread{};
    for (int i = 0; i < 16; ++i) {
        const int sample = i / 2;
        const int pixel = sample / 4;
        const bool isAlpha = sample % 4 == alphaOffset;
        spread.low[i] = static_cast<unsigned char>(isAlpha ? 0x80 : 4 * pixel + fromOffset);
        spread.high[i] = static_cast<unsigned char>(isAlpha ? 0x80 : 4 * (pixel + 2) + fromOffset);
    }
    return spread;
}

// From the pixel as it is.
constexpr Spread kSpread[4] = {makeSpread(0, 0), makeSpread(1, 1), makeSpread(2, 2), makeSpread(3, 3)};
// From an alpha that was multiplied and lies in byte 0.
constexpr Spread kSpreadFaded[4] = {makeSpread(0, 0), makeSpread(1, 0), makeSpread(2, 0), makeSpread(3, 0)};

VIDORRA_AVX2 inline __m256i blend255Avx2(__m256i s, __m256i d, __m256i weightsLow, __m256i weightsHigh) {
    const __m256i bias = _mm256_set1_epi8(kSampleBias);
    s = _mm256_xor_si256(s, bias);
    d = _mm256_xor_si256(d, bias);
    __m256i low = _mm256_maddubs_epi16(weightsLow, _mm256_unpacklo_epi8(s, d));
    __m256i high = _mm256_maddubs_epi16(weightsHigh, _mm256_unpackhi_epi8(s, d));
    const __m256i sumBias = _mm256_set1_epi16(kSumBias);
    const __m256i reciprocal = _mm256_set1_epi16(kReciprocal);
    low = _mm256_mulhi_epu16(_mm256_add_epi16(low, sumBias), reciprocal);
    high = _mm256_mulhi_epu16(_mm256_add_epi16(high, sumBias), reciprocal);
    return _mm256_packus_epi16(low, high);
}

VIDORRA_AVX2 inline __m256i spreadAvx2(const unsigned char* indices) {
    return _mm256_broadcastsi128_si256(_mm_load_si128(reinterpret_cast<const __m128i*>(indices)));
}

template <bool kFull>
VIDORRA_AVX2 inline void blend32RowAvx2(const PackedRows& rows, std::ptrdiff_t pixels, int alphaOffset,
                                        unsigned opacity) {
    unsigned char* const dst = rows.dst;
    const unsigned char* const src = rows.src;
    const Spread& spread = kFull ? kSpread[alphaOffset] : kSpreadFaded[alphaOffset];
    const __m256i spreadLow = spreadAvx2(spread.low);
    const __m256i spreadHigh = spreadAvx2(spread.high);
    const __m256i complement = _mm256_set1_epi16(kComplement);
    const __m256i alphaMask = _mm256_set1_epi32(static_cast<int>(0xffU << (8 * alphaOffset)));
    const __m128i alphaShift = _mm_cvtsi32_si128(8 * alphaOffset);
    const __m256i byteMask = _mm256_set1_epi32(0xff);
    const __m256i factor = _mm256_set1_epi32(static_cast<int>(opacity));
    std::ptrdiff_t i = 0;
    for (; i + 8 <= pixels; i += 8) {
        prefetch(rows, 4 * i, 4 * pixels);
        const __m256i s = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + 4 * i));
        if (_mm256_testz_si256(s, alphaMask) != 0) {
            continue;
        }
        auto* to = reinterpret_cast<__m256i*>(dst + 4 * i);
        const __m256i d = _mm256_loadu_si256(to);
        if (kFull && _mm256_testc_si256(s, alphaMask) != 0) {
            _mm256_storeu_si256(to, _mm256_blendv_epi8(s, d, alphaMask));
            continue;
        }
        __m256i alpha = s;
        if constexpr (!kFull) {
            alpha = _mm256_and_si256(_mm256_srl_epi32(s, alphaShift), byteMask);
            alpha = _mm256_srli_epi32(_mm256_add_epi32(_mm256_mullo_epi16(alpha, factor), byteMask), 8);
        }
        const __m256i weightsLow = _mm256_xor_si256(_mm256_shuffle_epi8(alpha, spreadLow), complement);
        const __m256i weightsHigh = _mm256_xor_si256(_mm256_shuffle_epi8(alpha, spreadHigh), complement);
        _mm256_storeu_si256(to, blend255Avx2(s, d, weightsLow, weightsHigh));
    }
    vector16::blend32(rest(rows, 4 * i), pixels - i, alphaOffset, opacity);
}

VIDORRA_AVX512 inline __m512i blend255Avx512(__m512i s, __m512i d, __m512i weightsLow, __m512i weightsHigh) {
    const __m512i bias = _mm512_set1_epi8(kSampleBias);
    s = _mm512_xor_si512(s, bias);
    d = _mm512_xor_si512(d, bias);
    __m512i low = _mm512_maddubs_epi16(weightsLow, _mm512_unpacklo_epi8(s, d));
    __m512i high = _mm512_maddubs_epi16(weightsHigh, _mm512_unpackhi_epi8(s, d));
    const __m512i sumBias = _mm512_set1_epi16(kSumBias);
    const __m512i reciprocal = _mm512_set1_epi16(kReciprocal);
    low = _mm512_mulhi_epu16(_mm512_add_epi16(low, sumBias), reciprocal);
    high = _mm512_mulhi_epu16(_mm512_add_epi16(high, sumBias), reciprocal);
    return _mm512_packus_epi16(low, high);
}

VIDORRA_AVX512 inline __m512i spreadAvx512(const unsigned char* indices) {
    return _mm512_broadcast_i32x4(_mm_load_si128(reinterpret_cast<const __m128i*>(indices)));
}

template <bool kFull>
VIDORRA_AVX512 inline void blend32RowAvx512(const PackedRows& rows, std::ptrdiff_t pixels, int alphaOffset,
                                            unsigned opacity) {
    unsigned char* const dst = rows.dst;
    const unsigned char* const src = rows.src;
    const Spread& spread = kFull ? kSpread[alphaOffset] : kSpreadFaded[alphaOffset];
    const __m512i spreadLow = spreadAvx512(spread.low);
    const __m512i spreadHigh = spreadAvx512(spread.high);
    const __m512i complement = _mm512_set1_epi16(kComplement);
    const __m512i alphaMask = _mm512_set1_epi32(static_cast<int>(0xffU << (8 * alphaOffset)));
    const __m128i alphaShift = _mm_cvtsi32_si128(8 * alphaOffset);
    const __m512i byteMask = _mm512_set1_epi32(0xff);
    const __m512i factor = _mm512_set1_epi32(static_cast<int>(opacity));
    const auto blended = [&](__m512i s, __m512i d) VIDORRA_AVX512 {
        __m512i alpha = s;
        if constexpr (!kFull) {
            alpha = _mm512_and_si512(_mm512_srl_epi32(s, alphaShift), byteMask);
            alpha = _mm512_srli_epi32(_mm512_add_epi32(_mm512_mullo_epi16(alpha, factor), byteMask), 8);
        }
        const __m512i weightsLow = _mm512_xor_si512(_mm512_shuffle_epi8(alpha, spreadLow), complement);
        const __m512i weightsHigh = _mm512_xor_si512(_mm512_shuffle_epi8(alpha, spreadHigh), complement);
        return blend255Avx512(s, d, weightsLow, weightsHigh);
    };
    std::ptrdiff_t i = 0;
    for (; i + 16 <= pixels; i += 16) {
        prefetch(rows, 4 * i, 4 * pixels);
        const __m512i s = _mm512_loadu_si512(src + 4 * i);
        if (_mm512_test_epi32_mask(s, alphaMask) == 0) {
            continue;
        }
        const __m512i d = _mm512_loadu_si512(dst + 4 * i);
        if (kFull && _mm512_cmpneq_epi32_mask(_mm512_and_si512(s, alphaMask), alphaMask) == 0) {
            // Bit by bit: where the mask is set the destination, else the source.
            _mm512_storeu_si512(dst + 4 * i, _mm512_ternarylogic_epi32(alphaMask, d, s, 0xca));
            continue;
        }
        _mm512_storeu_si512(dst + 4 * i, blended(s, d));
    }
    if (i < pixels) {
        const auto rest = static_cast<__mmask16>((1U << (pixels - i)) - 1);
        const __m512i s = _mm512_maskz_loadu_epi32(rest, src + 4 * i);
        const __m512i d = _mm512_maskz_loadu_epi32(rest, dst + 4 * i);
        _mm512_mask_storeu_epi32(dst + 4 * i, rest, blended(s, d));
    }
}

}  // namespace

namespace avx2 {

VIDORRA_AVX2 void blend32(const PackedRows& rows, std::ptrdiff_t pixels, int alphaOffset, unsigned opacity) {
    if (opacity == 255) {
        blend32RowAvx2<true>(rows, pixels, alphaOffset, opacity);
    } else {
        blend32RowAvx2<false>(rows, pixels, alphaOffset, opacity);
    }
}

VIDORRA_AVX2 void blend24(const PackedRows& rows, std::ptrdiff_t bytes, unsigned opacity) {
    unsigned char* const dst = rows.dst;
    const unsigned char* const src = rows.src;
    const __m256i weights = _mm256_set1_epi16(static_cast<short>((255 - opacity) << 8 | opacity));
    std::ptrdiff_t i = 0;
    for (; i + 32 <= bytes; i += 32) {
        prefetch(rows, i, bytes);
        auto* to = reinterpret_cast<__m256i*>(dst + i);
        const __m256i s = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + i));
        _mm256_storeu_si256(to, blend255Avx2(s, _mm256_loadu_si256(to), weights, weights));
    }
    vector16::blend24(rest(rows, i), bytes - i, opacity);
}

}  // namespace avx2

namespace avx512 {

VIDORRA_AVX512 void blend32(const PackedRows& rows, std::ptrdiff_t pixels, int alphaOffset,
                            unsigned opacity) {
    if (opacity == 255) {
        blend32RowAvx512<true>(rows, pixels, alphaOffset, opacity);
    } else {
        blend32RowAvx512<false>(rows, pixels, alphaOffset, opacity);
    }
}

VIDORRA_AVX512 void blend24(const PackedRows& rows, std::ptrdiff_t bytes, unsigned opacity) {
    unsigned char* const dst = rows.dst;
    const unsigned char* const src = rows.src;
    const __m512i weights = _mm512_set1_epi16(static_cast<short>((255 - opacity) << 8 | opacity));
    std::ptrdiff_t i = 0;
    for (; i + 64 <= bytes; i += 64) {
        prefetch(rows, i, bytes);
        const __m512i s = _mm512_loadu_si512(src + i);
        const __m512i d = _mm512_loadu_si512(dst + i);
        _mm512_storeu_si512(dst + i, blend255Avx512(s, d, weights, weights));
    }
    if (i < bytes) {
        const __mmask64 rest = (__mmask64{1} << (bytes - i)) - 1;
        const __m512i s = _mm512_maskz_loadu_epi8(rest, src + i);
        const __m512i d = _mm512_maskz_loadu_epi8(rest, dst + i);
        _mm512_mask_storeu_epi8(dst + i, rest, blend255Avx512(s, d, weights, weights));
    }
}

}  // namespace avx512

#endif

}  // namespace vidorra::alphablend
