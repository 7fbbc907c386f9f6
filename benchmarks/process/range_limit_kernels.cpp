#include "range_limit_kernels.h"

#include <cstdlib>
#include <cstring>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

#if defined(__GNUC__) && !defined(__clang__)
// False alarms of GCC 12 about its own AVX-512 intrinsics.
#pragma GCC diagnostic ignored "-Wuninitialized"
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

namespace vidorra::bench {
namespace {

#if defined(__x86_64__)

__attribute__((target("avx2"))) void copyAvx2(unsigned char* dst, const unsigned char* src,
                                              std::ptrdiff_t count) {
    for (std::ptrdiff_t i = 0; i + 32 <= count; i += 32) {
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + i),
                            _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + i)));
    }
}

__attribute__((target("avx2"))) void splitAvx2(unsigned char* u, unsigned char* v, const unsigned char* src,
                                               std::ptrdiff_t pairs) {
    const __m256i evenBytes = _mm256_set1_epi16(0xff);
    for (std::ptrdiff_t i = 0; i + 32 <= pairs; i += 32) {
        const __m256i first = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + 2 * i));
        const __m256i second = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + 2 * i + 32));
        const __m256i us =
            _mm256_packus_epi16(_mm256_and_si256(first, evenBytes), _mm256_and_si256(second, evenBytes));
        const __m256i vs = _mm256_packus_epi16(_mm256_srli_epi16(first, 8), _mm256_srli_epi16(second, 8));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(u + i),
                            _mm256_permute4x64_epi64(us, _MM_SHUFFLE(3, 1, 2, 0)));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(v + i),
                            _mm256_permute4x64_epi64(vs, _MM_SHUFFLE(3, 1, 2, 0)));
    }
}

__attribute__((target("avx512f,avx512bw"))) void copyAvx512(unsigned char* dst, const unsigned char* src,
                                                            std::ptrdiff_t count) {
    for (std::ptrdiff_t i = 0; i + 64 <= count; i += 64) {
        _mm512_storeu_si512(dst + i, _mm512_loadu_si512(src + i));
    }
}

__attribute__((target("avx512f,avx512bw"))) void splitAvx512(unsigned char* u, unsigned char* v,
                                                             const unsigned char* src, std::ptrdiff_t pairs) {
    for (std::ptrdiff_t i = 0; i + 32 <= pairs; i += 32) {
        const __m512i both = _mm512_loadu_si512(src + 2 * i);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(u + i), _mm512_cvtepi16_epi8(both));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(v + i),
                            _mm512_cvtepi16_epi8(_mm512_srli_epi16(both, 8)));
    }
}

constexpr RangeLimitKernels kLimits[] = {{"avx2", copyAvx2, splitAvx2}, {"avx512", copyAvx512, splitAvx512}};

#else

using Bytes __attribute__((vector_size(16))) = unsigned char;

void copyVector16(unsigned char* dst, const unsigned char* src, std::ptrdiff_t count) {
    for (std::ptrdiff_t i = 0; i + 16 <= count; i += 16) {
        Bytes bytes;
        std::memcpy(&bytes, src + i, 16);
        std::memcpy(dst + i, &bytes, 16);
    }
}

void splitVector16(unsigned char* u, unsigned char* v, const unsigned char* src, std::ptrdiff_t pairs) {
    for (std::ptrdiff_t i = 0; i + 16 <= pairs; i += 16) {
        Bytes first;
        Bytes second;
        std::memcpy(&first, src + 2 * i, 16);
        std::memcpy(&second, src + 2 * i + 16, 16);
        const Bytes us =
            __builtin_shufflevector(first, second, 0, 2, 4, 6, 8, 10, 12, 14, 16, 18, 20, 22, 24, 26, 28, 30);
        const Bytes vs =
            __builtin_shufflevector(first, second, 1, 3, 5, 7, 9, 11, 13, 15, 17, 19, 21, 23, 25, 27, 29, 31);
        std::memcpy(u + i, &us, 16);
        std::memcpy(v + i, &vs, 16);
    }
}

constexpr RangeLimitKernels kLimits[] = {{"neon", copyVector16, splitVector16}};

#endif

}  // namespace

const RangeLimitKernels& rangeLimitKernels(std::string_view name) {
    for (const RangeLimitKernels& limit : kLimits) {
        if (limit.name == name) {
            return limit;
        }
    }
    std::abort();
}

}  // namespace vidorra::bench
