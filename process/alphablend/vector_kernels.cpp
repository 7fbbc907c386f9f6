// The kernels on vectors. One source in the compilers' vector extensions serves all widths: bytes are split
// into even and odd ones in 16-bit lanes, which no sum of the equations leaves. Thin functions compile it for
// each set of instructions, and the widest that the processor has is chosen at run time. On x86 the division
// by 255 of the packed formats is written in intrinsics, where a multiplication of bytes saves half of the
// work.
//
// Longer than other files: the sets stand in one, so that their templates are instantiated in no other place.

#include <array>
#include <cstdint>
#include <cstring>

#include "platform/cpu/instructions.h"
#include "process/alphablend/kernels.h"

// Vectors wider than the registers of the baseline never cross a call: all that handles them is inlined.
#pragma GCC diagnostic ignored "-Wpsabi"

#define VIDORRA_INLINE [[gnu::always_inline]] inline
// The same for lambdas.
#define VIDORRA_INLINED __attribute__((always_inline))

namespace vidorra::alphablend {
namespace {

// Columns between two prefetches and between two looks for runs of one alpha.
constexpr std::ptrdiff_t kBlock = 64;
// How far ahead the second prefetch goes. The next block alone comes too late for memory that is in no cache;
// a longer way is worth 10 to 20 % there.
constexpr std::ptrdiff_t kFarInRowPair = 512;
constexpr std::ptrdiff_t kFarInPackedRow = 2048;

// N bytes as 16-bit lanes. In memory order the even byte of each lane is its low one: only little-endian
// machines are supported.
template <int N>
struct Vector {
    using Type __attribute__((vector_size(N))) = std::uint16_t;
};
template <int N>
using Lanes = typename Vector<N>::Type;

template <int N>
VIDORRA_INLINE void load(Lanes<N>& lanes, const unsigned char* bytes) {
    std::memcpy(&lanes, bytes, N);
}

template <int N>
VIDORRA_INLINE void store(unsigned char* bytes, const Lanes<N>& lanes) {
    std::memcpy(bytes, &lanes, N);
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

template <int N>
VIDORRA_INLINE void fadeNv12Step(const RowPair& dst, const SourceRowPair& src, std::ptrdiff_t x,
                                 unsigned opacity) {
    fade<N>(dst.luma[0] + x, src.luma[0] + x, opacity);
    fade<N>(dst.luma[1] + x, src.luma[1] + x, opacity);
    fade<N>(dst.chroma + x, src.chroma + x, opacity);
}

// With kFull the opacity takes no part.
template <int N, bool kFull>
VIDORRA_INLINE void blendNva12Step(const RowPair& dst, const SourceRowPair& src, std::ptrdiff_t x,
                                   unsigned opacity) {
    const Lanes<N> low = Lanes<N>{} + static_cast<std::uint16_t>(0xff);
    Lanes<N> even[2];
    Lanes<N> odd[2];
    for (int row = 0; row < 2; ++row) {
        Lanes<N> alpha;
        load<N>(alpha, src.alpha[row] + x);
        even[row] = alpha & low;
        odd[row] = alpha >> 8;
        if constexpr (kFull) {
            blend<N>(dst.luma[row] + x, src.luma[row] + x, even[row], odd[row]);
        } else {
            blendFaded<N>(dst.luma[row] + x, src.luma[row] + x, even[row], odd[row], opacity);
        }
    }
    // A lane of two luma columns is the lane of the U,V pair below them.
    const Lanes<N> mean = (even[0] + odd[0] + even[1] + odd[1]) >> 2;
    if constexpr (kFull) {
        blend<N>(dst.chroma + x, src.chroma + x, mean, mean);
    } else {
        blendFaded<N>(dst.chroma + x, src.chroma + x, mean, mean, opacity);
    }
}

VIDORRA_INLINE void prefetch(const RowPair& dst, std::ptrdiff_t x) {
    __builtin_prefetch(dst.luma[0] + x, 1);
    __builtin_prefetch(dst.luma[1] + x, 1);
    __builtin_prefetch(dst.chroma + x, 1);
}

VIDORRA_INLINE void prefetch(const SourceRowPair& src, std::ptrdiff_t x) {
    __builtin_prefetch(src.luma[0] + x);
    __builtin_prefetch(src.luma[1] + x);
    __builtin_prefetch(src.chroma + x);
}

VIDORRA_INLINE void prefetchAlpha(const SourceRowPair& src, std::ptrdiff_t x) {
    __builtin_prefetch(src.alpha[0] + x);
    __builtin_prefetch(src.alpha[1] + x);
}

// Fetches the next block, and the one that lies `kFar` further on, which at the end of a row is in the next
// one.
template <std::ptrdiff_t kFar, class Fetch, class FetchNext>
VIDORRA_INLINE void fetchAhead(std::ptrdiff_t x, std::ptrdiff_t columns, const Fetch& fetch,
                               const FetchNext& fetchNext) {
    fetch(x + kBlock);
    if (x + kFar < columns) {
        fetch(x + kFar);
    } else if (x + kFar < 2 * columns) {
        fetchNext(x + kFar - columns);
    }
}

RowPair nextPair(const RowPair& rows) {
    return {{rows.luma[0] + rows.lumaStep, rows.luma[1] + rows.lumaStep}, rows.chroma + rows.chromaStep};
}

SourceRowPair nextPair(const SourceRowPair& rows) {
    SourceRowPair next = {
        {rows.luma[0] + rows.lumaStep, rows.luma[1] + rows.lumaStep}, rows.chroma + rows.chromaStep, {}};
    if (rows.alphaStep != 0) {
        next.alpha[0] = rows.alpha[0] + rows.alphaStep;
        next.alpha[1] = rows.alpha[1] + rows.alphaStep;
    }
    return next;
}

VIDORRA_INLINE void copyBlock(const RowPair& dst, const SourceRowPair& src, std::ptrdiff_t x) {
    std::memcpy(dst.luma[0] + x, src.luma[0] + x, kBlock);
    std::memcpy(dst.luma[1] + x, src.luma[1] + x, kBlock);
    std::memcpy(dst.chroma + x, src.chroma + x, kBlock);
}

// The last columns, less than a block: in ever smaller vectors, so that no byte outside of the row is
// touched.
template <int N, class Step>
VIDORRA_INLINE std::ptrdiff_t forTail(std::ptrdiff_t x, std::ptrdiff_t columns, const Step& step) {
    if constexpr (N >= 64) {
        if (columns - x >= 32) {
            step.template operator()<32>(x);
            x += 32;
        }
    } else {
        for (; columns - x >= N; x += N) {
            step.template operator()<N>(x);
        }
    }
    if (N > 16 && columns - x >= 16) {
        step.template operator()<16>(x);
        x += 16;
    }
    if (columns - x >= 8) {
        step.template operator()<8>(x);
        x += 8;
    }
    return x;
}

RowPair advanced(const RowPair& rows, std::ptrdiff_t x) {
    return {{rows.luma[0] + x, rows.luma[1] + x}, rows.chroma + x};
}

SourceRowPair advanced(const SourceRowPair& rows, std::ptrdiff_t x, bool hasAlpha) {
    return {{rows.luma[0] + x, rows.luma[1] + x},
            rows.chroma + x,
            {hasAlpha ? rows.alpha[0] + x : nullptr, hasAlpha ? rows.alpha[1] + x : nullptr}};
}

template <int N>
VIDORRA_INLINE void fadeNv12Rows(const RowPair& dst, const SourceRowPair& src, std::ptrdiff_t columns,
                                 unsigned opacity) {
    // Copies, which stay in registers while bytes are written.
    const RowPair to = dst;
    const SourceRowPair from = src;
    std::ptrdiff_t x = 0;
    const RowPair toNext = nextPair(to);
    const SourceRowPair fromNext = nextPair(from);
    for (; x + kBlock <= columns; x += kBlock) {
        fetchAhead<kFarInRowPair>(
            x, columns,
            [&](std::ptrdiff_t at) VIDORRA_INLINED {
                prefetch(to, at);
                prefetch(from, at);
            },
            [&](std::ptrdiff_t at) VIDORRA_INLINED {
                prefetch(toNext, at);
                prefetch(fromNext, at);
            });
        for (int i = 0; i < kBlock; i += N) {
            fadeNv12Step<N>(to, from, x + i, opacity);
        }
    }
    x = forTail<N>(
        x, columns, [&]<int M>(std::ptrdiff_t at) __attribute__((always_inline)) {
            fadeNv12Step<M>(to, from, at, opacity);
        });
    if (x < columns) {
        kPlainKernels.fadeNv12(advanced(to, x), advanced(from, x, false), columns - x, opacity);
    }
}

// `Alpha` looks at 64 bytes of both rows of alpha. Where all are 0 the equations give the destination, where
// all are 255, at full opacity, the source.
template <int N, bool kFull, class Alpha>
VIDORRA_INLINE void blendNva12Rows(const RowPair& dst, const SourceRowPair& src, std::ptrdiff_t columns,
                                   unsigned opacity) {
    const RowPair to = dst;
    const SourceRowPair from = src;
    std::ptrdiff_t x = 0;
    const RowPair toNext = nextPair(to);
    const SourceRowPair fromNext = nextPair(from);
    for (; x + kBlock <= columns; x += kBlock) {
        fetchAhead<kFarInRowPair>(
            x, columns, [&](std::ptrdiff_t at) VIDORRA_INLINED { prefetchAlpha(from, at); },
            [&](std::ptrdiff_t at) VIDORRA_INLINED { prefetchAlpha(fromNext, at); });
        if (Alpha::allTransparent(from.alpha[0] + x, from.alpha[1] + x)) {
            continue;
        }
        fetchAhead<kFarInRowPair>(
            x, columns,
            [&](std::ptrdiff_t at) VIDORRA_INLINED {
                prefetch(to, at);
                prefetch(from, at);
            },
            [&](std::ptrdiff_t at) VIDORRA_INLINED {
                prefetch(toNext, at);
                prefetch(fromNext, at);
            });
        if (kFull && Alpha::allOpaque(from.alpha[0] + x, from.alpha[1] + x)) {
            copyBlock(to, from, x);
            continue;
        }
        for (int i = 0; i < kBlock; i += N) {
            blendNva12Step<N, kFull>(to, from, x + i, opacity);
        }
    }
    x = forTail<N>(
        x, columns, [&]<int M>(std::ptrdiff_t at) __attribute__((always_inline)) {
            blendNva12Step<M, kFull>(to, from, at, opacity);
        });
    if (x < columns) {
        kPlainKernels.fadeNva12(advanced(to, x), advanced(from, x, true), columns - x, opacity);
    }
}

// The baseline: 16 bytes at a time, SSE2 and NEON.

using Words __attribute__((vector_size(16))) = std::uint64_t;

struct Alpha16 {
    static bool allTransparent(const unsigned char* row0, const unsigned char* row1) {
        Words any = {0, 0};
        for (int i = 0; i < kBlock; i += 16) {
            any |= words(row0 + i) | words(row1 + i);
        }
        return (any[0] | any[1]) == 0;
    }
    static bool allOpaque(const unsigned char* row0, const unsigned char* row1) {
        Words all = ~Words{0, 0};
        for (int i = 0; i < kBlock; i += 16) {
            all &= words(row0 + i) & words(row1 + i);
        }
        return ~(all[0] & all[1]) == 0;
    }

private:
    static Words words(const unsigned char* bytes) {
        Words result;
        std::memcpy(&result, bytes, sizeof(result));
        return result;
    }
};

void fadeNv12Vector16(const RowPair& dst, const SourceRowPair& src, std::ptrdiff_t columns,
                      unsigned opacity) {
    fadeNv12Rows<16>(dst, src, columns, opacity);
}

void blendNva12Vector16(const RowPair& dst, const SourceRowPair& src, std::ptrdiff_t columns) {
    blendNva12Rows<16, true, Alpha16>(dst, src, columns, 255);
}

void fadeNva12Vector16(const RowPair& dst, const SourceRowPair& src, std::ptrdiff_t columns,
                       unsigned opacity) {
    blendNva12Rows<16, false, Alpha16>(dst, src, columns, opacity);
}

VIDORRA_INLINE void prefetchPacked(const PackedRows& rows, std::ptrdiff_t at, std::ptrdiff_t bytes) {
    fetchAhead<kFarInPackedRow>(
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
        prefetchPacked(rows, i, bytes);
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

void blend32Vector16(const PackedRows& rows, std::ptrdiff_t pixels, int alphaOffset, unsigned opacity) {
    if (opacity == 255) {
        blend32RowVector16<true>(rows, pixels, alphaOffset, opacity);
    } else {
        blend32RowVector16<false>(rows, pixels, alphaOffset, opacity);
    }
}

void blend24Vector16(const PackedRows& rows, std::ptrdiff_t bytes, unsigned opacity) {
    unsigned char* const dst = rows.dst;
    const unsigned char* const src = rows.src;
    const Lanes<16> alpha = Lanes<16>{} + static_cast<std::uint16_t>(opacity);
    std::ptrdiff_t i = 0;
    for (; i + 16 <= bytes; i += 16) {
        prefetchPacked(rows, i, bytes);
        Lanes<16> s;
        load<16>(s, src + i);
        blend255Vector16(dst + i, s, alpha, alpha);
    }
    kPlainKernels.blend24(rest(rows, i), bytes - i, opacity);
}

constexpr Kernels kVector16 = {.name = "vector16",
                               .fadeNv12 = fadeNv12Vector16,
                               .blendNva12 = blendNva12Vector16,
                               .fadeNva12 = fadeNva12Vector16,
                               .blend32 = blend32Vector16,
                               .blend24 = blend24Vector16};

#if defined(__x86_64__)

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

// AVX2: 32 bytes at a time.

struct AlphaAvx2 {
    VIDORRA_AVX2 static bool allTransparent(const unsigned char* row0, const unsigned char* row1) {
        const __m256i any = _mm256_or_si256(_mm256_or_si256(bytes(row0), bytes(row0 + 32)),
                                            _mm256_or_si256(bytes(row1), bytes(row1 + 32)));
        return _mm256_testz_si256(any, any) != 0;
    }
    VIDORRA_AVX2 static bool allOpaque(const unsigned char* row0, const unsigned char* row1) {
        const __m256i all = _mm256_and_si256(_mm256_and_si256(bytes(row0), bytes(row0 + 32)),
                                             _mm256_and_si256(bytes(row1), bytes(row1 + 32)));
        return _mm256_testc_si256(all, _mm256_set1_epi8(-1)) != 0;
    }

private:
    VIDORRA_AVX2 static __m256i bytes(const unsigned char* row) {
        return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(row));
    }
};

VIDORRA_AVX2 void fadeNv12Avx2(const RowPair& dst, const SourceRowPair& src, std::ptrdiff_t columns,
                               unsigned opacity) {
    fadeNv12Rows<32>(dst, src, columns, opacity);
}

VIDORRA_AVX2 void blendNva12Avx2(const RowPair& dst, const SourceRowPair& src, std::ptrdiff_t columns) {
    blendNva12Rows<32, true, AlphaAvx2>(dst, src, columns, 255);
}

VIDORRA_AVX2 void fadeNva12Avx2(const RowPair& dst, const SourceRowPair& src, std::ptrdiff_t columns,
                                unsigned opacity) {
    blendNva12Rows<32, false, AlphaAvx2>(dst, src, columns, opacity);
}

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
        prefetchPacked(rows, 4 * i, 4 * pixels);
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
    blend32Vector16(rest(rows, 4 * i), pixels - i, alphaOffset, opacity);
}

VIDORRA_AVX2 void blend32Avx2(const PackedRows& rows, std::ptrdiff_t pixels, int alphaOffset,
                              unsigned opacity) {
    if (opacity == 255) {
        blend32RowAvx2<true>(rows, pixels, alphaOffset, opacity);
    } else {
        blend32RowAvx2<false>(rows, pixels, alphaOffset, opacity);
    }
}

VIDORRA_AVX2 void blend24Avx2(const PackedRows& rows, std::ptrdiff_t bytes, unsigned opacity) {
    unsigned char* const dst = rows.dst;
    const unsigned char* const src = rows.src;
    const __m256i weights = _mm256_set1_epi16(static_cast<short>((255 - opacity) << 8 | opacity));
    std::ptrdiff_t i = 0;
    for (; i + 32 <= bytes; i += 32) {
        prefetchPacked(rows, i, bytes);
        auto* to = reinterpret_cast<__m256i*>(dst + i);
        const __m256i s = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + i));
        _mm256_storeu_si256(to, blend255Avx2(s, _mm256_loadu_si256(to), weights, weights));
    }
    blend24Vector16(rest(rows, i), bytes - i, opacity);
}

constexpr Kernels kAvx2 = {.name = "avx2",
                           .fadeNv12 = fadeNv12Avx2,
                           .blendNva12 = blendNva12Avx2,
                           .fadeNva12 = fadeNva12Avx2,
                           .blend32 = blend32Avx2,
                           .blend24 = blend24Avx2};

// AVX-512: 64 bytes at a time.

struct AlphaAvx512 {
    VIDORRA_AVX512 static bool allTransparent(const unsigned char* row0, const unsigned char* row1) {
        const __m512i any = _mm512_or_si512(_mm512_loadu_si512(row0), _mm512_loadu_si512(row1));
        return _mm512_test_epi32_mask(any, any) == 0;
    }
    VIDORRA_AVX512 static bool allOpaque(const unsigned char* row0, const unsigned char* row1) {
        const __m512i all = _mm512_and_si512(_mm512_loadu_si512(row0), _mm512_loadu_si512(row1));
        return _mm512_cmpneq_epi32_mask(all, _mm512_set1_epi8(-1)) == 0;
    }
};

VIDORRA_AVX512 void fadeNv12Avx512(const RowPair& dst, const SourceRowPair& src, std::ptrdiff_t columns,
                                   unsigned opacity) {
    fadeNv12Rows<64>(dst, src, columns, opacity);
}

VIDORRA_AVX512 void blendNva12Avx512(const RowPair& dst, const SourceRowPair& src, std::ptrdiff_t columns) {
    blendNva12Rows<64, true, AlphaAvx512>(dst, src, columns, 255);
}

VIDORRA_AVX512 void fadeNva12Avx512(const RowPair& dst, const SourceRowPair& src, std::ptrdiff_t columns,
                                    unsigned opacity) {
    blendNva12Rows<64, false, AlphaAvx512>(dst, src, columns, opacity);
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
        prefetchPacked(rows, 4 * i, 4 * pixels);
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

VIDORRA_AVX512 void blend32Avx512(const PackedRows& rows, std::ptrdiff_t pixels, int alphaOffset,
                                  unsigned opacity) {
    if (opacity == 255) {
        blend32RowAvx512<true>(rows, pixels, alphaOffset, opacity);
    } else {
        blend32RowAvx512<false>(rows, pixels, alphaOffset, opacity);
    }
}

VIDORRA_AVX512 void blend24Avx512(const PackedRows& rows, std::ptrdiff_t bytes, unsigned opacity) {
    unsigned char* const dst = rows.dst;
    const unsigned char* const src = rows.src;
    const __m512i weights = _mm512_set1_epi16(static_cast<short>((255 - opacity) << 8 | opacity));
    std::ptrdiff_t i = 0;
    for (; i + 64 <= bytes; i += 64) {
        prefetchPacked(rows, i, bytes);
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

constexpr Kernels kAvx512 = {.name = "avx512",
                             .fadeNv12 = fadeNv12Avx512,
                             .blendNva12 = blendNva12Avx512,
                             .fadeNva12 = fadeNva12Avx512,
                             .blend32 = blend32Avx512,
                             .blend24 = blend24Avx512};

#endif

using Sets = cpu::KernelSets<Kernels, 4>;

Sets supportedSets() {
    Sets sets;
    sets.add(kPlainKernels);
    sets.add(kVector16);
#if defined(__x86_64__)
    if (cpu::hasAvx2()) {
        sets.add(kAvx2);
    }
    if (cpu::hasAvx512()) {
        sets.add(kAvx512);
    }
#endif
    return sets;
}

}  // namespace

std::span<const Kernels* const> supportedKernels() {
    static const Sets sets = supportedSets();
    return sets.all();
}

const Kernels& kernels() {
    return *supportedKernels().back();
}

}  // namespace vidorra::alphablend
