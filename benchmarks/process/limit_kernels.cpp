#include "limit_kernels.h"

#include <cstdint>
#include <cstring>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace vidorra::bench {
namespace {

template <std::size_t N>
__attribute__((always_inline)) inline unsigned char anyOf(const unsigned char* src, std::size_t size) {
    using Vector __attribute__((vector_size(N))) = unsigned char;
    // Several, so that none waits for the one before.
    Vector any[4] = {};
    Vector loaded;
    std::size_t i = 0;
    for (; i + 4 * N <= size; i += 4 * N) {
        for (std::size_t k = 0; k < 4; ++k) {
            std::memcpy(&loaded, src + i + k * N, N);
            any[k] |= loaded;
        }
    }
    for (; i + N <= size; i += N) {
        std::memcpy(&loaded, src + i, N);
        any[0] |= loaded;
    }
    any[0] |= any[1] | any[2] | any[3];
    unsigned char all[N];
    std::memcpy(all, any, N);
    unsigned char result = 0;
    for (const unsigned char each : all) {
        result |= each;
    }
    for (; i < size; ++i) {
        result |= src[i];
    }
    return result;
}

unsigned char anyVector16(const unsigned char* src, std::size_t size) {
    return anyOf<16>(src, size);
}

#if defined(__x86_64__)

void average2Vector16(unsigned char* dst, const unsigned char* src, std::size_t size) {
    for (std::size_t i = 0; i + 16 <= size; i += 16) {
        auto* d = reinterpret_cast<__m128i*>(dst + i);
        const __m128i s = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i));
        _mm_storeu_si128(d, _mm_avg_epu8(_mm_loadu_si128(d), s));
    }
}

void average3Vector16(unsigned char* dst, const unsigned char* src, const unsigned char* alpha,
                      std::size_t size) {
    for (std::size_t i = 0; i + 16 <= size; i += 16) {
        auto* d = reinterpret_cast<__m128i*>(dst + i);
        const __m128i s = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i));
        const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(alpha + i));
        _mm_storeu_si128(d, _mm_avg_epu8(_mm_avg_epu8(_mm_loadu_si128(d), s), a));
    }
}

__attribute__((target("avx2"))) void average2Avx2(unsigned char* dst, const unsigned char* src,
                                                  std::size_t size) {
    for (std::size_t i = 0; i + 32 <= size; i += 32) {
        auto* d = reinterpret_cast<__m256i*>(dst + i);
        const __m256i s = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + i));
        _mm256_storeu_si256(d, _mm256_avg_epu8(_mm256_loadu_si256(d), s));
    }
}

__attribute__((target("avx2"))) void average3Avx2(unsigned char* dst, const unsigned char* src,
                                                  const unsigned char* alpha, std::size_t size) {
    for (std::size_t i = 0; i + 32 <= size; i += 32) {
        auto* d = reinterpret_cast<__m256i*>(dst + i);
        const __m256i s = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + i));
        const __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(alpha + i));
        _mm256_storeu_si256(d, _mm256_avg_epu8(_mm256_avg_epu8(_mm256_loadu_si256(d), s), a));
    }
}

__attribute__((target("avx512f,avx512bw"))) void average2Avx512(unsigned char* dst, const unsigned char* src,
                                                                std::size_t size) {
    for (std::size_t i = 0; i + 64 <= size; i += 64) {
        const __m512i d = _mm512_loadu_si512(dst + i);
        _mm512_storeu_si512(dst + i, _mm512_avg_epu8(d, _mm512_loadu_si512(src + i)));
    }
}

__attribute__((target("avx512f,avx512bw"))) void average3Avx512(unsigned char* dst, const unsigned char* src,
                                                                const unsigned char* alpha,
                                                                std::size_t size) {
    for (std::size_t i = 0; i + 64 <= size; i += 64) {
        const __m512i d = _mm512_avg_epu8(_mm512_loadu_si512(dst + i), _mm512_loadu_si512(src + i));
        _mm512_storeu_si512(dst + i, _mm512_avg_epu8(d, _mm512_loadu_si512(alpha + i)));
    }
}

__attribute__((target("avx2"))) unsigned char anyAvx2(const unsigned char* src, std::size_t size) {
    return anyOf<32>(src, size);
}

__attribute__((target("avx512f,avx512bw"))) unsigned char anyAvx512(const unsigned char* src,
                                                                    std::size_t size) {
    return anyOf<64>(src, size);
}

constexpr LimitKernels kLimits[] = {{"vector16", average2Vector16, average3Vector16, anyVector16},
                                    {"avx2", average2Avx2, average3Avx2, anyAvx2},
                                    {"avx512", average2Avx512, average3Avx512, anyAvx512}};

#else

using Bytes __attribute__((vector_size(16))) = std::uint8_t;

// Rounding down, which costs one instruction less than rounding up.
void average2Vector16(unsigned char* dst, const unsigned char* src, std::size_t size) {
    for (std::size_t i = 0; i + 16 <= size; i += 16) {
        Bytes d;
        Bytes s;
        std::memcpy(&d, dst + i, 16);
        std::memcpy(&s, src + i, 16);
        d = (d & s) + ((d ^ s) >> 1);
        std::memcpy(dst + i, &d, 16);
    }
}

void average3Vector16(unsigned char* dst, const unsigned char* src, const unsigned char* alpha,
                      std::size_t size) {
    for (std::size_t i = 0; i + 16 <= size; i += 16) {
        Bytes d;
        Bytes s;
        Bytes a;
        std::memcpy(&d, dst + i, 16);
        std::memcpy(&s, src + i, 16);
        std::memcpy(&a, alpha + i, 16);
        d = (d & s) + ((d ^ s) >> 1);
        d = (d & a) + ((d ^ a) >> 1);
        std::memcpy(dst + i, &d, 16);
    }
}

constexpr LimitKernels kLimits[] = {{"vector16", average2Vector16, average3Vector16, anyVector16}};

#endif

}  // namespace

const LimitKernels& limitKernels(std::string_view name) {
    for (const LimitKernels& limit : kLimits) {
        if (limit.name == name) {
            return limit;
        }
    }
    return kLimits[0];
}

}  // namespace vidorra::bench
