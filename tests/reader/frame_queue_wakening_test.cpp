// Whether an answer wakes a thread that waits for room: only if it made some.
#include <gtest/gtest.h>

#include <condition_variable>
#include <future>
#include <mutex>
#include <vector>

#include "frames.h"

namespace vidorra::test {
namespace {

class OpenVideoQueue : public VideoFrameQueue {
public:
    using VideoFrameQueue::findFrame;
    using VideoFrameQueue::VideoFrameQueue;
};

class OpenAudioQueue : public AudioFrameQueue {
public:
    using AudioFrameQueue::AudioFrameQueue;
    using AudioFrameQueue::findFrame;
};

// Whether the end of the lock that `operation` was given wakes a thread that waits for it.
template <class Operation>
bool wakes(bool expected, Operation operation) {
    std::mutex mutex;
    std::condition_variable condition;
    std::promise<void> waiting;
    auto woken = std::async(std::launch::async, [&] {
        std::unique_lock lock(mutex);
        waiting.set_value();
        const auto timeout = expected ? std::chrono::seconds(20) : std::chrono::milliseconds(30);
        return condition.wait_for(lock, timeout) == std::cv_status::no_timeout;
    });
    waiting.get_future().wait();
    {
        // The other thread is waiting as soon as the mutex is free.
        BlockingBufferBase::OperationLock lock(std::unique_lock<std::mutex>(mutex), &condition);
        operation(lock);
    }
    return woken.get();
}

struct Row {
    std::int64_t asked;
    bool woken;
};

TEST(FrameQueueWakening, AVideoAnswerThatRemovesAFrameWakesThePusher) {
    const std::vector<Row> rows = {{50, false}, {100, false}, {149, false}, {150, true}, {900, true}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.asked);
        OpenVideoQueue queue(60);
        std::deque<VideoFrame> frames;
        frames.push_back(videoFrame(100));
        frames.push_back(videoFrame(200));
        EXPECT_EQ(wakes(row.woken, [&](auto& lock) { (void)queue.findFrame(at(row.asked), frames, lock); }),
                  row.woken);
    }
}

TEST(FrameQueueWakening, AnAudioAnswerThatRemovesAFrameWakesThePusher) {
    // In the future, given, and over.
    const std::vector<Row> rows = {{994, false}, {995, true}, {1050, true}, {1100, true}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.asked);
        OpenAudioQueue queue(100);
        std::queue<AudioFrame> frames;
        frames.push(audioFrame(1000, 100));
        EXPECT_EQ(wakes(row.woken, [&](auto& lock) { (void)queue.findFrame(at(row.asked), frames, lock); }),
                  row.woken);
    }
}

TEST(FrameQueueWakening, ALockWakesUnlessToldOtherwise) {
    EXPECT_TRUE(wakes(true, [](auto&) {}));
    EXPECT_FALSE(wakes(false, [](auto& lock) { lock.setNotify(false); }));
    EXPECT_TRUE(wakes(true, [](auto& lock) {
        lock.setNotify(false);
        lock.setNotify(true);
    }));
}

TEST(FrameQueueWakening, WhoTakesALockOverWakesInItsPlace) {
    EXPECT_TRUE(wakes(true, [](auto& lock) { const auto taken = std::move(lock); }));
    EXPECT_FALSE(wakes(false, [](auto& lock) {
        lock.setNotify(false);
        const auto taken = std::move(lock);
    }));
}

}  // namespace
}  // namespace vidorra::test
