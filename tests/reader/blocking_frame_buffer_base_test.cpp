#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <future>
#include <mutex>
#include <thread>
#include <vector>

#include "frames.h"
#include "support/failing_new.h"
#include "support/throw_text.h"

namespace vidorra::test {
namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr microseconds kLong{30000000};

TEST(BlockingFrameBuffer, TakesFramesInRisingOrderOnly) {
    VideoFrameQueue queue(60);
    ASSERT_TRUE(queue.push(videoFrame(10), kNoWait));
    EXPECT_THROW_TEXT(std::logic_error,
                      "BlockingFrameBufferBase::push(): frame PTS must be greater than last added one",
                      (void)queue.push(videoFrame(10), kNoWait));
    EXPECT_THROW_TEXT(std::logic_error,
                      "BlockingFrameBufferBase::push(): frame PTS must be greater than last added one",
                      (void)queue.push(videoFrame(9), kNoWait));
    EXPECT_TRUE(queue.push(videoFrame(11), kNoWait)) << "the refused frames changed nothing";
}

TEST(BlockingFrameBuffer, RefusesAFrameWithoutATime) {
    VideoFrameQueue queue(60);
    EXPECT_THROW_TEXT(std::logic_error, "BlockingFrameBufferBase::push(): frame PTS must not be empty",
                      (void)queue.push(VideoFrame(), kNoWait));
}

TEST(BlockingFrameBuffer, LooksAtTheTimeOfAFrameBeforeItLooksForRoom) {
    VideoFrameQueue queue(1);
    ASSERT_TRUE(queue.push(videoFrame(10), kNoWait));
    EXPECT_THROW((void)queue.push(VideoFrame(), kNoWait), std::logic_error);
    EXPECT_THROW((void)queue.push(videoFrame(10), kNoWait), std::logic_error);
    queue.stop();
    EXPECT_THROW((void)queue.push(videoFrame(10), kNoWait), std::logic_error);
    EXPECT_FALSE(queue.push(videoFrame(11), kNoWait));
    EXPECT_THROW((void)queue.pop(Timestamp(), kNoWait), std::invalid_argument);
}

TEST(BlockingFrameBuffer, TheFirstTimesMayBeBelowZero) {
    VideoFrameQueue queue(60);
    ASSERT_TRUE(queue.push(videoFrame(-20), kNoWait));
    EXPECT_EQ(queue.pop(at(-30), kNoWait).timestamp().value, -20);
    ASSERT_TRUE(queue.push(videoFrame(-10), kNoWait));
    EXPECT_EQ(queue.pop(at(-10), kNoWait).timestamp().value, -10);
}

TEST(BlockingFrameBuffer, NoFrameIsPassedBeforeTheFirstRequest) {
    VideoFrameQueue queue(2);
    ASSERT_TRUE(queue.push(videoFrame(-20), kNoWait));
    ASSERT_TRUE(queue.push(videoFrame(-10), kNoWait));
    EXPECT_TRUE(queue.full());
    EXPECT_EQ(queue.pop(at(-20), kNoWait).timestamp().value, -20);
}

TEST(BlockingFrameBuffer, AFrameThatTheCallersHavePassedIsStoredInAnEmptyBufferToo) {
    AudioFrameQueue queue(2);
    ASSERT_TRUE(queue.push(audioFrame(10, 10), kNoWait));
    ASSERT_FALSE(queue.pop(at(15), kNoWait).empty());
    ASSERT_TRUE(queue.empty());
    ASSERT_TRUE(queue.push(audioFrame(12, 10), kNoWait));
    EXPECT_EQ(queue.pop(at(16), kNoWait).timestamp().value, 12);
}

TEST(BlockingFrameBuffer, RefusesARequestWithoutATime) {
    VideoFrameQueue queue(60);
    EXPECT_THROW_TEXT(std::invalid_argument, "BlockingFrameBufferBase::pop(): pts must not be empty",
                      (void)queue.pop(Timestamp(), kNoWait));
}

TEST(BlockingFrameBuffer, AnswersRequestsInRisingOrderOnly) {
    VideoFrameQueue queue(60);
    ASSERT_TRUE(queue.push(videoFrame(10), kNoWait));
    ASSERT_FALSE(queue.pop(at(20), kNoWait).empty());
    for (const std::int64_t time : {20, 19}) {
        EXPECT_THROW_TEXT(std::logic_error,
                          "BlockingFrameBufferBase::pop(): pts must be greater than last requested one",
                          (void)queue.pop(at(time), kNoWait));
    }
    EXPECT_FALSE(queue.pop(at(21), kNoWait).empty());
}

TEST(BlockingFrameBuffer, LooksAtTheOrderOfRequestsOnlyWithAFrameToLookAt) {
    AudioFrameQueue queue(100);
    ASSERT_TRUE(queue.push(audioFrame(10, 10), kNoWait));
    ASSERT_FALSE(queue.pop(at(15), kNoWait).empty());
    EXPECT_TRUE(queue.pop(at(15), kNoWait).empty());
    ASSERT_TRUE(queue.push(audioFrame(20, 10), kNoWait));
    EXPECT_THROW((void)queue.pop(at(15), kNoWait), std::logic_error);
}

TEST(BlockingFrameBuffer, ARequestThatMetNoFrameDoesNotCountAsTheLast) {
    VideoFrameQueue queue(60);
    EXPECT_TRUE(queue.pop(at(50), kNoWait).empty());
    ASSERT_TRUE(queue.push(videoFrame(10), kNoWait));
    EXPECT_FALSE(queue.pop(at(50), kNoWait).empty());
}

TEST(BlockingFrameBuffer, IsFullAtItsCapacityAndLeavesTheFrameWithTheCaller) {
    VideoFrameQueue queue(2);
    EXPECT_TRUE(queue.empty());
    ASSERT_TRUE(queue.push(videoFrame(1), kNoWait));
    EXPECT_FALSE(queue.empty());
    EXPECT_FALSE(queue.full());
    ASSERT_TRUE(queue.push(videoFrame(2), kNoWait));
    EXPECT_TRUE(queue.full());
    VideoFrame frame = videoFrame(3);
    EXPECT_FALSE(queue.push(std::move(frame), kNoWait));
    EXPECT_FALSE(frame.empty());
    EXPECT_EQ(queue.pop(at(2), kNoWait).timestamp().value, 2);
    EXPECT_TRUE(queue.push(std::move(frame), kNoWait))
        << "a frame that found no room is not the last one pushed";
}

TEST(BlockingFrameBuffer, AFrameThatTheCallersHavePassedTakesThePlaceOfTheOldest) {
    VideoFrameQueue queue(3);
    ASSERT_TRUE(queue.push(videoFrame(10), kNoWait));
    ASSERT_FALSE(queue.pop(at(100), kNoWait).empty());
    for (const std::int64_t time : {20, 30, 100}) {
        ASSERT_TRUE(queue.push(videoFrame(time), kNoWait));
        EXPECT_FALSE(queue.full());
    }
    ASSERT_TRUE(queue.push(videoFrame(101), kNoWait));
    ASSERT_TRUE(queue.push(videoFrame(102), kNoWait));
    EXPECT_TRUE(queue.full());
    EXPECT_EQ(queue.pop(at(101), kNoWait).timestamp().value, 101);
}

TEST(BlockingFrameBuffer, AFrameForWhichThereIsNoMemoryStaysWithTheCallerAndKeepsItsTurn) {
    VideoFrameQueue queue(3);
    ASSERT_TRUE(queue.push(videoFrame(10), kNoWait));
    ASSERT_FALSE(queue.pop(at(100), kNoWait).empty());
    // The callers have passed it: it would replace the oldest.
    VideoFrame frame = videoFrame(20);
    {
        const FailingNew failing;
        EXPECT_THROW(static_cast<void>(queue.push(std::move(frame), kNoWait)), std::bad_alloc);
    }
    EXPECT_FALSE(frame.empty());
    EXPECT_EQ(queue.pop(at(101), kNoWait).timestamp().value, 10) << "it is still there";
    EXPECT_TRUE(queue.push(std::move(frame), kNoWait));
    EXPECT_EQ(queue.pop(at(102), kNoWait).timestamp().value, 20);
}

TEST(BlockingFrameBuffer, AnAnswerForWhichThereIsNoMemoryLeavesTheFrames) {
    VideoFrameQueue queue(3);
    for (const std::int64_t time : {10, 20, 30}) {
        VideoFrame frame = videoFrame(time);
        // Makes a copy of the frame allocate.
        frame.metadata().addValue("name", "value");
        ASSERT_TRUE(queue.push(std::move(frame), kNoWait));
    }
    {
        const FailingNew failing;
        EXPECT_THROW(static_cast<void>(queue.pop(at(30), kNoWait)), std::bad_alloc);
    }
    EXPECT_TRUE(queue.full());
    EXPECT_EQ(queue.pop(at(12), kNoWait).timestamp().value, 10) << "an earlier time may be asked for still";
    EXPECT_EQ(queue.pop(at(30), kNoWait).timestamp().value, 30);
    EXPECT_FALSE(queue.full());
}

TEST(BlockingFrameBuffer, KnowsHowManyFramesASelectionThatThrowsHasLeft) {
    class Throwing : public VideoFrameQueue {
    public:
        using VideoFrameQueue::VideoFrameQueue;

    protected:
        VideoFrame findFrame(Timestamp /*pts*/, std::deque<VideoFrame>& frames,
                             OperationLock& /*lock*/) override {
            frames.pop_front();
            throw std::runtime_error("no answer");
        }
    };
    Throwing queue(2);
    ASSERT_TRUE(queue.push(videoFrame(10), kNoWait));
    ASSERT_TRUE(queue.push(videoFrame(20), kNoWait));
    EXPECT_THROW(static_cast<void>(queue.pop(at(10), kNoWait)), std::runtime_error);
    EXPECT_FALSE(queue.full());
    EXPECT_THROW(static_cast<void>(queue.pop(at(10), kNoWait)), std::runtime_error);
    EXPECT_TRUE(queue.empty());
}

TEST(BlockingFrameBuffer, WaitsAsLongAsItIsTold) {
    VideoFrameQueue queue(1);
    const auto start = steady_clock::now();
    EXPECT_TRUE(queue.pop(at(1), milliseconds(60)).empty());
    EXPECT_GE(steady_clock::now() - start, milliseconds(60));

    ASSERT_TRUE(queue.push(videoFrame(1), kNoWait));
    const auto startPush = steady_clock::now();
    EXPECT_FALSE(queue.push(videoFrame(2), milliseconds(60)));
    EXPECT_GE(steady_clock::now() - startPush, milliseconds(60));
}

TEST(BlockingFrameBuffer, ATimeoutBelowZeroDoesNotWait) {
    VideoFrameQueue queue(1);
    EXPECT_TRUE(queue.pop(at(1), microseconds::min()).empty());
    ASSERT_TRUE(queue.push(videoFrame(1), microseconds(-1)));
    EXPECT_FALSE(queue.push(videoFrame(2), microseconds::min()));
}

TEST(BlockingFrameBuffer, TheLongestTimeoutWaitsForAFrame) {
    VideoFrameQueue queue(1);
    auto answer = std::async(std::launch::async, [&] { return queue.pop(at(1), microseconds::max()); });
    ASSERT_TRUE(queue.push(videoFrame(1), microseconds::max()));
    EXPECT_FALSE(answer.get().empty());
}

TEST(BlockingFrameBuffer, APushWakesAPopThatWaits) {
    AudioFrameQueue queue(100);
    std::promise<void> begun;
    auto answer = std::async(std::launch::async, [&] {
        begun.set_value();
        return queue.pop(at(5), kLong);
    });
    begun.get_future().wait();
    ASSERT_TRUE(queue.push(audioFrame(0, 10), kNoWait));
    EXPECT_EQ(answer.get().timestamp().value, 0);
}

TEST(BlockingFrameBuffer, APopThatMakesRoomWakesAPushThatWaits) {
    VideoFrameQueue queue(2);
    ASSERT_TRUE(queue.push(videoFrame(1), kNoWait));
    ASSERT_TRUE(queue.push(videoFrame(2), kNoWait));
    auto stored = std::async(std::launch::async, [&] { return queue.push(videoFrame(3), kLong); });
    // The first frame answers and stays: no room, and nobody is woken for nothing.
    EXPECT_EQ(queue.pop(at(1), kNoWait).timestamp().value, 1);
    EXPECT_EQ(stored.wait_for(milliseconds(50)), std::future_status::timeout);
    EXPECT_EQ(queue.pop(at(2), kNoWait).timestamp().value, 2);
    EXPECT_TRUE(stored.get());
}

// Counts the threads that found it empty or full and are waiting, or are about to while they hold the lock.
class WatchedQueue : public VideoFrameQueue {
public:
    using VideoFrameQueue::VideoFrameQueue;
    bool empty() const override {
        const bool result = VideoFrameQueue::empty();
        waiting += result ? 1 : 0;
        return result;
    }
    bool full() const override {
        const bool result = VideoFrameQueue::full();
        waiting += result ? 1 : 0;
        return result;
    }

    mutable std::atomic<int> waiting{0};
};

TEST(BlockingFrameBuffer, StopWakesEveryoneAndIsFinal) {
    WatchedQueue full(1);
    WatchedQueue empty(1);
    ASSERT_TRUE(full.push(videoFrame(1), kNoWait));
    const auto start = steady_clock::now();
    std::vector<std::future<bool>> results;
    for (int i = 0; i < 4; ++i) {
        results.push_back(
            std::async(std::launch::async, [&empty, i] { return empty.pop(at(i), kLong).empty(); }));
    }
    results.push_back(std::async(std::launch::async, [&full] { return !full.push(videoFrame(2), kLong); }));
    while (empty.waiting < 4 || full.waiting < 1) {
        std::this_thread::yield();
    }
    full.stop();
    empty.stop();
    for (std::future<bool>& result : results) {
        EXPECT_TRUE(result.get());
    }
    EXPECT_TRUE(full.pop(at(10), kLong).empty()) << "also when there is a frame";
    EXPECT_FALSE(empty.push(videoFrame(1), kLong)) << "also when there is room";
    EXPECT_LT(steady_clock::now() - start, kLong / 2) << "at once";
}

TEST(BlockingFrameBuffer, SeveralCallersGetEachFrameOnce) {
    AudioFrameQueue queue(10);
    constexpr std::int64_t kFrames = 2000;
    // Times are asked for in order; a request that met no frame may be repeated.
    std::mutex order;
    std::int64_t next = 0;
    std::vector<std::thread> callers;
    for (int i = 0; i < 4; ++i) {
        callers.emplace_back([&] {
            for (;;) {
                const std::lock_guard lock(order);
                if (next == kFrames * 10) {
                    return;
                }
                const AudioFrame frame = queue.pop(at(next), kLong);
                EXPECT_EQ(frame.timestamp().value, next);
                next += 10;
            }
        });
    }
    for (std::int64_t i = 0; i < kFrames; ++i) {
        ASSERT_TRUE(queue.push(audioFrame(i * 10, 10), kLong));
    }
    for (std::thread& caller : callers) {
        caller.join();
    }
    EXPECT_TRUE(queue.empty());
}

TEST(OperationLock, IsFalseWithoutALock) {
    EXPECT_FALSE(BlockingBufferBase::OperationLock());
    std::mutex mutex;
    std::condition_variable condition;
    EXPECT_FALSE(BlockingBufferBase::OperationLock(std::unique_lock(mutex, std::defer_lock), &condition));
    EXPECT_TRUE(BlockingBufferBase::OperationLock(std::unique_lock(mutex), &condition));
}

TEST(OperationLock, HoldsTheMutexOfTheBuffer) {
    VideoFrameQueue queue(1);
    auto lock = queue.tryLockForPushFor(kNoWait);
    ASSERT_TRUE(lock);
    auto other = std::async(std::launch::async, [&] { return queue.push(videoFrame(1), kNoWait); });
    EXPECT_EQ(other.wait_for(milliseconds(30)), std::future_status::timeout);
    { const BlockingBufferBase::OperationLock released = std::move(lock); }
    EXPECT_TRUE(other.get());
    EXPECT_FALSE(queue.tryLockForPushFor(kNoWait)) << "full";
    EXPECT_TRUE(queue.tryLockForPopFor(kNoWait));
}

}  // namespace
}  // namespace vidorra::test
