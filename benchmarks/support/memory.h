#pragma once

#include <cstddef>
#include <memory>
#include <new>

namespace vidorra::bench {

/// What pictures and their rows begin at multiples of.
inline constexpr std::size_t kAlignment = 64;

struct FreeAligned {
    void operator()(unsigned char* bytes) const { ::operator delete[](bytes, std::align_val_t{kAlignment}); }
};

/// Memory of the heap for pictures.
using Memory = std::unique_ptr<unsigned char[], FreeAligned>;

/// Filled with noise, so that no page of it has to be made while something is timed. The same size gives the
/// same bytes.
Memory makeMemory(std::size_t size);

}  // namespace vidorra::bench
