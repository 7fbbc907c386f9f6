#pragma once

#include <cstddef>
#include <cstdint>

namespace vidorra {

/// Whether an H.264 packet in Annex B form holds a sequence parameter set, a picture parameter set and an
/// IDR slice, in this order. Reads nothing outside the `size` bytes.
bool isH264KeyPacket(const std::uint8_t* data, std::size_t size);

}  // namespace vidorra
