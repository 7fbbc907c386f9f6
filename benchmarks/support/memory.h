#pragma once

#include <cstddef>
#include <memory>
#include <new>

namespace vidorra::bench {

/// The alignment of pictures and their rows, in bytes.
inline constexpr std::size_t kAlignment = 64;

struct FreeAligned {
    void operator()(unsigned char* bytes) const { ::operator delete[](bytes, std::align_val_t{kAlignment}); }
};

/// Heap memory for pictures.
using Memory = std::unique_ptr<unsigned char[], FreeAligned>;

/// Memory filled with noise, so that no page has to be allocated during a measurement. The same size gives
/// the same bytes.
Memory makeMemory(std::size_t size);

}  // namespace vidorra::bench
