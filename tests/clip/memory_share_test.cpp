#include "clip/memory_share.h"

#include <gtest/gtest.h>

namespace vidorra {
namespace {

constexpr std::size_t kMebibyte = std::size_t{1} << 20;

TEST(MemoryShare, IsFullAtItsOwnMost) {
    MemoryShare share(10 * kMebibyte);
    EXPECT_FALSE(share.full());
    share.add(10 * kMebibyte - 1);
    EXPECT_FALSE(share.full());
    share.add(1);
    EXPECT_TRUE(share.full());
    share.remove(1);
    EXPECT_FALSE(share.full());
}

TEST(MemoryShare, IsFullWhenTheProcessIsButForASmallShare) {
    MemoryShare others(2 * MemoryShare::kMostOfProcess);
    MemoryShare share(256 * kMebibyte);
    share.add(MemoryShare::kAlwaysSpared);
    EXPECT_FALSE(share.full());
    others.add(MemoryShare::kMostOfProcess - MemoryShare::kAlwaysSpared);
    EXPECT_TRUE(share.full());
    share.remove(1);
    EXPECT_FALSE(share.full());
}

TEST(MemoryShare, IsGivenBackAtItsEnd) {
    MemoryShare share(256 * kMebibyte);
    share.add(MemoryShare::kAlwaysSpared);
    {
        MemoryShare others(2 * MemoryShare::kMostOfProcess);
        others.add(MemoryShare::kMostOfProcess);
        EXPECT_TRUE(share.full());
    }
    EXPECT_FALSE(share.full());
}

}  // namespace
}  // namespace vidorra
