#include "vidorra/picture/mem_buffer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <latch>
#include <new>
#include <stdexcept>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "picture_probe.h"
#include "support/throw_text.h"

namespace vidorra {
namespace {

using test::AllocationLimit;
using test::Arena;
using test::BufferPtr;
using test::kNothing;

// One pointer and nothing else, and moving or asking cannot fail.
static_assert(sizeof(MemBuffer) == sizeof(AVBufferRef*));
static_assert(std::is_nothrow_default_constructible_v<MemBuffer>);
static_assert(std::is_nothrow_constructible_v<MemBuffer, AVBufferRef**>);
static_assert(std::is_nothrow_move_constructible_v<MemBuffer>);
static_assert(std::is_nothrow_move_assignable_v<MemBuffer>);
static_assert(std::is_nothrow_destructible_v<MemBuffer>);
static_assert(!std::is_nothrow_copy_constructible_v<MemBuffer>);
static_assert(!std::is_nothrow_copy_assignable_v<MemBuffer>);
static_assert(noexcept(std::declval<MemBuffer&>().reset(nullptr)));
static_assert(noexcept(std::declval<const MemBuffer&>().useCount()));
static_assert(noexcept(std::declval<const MemBuffer&>().writeable()));
static_assert(noexcept(std::declval<const MemBuffer&>().isDMA()));
static_assert(noexcept(std::declval<const MemBuffer&>().isExternal()));
static_assert(noexcept(std::declval<const MemBuffer&>().flush()));
static_assert(std::is_same_v<decltype(std::declval<const MemBuffer&>().useCount()), long>);

constexpr const char* kCannotMark = "Cannot mark non-writeable buffer as modified";

std::vector<std::uint8_t> bytesOf(const MemBuffer& buffer) {
    return {buffer.data(), buffer.data() + buffer.size()};
}

// 64 bytes that count from 0.
MemBuffer countingBuffer() {
    MemBuffer buffer(64, false);
    for (int i = 0; i < 64; ++i) {
        buffer.data()[i] = static_cast<std::uint8_t>(i);
    }
    return buffer;
}

void expectEmpty(const MemBuffer& buffer) {
    EXPECT_TRUE(buffer.empty());
    EXPECT_EQ(buffer.data(), nullptr);
    EXPECT_EQ(buffer.size(), 0U);
    EXPECT_EQ(buffer.useCount(), 0);
}

TEST(MemBuffer, WithoutMemoryItIsEmptyAndHasNoProperties) {
    const MemBuffer buffer;
    expectEmpty(buffer);
    EXPECT_FALSE(buffer.writeable());
    EXPECT_FALSE(buffer.isDMA());
    EXPECT_FALSE(buffer.isExternal());
    EXPECT_EQ(buffer.createBufferRef(), nullptr);
}

TEST(MemBuffer, FlushOfAnEmptyBufferDoesNothing) {
    const MemBuffer buffer;
    buffer.flush();
    expectEmpty(buffer);
}

TEST(MemBuffer, AnEmptyBufferCannotBeMarkedModified) {
    MemBuffer buffer;
    EXPECT_THROW_TEXT(std::logic_error, kCannotMark, buffer.markModified());
}

TEST(MemBuffer, AnEmptyBufferCannotBeMadeWriteable) {
    MemBuffer buffer;
    EXPECT_THROW_TEXT(std::logic_error, "Empty buffer cannot be writeable", buffer.makeWriteable());
    expectEmpty(buffer);
}

TEST(MemBuffer, NewMemoryIsPrivateHeapMemoryOfTheGivenSize) {
    for (const bool zero : {false, true}) {
        SCOPED_TRACE(zero);
        MemBuffer buffer(1000, zero);
        EXPECT_FALSE(buffer.empty());
        ASSERT_NE(buffer.data(), nullptr);
        EXPECT_EQ(buffer.size(), 1000U);
        EXPECT_EQ(buffer.useCount(), 1);
        EXPECT_TRUE(buffer.writeable());
        EXPECT_FALSE(buffer.isDMA());
        EXPECT_FALSE(buffer.isExternal());
        std::memset(buffer.data(), 7, buffer.size());
        EXPECT_NO_THROW(buffer.markModified());
        EXPECT_EQ(std::count(buffer.data(), buffer.data() + 1000, 7), 1000);
    }
}

TEST(MemBuffer, ZeroedMemoryIsZeroWhereOtherMemoryWasBefore) {
    for (int round = 0; round < 16; ++round) {
        MemBuffer dirty(4096, false);
        std::memset(dirty.data(), 0xa5, dirty.size());
        dirty.reset(nullptr);
        const MemBuffer buffer(4096, true);
        ASSERT_EQ(std::count(buffer.data(), buffer.data() + 4096, 0), 4096);
    }
}

TEST(MemBuffer, ZeroBytesAreABufferAllTheSame) {
    const MemBuffer buffer(0, false);
    EXPECT_FALSE(buffer.empty());
    EXPECT_EQ(buffer.size(), 0U);
    EXPECT_EQ(buffer.useCount(), 1);
}

TEST(MemBuffer, NegativeSizesAreRefusedAsShortageOfMemory) {
    for (const int size : {-1, -4096, INT32_MIN}) {
        SCOPED_TRACE(size);
        EXPECT_THROW(MemBuffer(size, false), std::bad_alloc);
        EXPECT_THROW(MemBuffer(size, true), std::bad_alloc);
    }
}

TEST(MemBuffer, TakesANewReferenceFromAPlainPointer) {
    Arena arena(64);
    const BufferPtr ref = arena.buffer(0, 64);
    {
        const MemBuffer buffer(ref.get());
        EXPECT_EQ(buffer.data(), arena.at(0));
        EXPECT_EQ(buffer.size(), 64U);
        EXPECT_EQ(buffer.useCount(), 2);
        EXPECT_EQ(av_buffer_get_ref_count(ref.get()), 2);
    }
    EXPECT_EQ(av_buffer_get_ref_count(ref.get()), 1);
    EXPECT_EQ(arena.freed(), 0);
}

TEST(MemBuffer, ANullReferenceGivesAnEmptyBuffer) {
    expectEmpty(MemBuffer(static_cast<AVBufferRef*>(nullptr)));
}

TEST(MemBuffer, TakesAReferenceOverThroughAPointerToIt) {
    Arena arena(64);
    AVBufferRef* ref = arena.buffer(0, 64).release();
    {
        const MemBuffer buffer(&ref);
        EXPECT_EQ(ref, nullptr);
        EXPECT_EQ(buffer.data(), arena.at(0));
        EXPECT_EQ(buffer.useCount(), 1);
    }
    EXPECT_EQ(arena.freed(), 1);
}

TEST(MemBuffer, ANullReferenceTakenOverGivesAnEmptyBuffer) {
    AVBufferRef* ref = nullptr;
    expectEmpty(MemBuffer(&ref));
}

TEST(MemBuffer, CopiesShareTheBytesUntilTheyGo) {
    MemBuffer buffer(16, true);
    {
        const MemBuffer copy(buffer);
        EXPECT_EQ(copy.data(), buffer.data());
        EXPECT_EQ(copy.size(), 16U);
        EXPECT_EQ(buffer.useCount(), 2);
        EXPECT_EQ(copy.useCount(), 2);
        EXPECT_FALSE(buffer.writeable());
        EXPECT_FALSE(copy.writeable());
    }
    EXPECT_EQ(buffer.useCount(), 1);
    EXPECT_TRUE(buffer.writeable());
}

TEST(MemBuffer, ACopyOfAnEmptyBufferIsEmpty) {
    const MemBuffer empty;
    expectEmpty(MemBuffer(empty));
    MemBuffer assigned(16, false);
    assigned = empty;
    expectEmpty(assigned);
}

TEST(MemBuffer, AssignmentDropsTheOldMemoryAndSharesTheNew) {
    Arena arena(128);
    MemBuffer target(arena.buffer(0, 64).get());
    const MemBuffer source(arena.buffer(64, 64).get());
    EXPECT_EQ(arena.freed(), 0);
    target = source;
    EXPECT_EQ(arena.freed(), 1);
    EXPECT_EQ(target.data(), arena.at(64));
    EXPECT_EQ(source.useCount(), 2);
}

TEST(MemBuffer, AssignmentToItselfKeepsTheOneReference) {
    Arena arena(64);
    MemBuffer buffer(arena.buffer(0, 64).get());
    MemBuffer& same = buffer;
    buffer = same;
    EXPECT_EQ(buffer.useCount(), 1);
    buffer = std::move(same);
    EXPECT_EQ(buffer.useCount(), 1);
    EXPECT_EQ(buffer.data(), arena.at(0));
    EXPECT_EQ(arena.freed(), 0);
}

TEST(MemBuffer, AssignmentThatFailsKeepsTheOldMemory) {
    MemBuffer target = countingBuffer();
    const std::uint8_t* data = target.data();
    const MemBuffer source(16, true);
    {
        const AllocationLimit limit(kNothing);
        EXPECT_THROW(target = source, std::bad_alloc);
    }
    EXPECT_EQ(target.data(), data);
    EXPECT_EQ(target.useCount(), 1);
    EXPECT_EQ(source.useCount(), 1);
}

TEST(MemBuffer, MovingHandsTheReferenceOn) {
    MemBuffer source(16, false);
    const std::uint8_t* data = source.data();
    MemBuffer moved(std::move(source));
    expectEmpty(source);
    EXPECT_EQ(moved.data(), data);
    EXPECT_EQ(moved.useCount(), 1);

    Arena arena(16);
    MemBuffer assigned(arena.buffer(0, 16).get());
    assigned = std::move(moved);
    expectEmpty(moved);
    EXPECT_EQ(assigned.data(), data);
    EXPECT_EQ(assigned.useCount(), 1);
    EXPECT_EQ(arena.freed(), 1);
}

TEST(MemBuffer, TheMemoryGoesOnceWithTheLastReference) {
    Arena arena(16);
    {
        auto first = std::make_unique<MemBuffer>(arena.buffer(0, 16).get());
        const MemBuffer second(*first);
        first.reset();
        EXPECT_EQ(arena.freed(), 0);
        EXPECT_TRUE(second.writeable());
    }
    EXPECT_EQ(arena.freed(), 1);
}

TEST(MemBuffer, ResetStoresTheReferenceAsItIs) {
    Arena arena(128);
    MemBuffer buffer(arena.buffer(0, 64).get());
    AVBufferRef* ref = arena.buffer(64, 64).release();
    buffer.reset(ref);
    EXPECT_EQ(arena.freed(), 1);
    EXPECT_EQ(buffer.data(), arena.at(64));
    EXPECT_EQ(buffer.useCount(), 1);
    EXPECT_EQ(av_buffer_get_ref_count(ref), 1);
    buffer.reset(nullptr);
    expectEmpty(buffer);
    EXPECT_EQ(arena.freed(), 2);
}

TEST(MemBuffer, AReferenceMadeForTheCallerIsTheCallers) {
    const MemBuffer buffer = countingBuffer();
    const BufferPtr ref = makeAvPtr<AVBufferRef>(buffer.createBufferRef());
    ASSERT_NE(ref, nullptr);
    EXPECT_EQ(ref->data, buffer.data());
    EXPECT_EQ(buffer.useCount(), 2);
}

TEST(MemBuffer, SharedMemoryCannotBeMarkedModified) {
    MemBuffer buffer(16, true);
    {
        MemBuffer copy(buffer);
        EXPECT_THROW_TEXT(std::logic_error, kCannotMark, buffer.markModified());
        EXPECT_THROW_TEXT(std::logic_error, kCannotMark, copy.markModified());
    }
    EXPECT_NO_THROW(buffer.markModified());
}

TEST(MemBuffer, ReadOnlyMemoryIsNotWriteableThoughNobodySharesIt) {
    Arena arena(16);
    MemBuffer buffer(arena.buffer(0, 16, AV_BUFFER_FLAG_READONLY).get());
    EXPECT_EQ(buffer.useCount(), 1);
    EXPECT_FALSE(buffer.writeable());
    EXPECT_THROW_TEXT(std::logic_error, kCannotMark, buffer.markModified());
}

TEST(MemBuffer, MakeWriteableLeavesPrivateMemoryAlone) {
    MemBuffer buffer = countingBuffer();
    const std::uint8_t* data = buffer.data();
    buffer.makeWriteable();
    EXPECT_EQ(buffer.data(), data);
    EXPECT_EQ(buffer.useCount(), 1);
}

TEST(MemBuffer, MakeWriteableMovesSharedBytesIntoPrivateMemory) {
    MemBuffer buffer = countingBuffer();
    const MemBuffer other(buffer);
    const std::vector<std::uint8_t> bytes = bytesOf(buffer);
    buffer.makeWriteable();
    EXPECT_NE(buffer.data(), other.data());
    EXPECT_EQ(bytesOf(buffer), bytes);
    EXPECT_EQ(buffer.useCount(), 1);
    EXPECT_EQ(other.useCount(), 1);
    std::memset(buffer.data(), 0xff, buffer.size());
    EXPECT_EQ(bytesOf(other), bytes);
}

TEST(MemBuffer, MakeWriteableCopiesReadOnlyMemory) {
    Arena arena(16);
    std::memset(arena.at(0), 9, 16);
    MemBuffer buffer(arena.buffer(0, 16, AV_BUFFER_FLAG_READONLY).get());
    buffer.makeWriteable();
    EXPECT_TRUE(buffer.writeable());
    EXPECT_NE(buffer.data(), arena.at(0));
    EXPECT_EQ(bytesOf(buffer), std::vector<std::uint8_t>(16, 9));
    EXPECT_EQ(arena.freed(), 1);
}

TEST(MemBuffer, MakeWriteableWithoutMemoryLeavesTheBufferShared) {
    MemBuffer buffer = countingBuffer();
    const MemBuffer other(buffer);
    {
        const AllocationLimit limit(kNothing);
        EXPECT_THROW(buffer.makeWriteable(), std::bad_alloc);
    }
    EXPECT_EQ(buffer.data(), other.data());
    EXPECT_EQ(buffer.useCount(), 2);
}

TEST(MemBuffer, ResizeGivesAnEmptyBufferMemory) {
    MemBuffer buffer;
    buffer.resize(100);
    EXPECT_EQ(buffer.size(), 100U);
    EXPECT_EQ(buffer.useCount(), 1);
    std::memset(buffer.data(), 1, 100);
}

TEST(MemBuffer, ResizeKeepsTheContentAsFarAsItFits) {
    MemBuffer buffer = countingBuffer();
    const std::vector<std::uint8_t> bytes = bytesOf(buffer);
    buffer.resize(100000);
    EXPECT_EQ(buffer.size(), 100000U);
    EXPECT_TRUE(std::equal(bytes.begin(), bytes.end(), buffer.data()));
    buffer.resize(10);
    EXPECT_EQ(bytesOf(buffer), std::vector<std::uint8_t>(bytes.begin(), bytes.begin() + 10));
    EXPECT_EQ(buffer.useCount(), 1);
}

TEST(MemBuffer, ResizeToAnotherSizeLeavesOtherHoldersAlone) {
    MemBuffer buffer = countingBuffer();
    const MemBuffer other(buffer);
    const std::vector<std::uint8_t> bytes = bytesOf(other);
    buffer.resize(128);
    EXPECT_NE(buffer.data(), other.data());
    EXPECT_TRUE(std::equal(bytes.begin(), bytes.end(), buffer.data()));
    EXPECT_EQ(buffer.useCount(), 1);
    EXPECT_EQ(other.useCount(), 1);
    EXPECT_EQ(bytesOf(other), bytes);
}

TEST(MemBuffer, ResizeThatFailsKeepsTheBuffer) {
    MemBuffer buffer = countingBuffer();
    const std::vector<std::uint8_t> bytes = bytesOf(buffer);
    EXPECT_THROW(buffer.resize(-5), std::bad_alloc);
    {
        const AllocationLimit limit(kNothing);
        EXPECT_THROW(buffer.resize(128), std::bad_alloc);
    }
    EXPECT_EQ(bytesOf(buffer), bytes);
    MemBuffer empty;
    EXPECT_THROW(empty.resize(-5), std::bad_alloc);
    expectEmpty(empty);
}

TEST(MemBuffer, ShrinkHidesTheEndFromThisReferenceOnly) {
    MemBuffer buffer = countingBuffer();
    const MemBuffer other(buffer);
    const std::vector<std::uint8_t> bytes = bytesOf(other);
    buffer.shrink(10);
    EXPECT_EQ(buffer.data(), other.data());
    EXPECT_EQ(bytesOf(buffer), std::vector<std::uint8_t>(bytes.begin(), bytes.begin() + 10));
    EXPECT_EQ(bytesOf(other), bytes);
    EXPECT_EQ(buffer.useCount(), 2);
    // The hidden bytes of a shrunk copy are not copied either.
    buffer.makeWriteable();
    EXPECT_EQ(bytesOf(buffer), std::vector<std::uint8_t>(bytes.begin(), bytes.begin() + 10));
}

TEST(MemBuffer, ShrinkToItsSizeChangesNothing) {
    MemBuffer buffer = countingBuffer();
    buffer.shrink(64);
    EXPECT_EQ(bytesOf(buffer), bytesOf(countingBuffer()));
    MemBuffer empty;
    empty.shrink(0);
    expectEmpty(empty);
}

TEST(MemBuffer, ShrinkCannotGrow) {
    MemBuffer buffer = countingBuffer();
    EXPECT_THROW_TEXT(std::invalid_argument, "MemBuffer::shrink: The buffer has fewer bytes",
                      buffer.shrink(65));
    EXPECT_EQ(buffer.size(), 64U);
    MemBuffer empty;
    EXPECT_THROW(empty.shrink(1), std::invalid_argument);
}

TEST(MemBuffer, AShrunkBufferGrowsAgainByResize) {
    MemBuffer buffer = countingBuffer();
    const std::vector<std::uint8_t> bytes = bytesOf(buffer);
    buffer.shrink(10);
    buffer.resize(1000);
    EXPECT_EQ(buffer.size(), 1000U);
    EXPECT_TRUE(std::equal(bytes.begin(), bytes.begin() + 10, buffer.data()));
    std::memset(buffer.data(), 1, 1000);
}

TEST(MemBuffer, WithoutMemoryNothingIsMadeAndNothingChanges) {
    const MemBuffer buffer = countingBuffer();
    const BufferPtr ref = makeAvPtr<AVBufferRef>(buffer.createBufferRef());
    {
        const AllocationLimit limit(kNothing);
        EXPECT_THROW(MemBuffer(64, false), std::bad_alloc);
        EXPECT_THROW(MemBuffer(64, true), std::bad_alloc);
        EXPECT_THROW(MemBuffer(ref.get()), std::bad_alloc);
        EXPECT_THROW(MemBuffer{buffer}, std::bad_alloc);
        EXPECT_THROW(static_cast<void>(buffer.createBufferRef()), std::bad_alloc);
    }
    EXPECT_EQ(buffer.useCount(), 2);
}

TEST(MemBuffer, MovingAndTakingOverNeedNoMemory) {
    MemBuffer buffer = countingBuffer();
    AVBufferRef* ref = buffer.createBufferRef();
    const AllocationLimit limit(kNothing);
    MemBuffer moved(std::move(buffer));
    const MemBuffer taken(&ref);
    buffer = std::move(moved);
    EXPECT_EQ(buffer.useCount(), 2);
}

TEST(MemBuffer, SortsByAddressAndEmptyBuffersLast) {
    Arena arena(128);
    const MemBuffer none;
    const MemBuffer low(arena.buffer(0, 64).get());
    const MemBuffer lowAgain(low);
    const MemBuffer high(arena.buffer(64, 64).get());
    EXPECT_TRUE(low < high);
    EXPECT_FALSE(high < low);
    EXPECT_FALSE(low < lowAgain);
    EXPECT_TRUE(low < none);
    EXPECT_FALSE(none < low);
    EXPECT_TRUE(none < none);
}

TEST(MemBuffer, HoldersOnManyThreadsShareOneCount) {
    constexpr int kThreads = 4;
    Arena arena(16);
    MemBuffer buffer(arena.buffer(0, 16).get());
    std::latch start(kThreads);
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&start, own = buffer]() mutable {
            start.arrive_and_wait();
            for (int round = 0; round < 2000; ++round) {
                MemBuffer copy(own);
                MemBuffer moved(std::move(copy));
                own = moved;
            }
            own.reset(nullptr);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(arena.freed(), 0);
    threads.clear();
    EXPECT_EQ(buffer.useCount(), 1);
    EXPECT_TRUE(buffer.writeable());
}

}  // namespace
}  // namespace vidorra
