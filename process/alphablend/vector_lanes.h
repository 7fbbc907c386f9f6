#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

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

using Words __attribute__((vector_size(16))) = std::uint64_t;

// Columns between two prefetches and between two looks for runs of one alpha.
constexpr std::ptrdiff_t kBlock = 64;

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

}  // namespace vidorra::alphablend
