#include "audio/plane_pool.h"

#include <gtest/gtest.h>
#include <malloc.h>

#include <climits>
#include <cstring>
#include <new>
#include <optional>

extern "C" {
#include <libavutil/mem.h>
}

namespace vidorra {
namespace {

TEST(PlanePool, GivesPrivateMemoryOfTheSizeAskedFor) {
    PlanePool pool;
    for (const std::size_t size : {0U, 1U, 100U, 1024U, 5000U, 100000U}) {
        const MemBuffer plane = pool.get(size);
        EXPECT_EQ(plane.size(), size);
        EXPECT_TRUE(plane.writeable());
        std::memset(plane.data(), 1, size);
    }
}

TEST(PlanePool, GivesMemoryAgainWhenItsLastReferenceIsGone) {
    PlanePool pool;
    std::optional<MemBuffer> first = pool.get(5000);
    std::optional<MemBuffer> copy = first;
    const std::uint8_t* place = first->data();
    first.reset();
    EXPECT_NE(pool.get(5000).data(), place);
    copy.reset();
    const MemBuffer again = pool.get(5100);
    EXPECT_EQ(again.data(), place);
    EXPECT_EQ(again.size(), 5100U);
}

TEST(PlanePool, APlaneDoesNotHoldAMuchLargerBlock) {
    PlanePool pool;
    EXPECT_EQ(pool.get(1 << 20).size(), 1U << 20);
    for (const std::size_t size : {200000U, 30000U, 4000U, 500U}) {
        const MemBuffer plane = pool.get(size);
        EXPECT_LT(malloc_usable_size(plane.data()), 9 * size);
    }
}

TEST(PlanePool, ItsPlanesOutliveIt) {
    std::optional<PlanePool> pool(std::in_place);
    const MemBuffer small = pool->get(100);
    const MemBuffer large = pool->get(100000);
    pool.reset();
    std::memset(small.data(), 1, small.size());
    std::memset(large.data(), 2, large.size());
    EXPECT_EQ(small.data()[99], 1);
}

TEST(PlanePool, WithoutMemoryItGivesNothingAndGoesOn) {
    PlanePool pool;
    EXPECT_THROW(static_cast<void>(pool.get(std::size_t{1} << 40)), std::bad_alloc);
    EXPECT_EQ(pool.get(100).size(), 100U);
    av_max_alloc(1);
    EXPECT_THROW(static_cast<void>(pool.get(100000)), std::bad_alloc);
    av_max_alloc(INT_MAX);
    EXPECT_EQ(pool.get(100000).size(), 100000U);
}

}  // namespace
}  // namespace vidorra
