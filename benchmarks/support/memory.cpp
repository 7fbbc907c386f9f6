#include "support/memory.h"

#include <cstdint>

namespace vidorra::bench {

Memory makeMemory(std::size_t size) {
    Memory memory(static_cast<unsigned char*>(::operator new[](size, std::align_val_t{kAlignment})));
    std::uint32_t state = 1;
    for (std::size_t i = 0; i < size; ++i) {
        state = state * 1664525 + 1013904223;
        memory[i] = static_cast<unsigned char>(state >> 24);
    }
    return memory;
}

}  // namespace vidorra::bench
