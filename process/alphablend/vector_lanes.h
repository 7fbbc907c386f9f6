#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "process/instructions.h"

// What the kernels on vectors share. Vectors wider than the registers of the baseline never cross a call: all
// that handles them is inlined.
#pragma GCC diagnostic ignored "-Wpsabi"

#define VIDORRA_INLINE [[gnu::always_inline]] inline
// The same for lambdas.
#define VIDORRA_INLINED __attribute__((always_inline))

namespace vidorra::alphablend {

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

VIDORRA_INLINE std::uint64_t wordAt(const unsigned char* bytes) {
    std::uint64_t word = 0;
    std::memcpy(&word, bytes, sizeof(word));
    return word;
}

#if defined(__x86_64__)
VIDORRA_AVX2 inline __m256i load32(const unsigned char* bytes) {
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(bytes));
}

VIDORRA_AVX2 inline void store32(unsigned char* bytes, __m256i vector) {
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(bytes), vector);
}
#endif

// Columns or bytes between two looks for runs of one alpha.
constexpr std::ptrdiff_t kBlock = 64;

// Fetches what lies a little further on, in these rows or, as a rule, the next ones. It gains where
// arithmetic and memory keep each other waiting, as in the packed formats, and costs where many streams or
// little arithmetic leave the work to the hardware. Addresses past the end of a picture do no harm here, but
// would as pointers.
VIDORRA_INLINE void fetchAhead(const unsigned char* dst, const unsigned char* src) {
    constexpr std::uintptr_t kFar = 1024;
    // NOLINTBEGIN(performance-no-int-to-ptr): nothing is read through them.
    __builtin_prefetch(reinterpret_cast<const void*>(reinterpret_cast<std::uintptr_t>(dst) + kFar), 1);
    __builtin_prefetch(reinterpret_cast<const void*>(reinterpret_cast<std::uintptr_t>(src) + kFar));
    // NOLINTEND(performance-no-int-to-ptr)
}

}  // namespace vidorra::alphablend
