#include <array>
#include <atomic>
#include <latch>
#include <memory>
#include <mutex>
#include <random>
#include <thread>
#include <vector>

#include "ffmpeg/buffers.h"
#include "ffmpeg/counted_buffer.h"

namespace vidorra::ffmpeg_ext {
namespace {

using test::CountedMemory;

TEST(BufferThreads, AMarkIsSeenFromAnotherThreadWhichMayReleaseTheBuffer) {
    CountedMemory memory(64);
    AVBufferRef* ref = memory.wrap();
    std::thread([&memory, ref]() mutable {
        EXPECT_NE(av_buffer_is_dma(ref), 0);
        av_buffer_flush(ref);
        EXPECT_EQ(memory.flushes.size(), 1U);
        av_buffer_unref(&ref);
    }).join();
    EXPECT_EQ(memory.frees.size(), 1U);
}

// One buffer's life: its identity, and what happened to it.
struct Life {
    std::uint8_t byte = 0;
    bool dma = false;
    std::atomic<int> flushes = 0;
    std::atomic<int> frees = 0;
    std::atomic<int> strangeArguments = 0;

    AVBufferRef* wrap() {
        return av_buffer_create2(&byte, 1, free, flush, nullptr, 0, this, dma ? kBufferFlagDma : 0);
    }
    static void free(void* opaque, std::uint8_t* data) {
        auto* life = static_cast<Life*>(opaque);
        ++life->frees;
        life->strangeArguments += data != &life->byte ? 1 : 0;
    }
    static void flush(void* opaque, std::uint8_t* data, int size) {
        auto* life = static_cast<Life*>(opaque);
        ++life->flushes;
        life->strangeArguments += data != &life->byte || size != 1 ? 1 : 0;
    }
};

// References that threads pass to each other.
class Exchange {
public:
    // Puts a reference into a slot and returns the one that was there.
    AVBufferRef* swap(std::size_t slot, AVBufferRef* ref) {
        const std::lock_guard lock(mMutex);
        std::swap(mRefs[slot % mRefs.size()], ref);
        return ref;
    }
    std::size_t size() const { return mRefs.size(); }

private:
    // Guards mRefs.
    std::mutex mMutex;
    std::array<AVBufferRef*, 16> mRefs{};
};

TEST(BufferThreads, BuffersMadeAndReleasedByManyThreadsKeepTheirOwnMarksAndCallbacks) {
    constexpr int kThreads = 4;
    constexpr int kLives = 4000;
    std::vector<std::unique_ptr<std::array<Life, kLives>>> lives;
    for (int i = 0; i < kThreads; ++i) {
        lives.push_back(std::make_unique<std::array<Life, kLives>>());
    }
    std::atomic<int> wrongMarks = 0;
    Exchange exchange;
    std::latch start(kThreads);
    // Queries, flushes and releases a buffer, whichever thread made it.
    const auto useUp = [&](AVBufferRef* ref) {
        if (ref == nullptr) {
            return;
        }
        const bool dma = *ref->data == 1;
        wrongMarks += (av_buffer_is_dma(ref) != 0) != dma ? 1 : 0;
        av_buffer_flush(ref);
        av_buffer_unref(&ref);
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&, i] {
            std::mt19937 random(static_cast<unsigned>(i));
            std::uint8_t stranger = 0;
            start.arrive_and_wait();
            for (Life& life : *lives[static_cast<std::size_t>(i)]) {
                life.dma = random() % 2 == 0;
                life.byte = life.dma ? 1 : 0;
                AVBufferRef* ref = life.wrap();
                if (random() % 4 == 0) {
                    AVBufferRef* extra = av_buffer_ref(ref);
                    useUp(exchange.swap(random(), extra));
                }
                useUp(exchange.swap(random(), ref));
                AVBufferRef* foreign = av_buffer_create(
                    &stranger, 1, [](void*, std::uint8_t*) {}, reinterpret_cast<void*>(random() | 1U), 0);
                wrongMarks += av_buffer_is_dma(foreign) != 0 ? 1 : 0;
                av_buffer_flush(foreign);
                av_buffer_unref(&foreign);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (std::size_t slot = 0; slot < exchange.size(); ++slot) {
        useUp(exchange.swap(slot, nullptr));
    }
    EXPECT_EQ(wrongMarks, 0);
    for (const auto& ofThread : lives) {
        for (const Life& life : *ofThread) {
            ASSERT_EQ(life.frees, 1);
            ASSERT_GE(life.flushes, 1);
            ASSERT_LE(life.flushes, 2);
            ASSERT_EQ(life.strangeArguments, 0);
        }
    }
}

}  // namespace
}  // namespace vidorra::ffmpeg_ext
