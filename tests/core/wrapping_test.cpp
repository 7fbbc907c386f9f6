#include "core/wrapping.h"

#include <limits>

namespace vidorra {
namespace {

constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();

// Usable in constant expressions too, where the compiler refuses an overflow.
static_assert(wrappingAdd(kMax, 1) == kMin);
static_assert(wrappingSubtract(kMin, 1) == kMax);
static_assert(wrappingMultiply(kMin, -1) == kMin);

TEST(Wrapping, IsOrdinaryArithmeticInRange) {
    EXPECT_EQ(wrappingAdd(-5, 7), 2);
    EXPECT_EQ(wrappingSubtract(-5, 7), -12);
    EXPECT_EQ(wrappingMultiply(-5, 7), -35);
}

TEST(Wrapping, GoesOnAtTheOtherEndBeyond64Bits) {
    EXPECT_EQ(wrappingAdd(kMin, kMin), 0);
    EXPECT_EQ(wrappingAdd(kMax, kMax), -2);
    EXPECT_EQ(wrappingSubtract(0, kMin), kMin);
    EXPECT_EQ(wrappingSubtract(kMax, kMin), -1);
    EXPECT_EQ(wrappingMultiply(kMax, 2), -2);
    EXPECT_EQ(wrappingMultiply(std::int64_t{1} << 32, std::int64_t{1} << 32), 0);
}

}  // namespace
}  // namespace vidorra
