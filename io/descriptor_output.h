#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace vidorra {

/// Writes all bytes to a descriptor, waiting for one that is full. Throws std::system_error, whose text
/// begins with "cannot write to" and `name`.
void writeAll(int descriptor, const std::uint8_t* data, std::size_t size, const std::string& name);

}  // namespace vidorra
