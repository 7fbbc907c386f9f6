#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "frames.h"

namespace vidorra::test {
namespace {

// Makes findFrame() public for the tests, which check the remaining frames.
class OpenQueue : public VideoFrameQueue {
public:
    using VideoFrameQueue::findFrame;
    using VideoFrameQueue::VideoFrameQueue;
};

std::vector<std::int64_t> times(const std::deque<VideoFrame>& frames) {
    std::vector<std::int64_t> result;
    for (const VideoFrame& frame : frames) {
        result.push_back(frame.timestamp().value);
    }
    return result;
}

struct Row {
    std::string name;
    std::vector<std::int64_t> queue;
    std::int64_t asked;
    std::int64_t answer;
    std::vector<std::int64_t> left;
};

class VideoQueueAnswers : public testing::TestWithParam<Row> {};

TEST_P(VideoQueueAnswers, GivesTheNearestFrameAndKeepsIt) {
    const Row& row = GetParam();
    OpenQueue queue(60);
    std::deque<VideoFrame> frames;
    for (const std::int64_t time : row.queue) {
        frames.push_back(videoFrame(time));
    }
    BlockingBufferBase::OperationLock lock;
    const VideoFrame frame = queue.findFrame(at(row.asked), frames, lock);
    ASSERT_FALSE(frame.empty());
    EXPECT_EQ(frame.timestamp().value, row.answer);
    EXPECT_EQ(times(frames), row.left);
    EXPECT_EQ(frame.picture().data()[0], frames.front().picture().data()[0]) << "the pixels are shared";
}

INSTANTIATE_TEST_SUITE_P(
    Rows, VideoQueueAnswers,
    testing::Values(Row{"EarlierThanTheFirst", {100, 200, 300}, 50, 100, {100, 200, 300}},
                    Row{"EqualToTheFirst", {100, 200, 300}, 100, 100, {100, 200, 300}},
                    Row{"NearerTheFirstOfTwo", {100, 200, 300}, 249, 200, {200, 300}},
                    Row{"Midway", {100, 200, 300}, 250, 300, {300}},
                    Row{"NearerTheSecondOfTwo", {100, 200, 300}, 251, 300, {300}},
                    Row{"EqualToAFrame", {100, 200, 300}, 200, 200, {200, 300}},
                    Row{"LaterThanTheLast", {100, 200, 300}, 900, 300, {300}},
                    Row{"OneFrameOnly", {100}, 900, 100, {100}}),
    [](const auto& row) { return row.param.name; });

TEST(VideoFrameQueue, RepeatsTheLastFrameUntilANewerOneComes) {
    VideoFrameQueue queue(60);
    ASSERT_TRUE(queue.push(videoFrame(100), kNoWait));
    EXPECT_EQ(queue.pop(at(500), kNoWait).timestamp().value, 100);
    EXPECT_EQ(queue.pop(at(600), kNoWait).timestamp().value, 100);
    EXPECT_FALSE(queue.empty());
    // The callers have already passed the new frame's time: it replaces the frame at the front.
    ASSERT_TRUE(queue.push(videoFrame(200), kNoWait));
    EXPECT_EQ(queue.pop(at(700), kNoWait).timestamp().value, 200);
}

TEST(VideoFrameQueue, AnEmptyListGivesAnEmptyFrame) {
    OpenQueue queue(60);
    std::deque<VideoFrame> frames;
    BlockingBufferBase::OperationLock lock;
    EXPECT_TRUE(queue.findFrame(at(1), frames, lock).empty());
}

TEST(VideoFrameQueueChoose, TheMiddleGoesToTheLaterFrame) {
    EXPECT_TRUE(VideoFrameQueue::choose(at(150), at(100), at(200)));
    EXPECT_FALSE(VideoFrameQueue::choose(at(149), at(100), at(200)));
}

TEST(VideoFrameQueueChoose, OfTwoFramesAtOneTimeTheLaterAnswersWhatComesAfterThem) {
    EXPECT_FALSE(VideoFrameQueue::choose(at(100), at(100), at(100)));
    EXPECT_TRUE(VideoFrameQueue::choose(at(101), at(100), at(100)));
}

TEST(VideoFrameQueueChoose, AZeroDenominatorMakesTheFramesEqual) {
    const Timestamp broken({1, 0}, 5);
    EXPECT_EQ(VideoFrameQueue::choose(at(300), at(200), broken), at(200) < at(300));
    EXPECT_FALSE(VideoFrameQueue::choose(at(100), at(200), broken));
}

// The same rule, in whole numbers on the common scale of all bases of the grid. It holds if the rule's
// rescaling is exact.
bool chooseByTheRule(std::int64_t pts, std::int64_t current, std::int64_t next) {
    if (current == next) {
        return current < pts;
    }
    if (pts <= current) {
        return false;
    }
    if (pts >= next) {
        return true;
    }
    return 2 * pts - (next - current) >= 2 * current;
}

TEST(VideoFrameQueueChoose, AgreesWithTheRuleOverRandomBasesAndValues) {
    constexpr std::int64_t kScale = 1440000;
    const std::vector<std::int32_t> denominators = {25, 30, 50, 1000, 48000, 90000};
    std::mt19937 random(7);
    int chosen = 0;
    for (int round = 0; round < 200000; ++round) {
        Timestamp stamps[3];
        std::int64_t exact[3];
        for (int i = 0; i < 3; ++i) {
            const std::int32_t den = denominators[random() % denominators.size()];
            // Even counts, so that half of a difference is a whole number in the base of the request.
            const std::int64_t value = static_cast<std::int64_t>(random() % 4000) * 2 - 4000;
            stamps[i] = {{1, den}, value};
            exact[i] = value * (kScale / den);
        }
        // Only where the half has no rounding in the base of the request.
        const std::int64_t unit = kScale / stamps[0].timebase.den;
        const std::int64_t difference = exact[2] - exact[1];
        const bool sameBase = stamps[1].timebase == stamps[2].timebase;
        if (!sameBase || difference % (2 * unit) != 0) {
            continue;
        }
        const bool result = VideoFrameQueue::choose(stamps[0], stamps[1], stamps[2]);
        ASSERT_EQ(result, chooseByTheRule(exact[0], exact[1], exact[2]))
            << stamps[0] << " between " << stamps[1] << " and " << stamps[2];
        chosen += result ? 1 : 0;
    }
    EXPECT_GT(chosen, 1000);
}

TEST(VideoFrameQueueChoose, AgreesWithTheRuleOnAGridOfMicroseconds) {
    for (std::int64_t current = -20; current <= 20; ++current) {
        for (std::int64_t next = -20; next <= 20; ++next) {
            for (std::int64_t pts = -25; pts <= 25; ++pts) {
                // Half of an odd distance is rounded away from zero: the request counts as half a unit
                // earlier.
                const std::int64_t distance = next - current;
                const std::int64_t half = distance >= 0 ? (distance + 1) / 2 : (distance - 1) / 2;
                const bool expected = current == next  ? current < pts
                                      : pts <= current ? false
                                      : pts >= next    ? true
                                                       : pts - half >= current;
                ASSERT_EQ(VideoFrameQueue::choose(at(pts), at(current), at(next)), expected)
                    << pts << " between " << current << " and " << next;
            }
        }
    }
}

}  // namespace
}  // namespace vidorra::test
