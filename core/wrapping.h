#pragma once

#include <cstdint>

namespace vidorra {

/// Arithmetic on time stamps that wraps, since files contain unset and extreme stamps.
constexpr std::int64_t wrappingAdd(std::int64_t a, std::int64_t b) {
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(a) + static_cast<std::uint64_t>(b));
}

constexpr std::int64_t wrappingSubtract(std::int64_t a, std::int64_t b) {
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(a) - static_cast<std::uint64_t>(b));
}

constexpr std::int64_t wrappingMultiply(std::int64_t a, std::int64_t b) {
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(a) * static_cast<std::uint64_t>(b));
}

}  // namespace vidorra
