// The kernels of the semi-planar formats on vectors, for all sets of instructions: their templates are
// instantiated nowhere else.
#include <cstdint>
#include <cstring>

#include "process/alphablend/vector_kernels.h"
#include "process/alphablend/vector_lanes.h"
#include "process/instructions.h"

namespace vidorra::alphablend {
namespace {

// How far ahead the second prefetch goes. The next block alone comes too late for memory that is in no cache;
// a longer way is worth 10 to 20 % there.
constexpr std::ptrdiff_t kFar = 512;

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
        fetchAhead<kFar>(
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
        fetchAhead<kFar>(
            x, columns, [&](std::ptrdiff_t at) VIDORRA_INLINED { prefetchAlpha(from, at); },
            [&](std::ptrdiff_t at) VIDORRA_INLINED { prefetchAlpha(fromNext, at); });
        if (Alpha::allTransparent(from.alpha[0] + x, from.alpha[1] + x)) {
            continue;
        }
        fetchAhead<kFar>(
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

}  // namespace

namespace vector16 {

void fadeNv12(const RowPair& dst, const SourceRowPair& src, std::ptrdiff_t columns, unsigned opacity) {
    fadeNv12Rows<16>(dst, src, columns, opacity);
}

void blendNva12(const RowPair& dst, const SourceRowPair& src, std::ptrdiff_t columns) {
    blendNva12Rows<16, true, Alpha16>(dst, src, columns, 255);
}

void fadeNva12(const RowPair& dst, const SourceRowPair& src, std::ptrdiff_t columns, unsigned opacity) {
    blendNva12Rows<16, false, Alpha16>(dst, src, columns, opacity);
}

}  // namespace vector16

#if defined(__x86_64__)

namespace {

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

}  // namespace

namespace avx2 {

VIDORRA_AVX2 void fadeNv12(const RowPair& dst, const SourceRowPair& src, std::ptrdiff_t columns,
                           unsigned opacity) {
    fadeNv12Rows<32>(dst, src, columns, opacity);
}

VIDORRA_AVX2 void blendNva12(const RowPair& dst, const SourceRowPair& src, std::ptrdiff_t columns) {
    blendNva12Rows<32, true, AlphaAvx2>(dst, src, columns, 255);
}

VIDORRA_AVX2 void fadeNva12(const RowPair& dst, const SourceRowPair& src, std::ptrdiff_t columns,
                            unsigned opacity) {
    blendNva12Rows<32, false, AlphaAvx2>(dst, src, columns, opacity);
}

}  // namespace avx2

namespace avx512 {

VIDORRA_AVX512 void fadeNv12(const RowPair& dst, const SourceRowPair& src, std::ptrdiff_t columns,
                             unsigned opacity) {
    fadeNv12Rows<64>(dst, src, columns, opacity);
}

VIDORRA_AVX512 void blendNva12(const RowPair& dst, const SourceRowPair& src, std::ptrdiff_t columns) {
    blendNva12Rows<64, true, AlphaAvx512>(dst, src, columns, 255);
}

VIDORRA_AVX512 void fadeNva12(const RowPair& dst, const SourceRowPair& src, std::ptrdiff_t columns,
                              unsigned opacity) {
    blendNva12Rows<64, false, AlphaAvx512>(dst, src, columns, opacity);
}

}  // namespace avx512

#endif

}  // namespace vidorra::alphablend
