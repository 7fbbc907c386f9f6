#pragma once

#include <cstdint>

#include "vidorra/picture/mem_buffer.h"

namespace vidorra {

/// Whether a plane starts in a buffer. A null plane is in no buffer, and a plane that starts at the end of a
/// buffer is not in it.
inline bool isInBuffer(const std::uint8_t* plane, const std::uint8_t* start, std::size_t size) {
    const auto address = reinterpret_cast<std::uintptr_t>(plane);
    const auto begin = reinterpret_cast<std::uintptr_t>(start);
    return plane != nullptr && start != nullptr && begin <= address && address - begin < size;
}

inline bool isInBuffer(const std::uint8_t* plane, const MemBuffer& buffer) {
    return isInBuffer(plane, buffer.data(), buffer.size());
}

}  // namespace vidorra
