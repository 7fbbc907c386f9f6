// The kernels of the packed formats on vectors, for all sets of instructions. On x86 the division by 255 is
// written in intrinsics, where a multiplication of bytes saves half of the work.
#include <cstdint>
#include <cstring>

#include "process/alphablend/vector_kernels.h"
#include "process/alphablend/vector_lanes.h"
#include "process/instructions.h"

namespace vidorra::alphablend {
namespace {

// What is left of a row from byte `at` on.
PackedRows rest(const PackedRows& rows, std::ptrdiff_t at) {
    return {rows.dst + at, rows.src + at};
}

// (t + 128) / 255, rounded down, of sums t + 128 that fit 16 bits.
VIDORRA_INLINE Lanes<16> dividedBy255(const Lanes<16>& sum) {
#if defined(__SSE2__)
    return (Lanes<16>)_mm_mulhi_epu16((__m128i)sum, _mm_set1_epi16(257));
#else
    return (sum + (sum >> 8)) >> 8;
#endif
}

// Samples in lanes, with the weights alpha and 255 - alpha.
VIDORRA_INLINE Lanes<16> blend255Lanes(Lanes<16> s, Lanes<16> d, Lanes<16> alpha) {
    const Lanes<16> complement = alpha ^ static_cast<std::uint16_t>(255);
    return dividedBy255(s * alpha + d * complement + static_cast<std::uint16_t>(128));
}

VIDORRA_INLINE void blend255Vector16(unsigned char* dst, const Lanes<16>& s, const Lanes<16>& alphaEven,
                                     const Lanes<16>& alphaOdd) {
    Lanes<16> d;
    load<16>(d, dst);
    const Lanes<16> low = Lanes<16>{} + static_cast<std::uint16_t>(0xff);
    store<16>(dst, blend255Lanes(s & low, d & low, alphaEven) | blend255Lanes(s >> 8, d >> 8, alphaOdd) << 8);
}

// A 16-bit lane for each half of four pixels, the same in all.
VIDORRA_INLINE Lanes<16> halves(std::uint16_t first, std::uint16_t second) {
    return Lanes<16>{first, second, first, second, first, second, first, second};
}

// Four pixels with their alpha in the byte at kAlpha. That byte gets the weight 0, so that the
// destination's stays.
template <int kAlpha, bool kFull>
VIDORRA_INLINE void blend32Step(unsigned char* dst, const unsigned char* src, unsigned opacity) {
    Lanes<16> s;
    load<16>(s, src);
    const Lanes<16> withAlpha = kAlpha % 2 == 0 ? s & static_cast<std::uint16_t>(0xff) : s >> 8;
    constexpr int kHalf = kAlpha / 2;
    Lanes<16> alpha = __builtin_shufflevector(withAlpha, withAlpha, kHalf, kHalf, 2 + kHalf, 2 + kHalf,
                                              4 + kHalf, 4 + kHalf, 6 + kHalf, 6 + kHalf);
    if constexpr (!kFull) {
        alpha = (alpha * static_cast<std::uint16_t>(opacity) + static_cast<std::uint16_t>(255)) >> 8;
    }
    const Lanes<16> colours = alpha & (kHalf == 0 ? halves(0, 0xff) : halves(0xff, 0));
    if constexpr (kAlpha % 2 == 0) {
        blend255Vector16(dst, s, colours, alpha);
    } else {
        blend255Vector16(dst, s, alpha, colours);
    }
}

// The alphas of two pixels.
constexpr std::uint64_t alphasOfTwo(int alphaOffset) {
    return std::uint64_t{0xff000000ff} << (8 * alphaOffset);
}

template <int kAlpha, bool kFull>
VIDORRA_INLINE void blend32RowVector16(const PackedRows& rows, std::ptrdiff_t pixels, unsigned opacity) {
    constexpr std::uint64_t kMask = alphasOfTwo(kAlpha);
    unsigned char* const dst = rows.dst;
    const unsigned char* const src = rows.src;
    const std::ptrdiff_t bytes = 4 * pixels;
    std::ptrdiff_t i = 0;
    for (; i + kBlock <= bytes; i += kBlock) {
        fetchAhead(dst + i, src + i);
        std::uint64_t any = 0;
        for (int j = 0; (any & kMask) == 0 && j < kBlock; j += 8) {
            any = wordAt(src + i + j);
        }
        if ((any & kMask) == 0) {
            continue;
        }
        for (int j = 0; j < kBlock; j += 16) {
            blend32Step<kAlpha, kFull>(dst + i + j, src + i + j, opacity);
        }
    }
    for (; i + 16 <= bytes; i += 16) {
        blend32Step<kAlpha, kFull>(dst + i, src + i, opacity);
    }
    kPlainKernels.blend32(rest(rows, i), (bytes - i) / 4, kAlpha, opacity);
}

template <bool kFull>
void blend32Vector16(const PackedRows& rows, std::ptrdiff_t pixels, int alphaOffset, unsigned opacity) {
    switch (alphaOffset) {
    case 0:
        return blend32RowVector16<0, kFull>(rows, pixels, opacity);
    case 1:
        return blend32RowVector16<1, kFull>(rows, pixels, opacity);
    case 2:
        return blend32RowVector16<2, kFull>(rows, pixels, opacity);
    default:
        return blend32RowVector16<3, kFull>(rows, pixels, opacity);
    }
}

}  // namespace

namespace vector16 {

void blend32(const PackedRows& rows, std::ptrdiff_t pixels, int alphaOffset, unsigned opacity) {
    if (opacity == 255) {
        blend32Vector16<true>(rows, pixels, alphaOffset, opacity);
    } else {
        blend32Vector16<false>(rows, pixels, alphaOffset, opacity);
    }
}

void blend24(const PackedRows& rows, std::ptrdiff_t bytes, unsigned opacity) {
    const Lanes<16> alpha = Lanes<16>{} + static_cast<std::uint16_t>(opacity);
    std::ptrdiff_t i = 0;
    for (; i + 16 <= bytes; i += 16) {
        Lanes<16> s;
        load<16>(s, rows.src + i);
        blend255Vector16(rows.dst + i, s, alpha, alpha);
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
    const std::ptrdiff_t bytes = 4 * pixels;
    const Spread& spread = kFull ? kSpread[alphaOffset] : kSpreadFaded[alphaOffset];
    const __m256i spreadLow = spreadAvx2(spread.low);
    const __m256i spreadHigh = spreadAvx2(spread.high);
    const __m256i complement = _mm256_set1_epi16(kComplement);
    const std::uint64_t two = alphasOfTwo(alphaOffset);
    const __m256i alphaMask = _mm256_set1_epi64x(static_cast<long long>(two));
    const __m128i alphaShift = _mm_cvtsi32_si128(8 * alphaOffset);
    const __m256i byteMask = _mm256_set1_epi32(0xff);
    const __m256i factor = _mm256_set1_epi32(static_cast<int>(opacity));
    const auto blended = [&](__m256i s, __m256i d) VIDORRA_AVX2 {
        __m256i alpha = s;
        if constexpr (!kFull) {
            alpha = _mm256_and_si256(_mm256_srl_epi32(s, alphaShift), byteMask);
            alpha = _mm256_srli_epi32(_mm256_add_epi32(_mm256_mullo_epi16(alpha, factor), byteMask), 8);
        }
        const __m256i weightsLow = _mm256_xor_si256(_mm256_shuffle_epi8(alpha, spreadLow), complement);
        const __m256i weightsHigh = _mm256_xor_si256(_mm256_shuffle_epi8(alpha, spreadHigh), complement);
        return blend255Avx2(s, d, weightsLow, weightsHigh);
    };
    std::ptrdiff_t i = 0;
    for (; i + kBlock <= bytes; i += kBlock) {
        fetchAhead(dst + i, src + i);
        const __m256i s[] = {load32(src + i), load32(src + i + 32)};
        // A look at two pixels alone costs next to nothing where there are no runs.
        const std::uint64_t first = wordAt(src + i) & two;
        if (first == 0 && _mm256_testz_si256(_mm256_or_si256(s[0], s[1]), alphaMask) != 0) {
            continue;
        }
        const __m256i d[] = {load32(dst + i), load32(dst + i + 32)};
        if (kFull && first == two && _mm256_testc_si256(_mm256_and_si256(s[0], s[1]), alphaMask) != 0) {
            store32(dst + i, _mm256_blendv_epi8(s[0], d[0], alphaMask));
            store32(dst + i + 32, _mm256_blendv_epi8(s[1], d[1], alphaMask));
            continue;
        }
        store32(dst + i, blended(s[0], d[0]));
        store32(dst + i + 32, blended(s[1], d[1]));
    }
    if (i + 32 <= bytes) {
        store32(dst + i, blended(load32(src + i), load32(dst + i)));
        i += 32;
    }
    vector16::blend32(rest(rows, i), (bytes - i) / 4, alphaOffset, opacity);
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
    const std::uint64_t two = alphasOfTwo(alphaOffset);
    const __m512i alphaMask = _mm512_set1_epi64(static_cast<long long>(two));
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
        fetchAhead(dst + 4 * i, src + 4 * i);
        const __m512i s = _mm512_loadu_si512(src + 4 * i);
        const std::uint64_t first = wordAt(src + 4 * i) & two;
        if (first == 0 && _mm512_test_epi32_mask(s, alphaMask) == 0) {
            continue;
        }
        const __m512i d = _mm512_loadu_si512(dst + 4 * i);
        if (kFull && first == two &&
            _mm512_cmpneq_epi32_mask(_mm512_and_si512(s, alphaMask), alphaMask) == 0) {
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
    for (; i + 64 <= bytes; i += 64) {
        fetchAhead(dst + i, src + i);
        store32(dst + i, blend255Avx2(load32(src + i), load32(dst + i), weights, weights));
        store32(dst + i + 32, blend255Avx2(load32(src + i + 32), load32(dst + i + 32), weights, weights));
    }
    if (i + 32 <= bytes) {
        store32(dst + i, blend255Avx2(load32(src + i), load32(dst + i), weights, weights));
        i += 32;
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
        fetchAhead(dst + i, src + i);
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
