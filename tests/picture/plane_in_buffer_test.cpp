#include "picture/plane_in_buffer.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>

namespace vidorra {
namespace {

TEST(PlaneInBuffer, FromTheFirstByteUpToTheLast) {
    std::array<std::uint8_t, 30> memory{};
    std::uint8_t* start = memory.data() + 10;
    EXPECT_FALSE(isInBuffer(start - 1, start, 10));
    EXPECT_TRUE(isInBuffer(start, start, 10));
    EXPECT_TRUE(isInBuffer(start + 9, start, 10));
    EXPECT_FALSE(isInBuffer(start + 10, start, 10));
    EXPECT_FALSE(isInBuffer(start, start, 0));
}

TEST(PlaneInBuffer, NoPlaneLiesNowhereAndNothingLiesInNoBuffer) {
    std::uint8_t byte = 0;
    EXPECT_FALSE(isInBuffer(nullptr, &byte, 1));
    EXPECT_FALSE(isInBuffer(nullptr, nullptr, 10));
    EXPECT_FALSE(isInBuffer(&byte, nullptr, SIZE_MAX));
    EXPECT_FALSE(isInBuffer(&byte, MemBuffer()));
}

// Addresses compare without sign: the upper half of the address space is above the lower.
TEST(PlaneInBuffer, AddressesHaveNoSign) {
    const auto* low = reinterpret_cast<const std::uint8_t*>(std::uintptr_t{0x7ffffffffffffff0});
    const auto* high = reinterpret_cast<const std::uint8_t*>(std::uintptr_t{0x8000000000000010});
    EXPECT_TRUE(isInBuffer(high, low, 0x40));
    EXPECT_FALSE(isInBuffer(low, high, 0x40));
}

TEST(PlaneInBuffer, TakesTheMemoryOfABuffer) {
    const MemBuffer buffer(16, true);
    EXPECT_TRUE(isInBuffer(buffer.data() + 15, buffer));
    EXPECT_FALSE(isInBuffer(buffer.data() + 16, buffer));
}

}  // namespace
}  // namespace vidorra
