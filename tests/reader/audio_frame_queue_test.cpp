#include <gtest/gtest.h>

#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "frames.h"

namespace vidorra::test {
namespace {

// Makes findFrame() public for the tests, which check the remaining frames.
class OpenQueue : public AudioFrameQueue {
public:
    using AudioFrameQueue::AudioFrameQueue;
    using AudioFrameQueue::findFrame;
};

struct Row {
    std::string name;
    std::int64_t asked;
    std::optional<std::int64_t> answer;
    std::vector<std::int64_t> left;
};

class AudioQueueAnswers : public testing::TestWithParam<Row> {};

// Three frames of 100 microseconds, the last after a gap.
TEST_P(AudioQueueAnswers, GivesTheFrameThatCoversTheTimeAway) {
    const Row& row = GetParam();
    OpenQueue queue(100);
    std::queue<AudioFrame> frames;
    for (const std::int64_t start : {1000, 1100, 1300}) {
        frames.push(audioFrame(start, 100));
    }
    BlockingBufferBase::OperationLock lock;
    const AudioFrame frame = queue.findFrame(at(row.asked), frames, lock);
    EXPECT_EQ(frame.empty(), !row.answer.has_value());
    if (row.answer && !frame.empty()) {
        EXPECT_EQ(frame.timestamp().value, *row.answer);
        EXPECT_EQ(frame.audioBuffer().numberOfSamples(), 100U) << "a frame is given whole";
    }
    std::vector<std::int64_t> left;
    for (; !frames.empty(); frames.pop()) {
        left.push_back(frames.front().timestamp().value);
    }
    EXPECT_EQ(left, row.left);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, AudioQueueAnswers,
    testing::Values(Row{"EarlierByMoreThanTheTolerance", 994, std::nullopt, {1000, 1100, 1300}},
                    Row{"EarlierByTheTolerance", 995, 1000, {1100, 1300}},
                    Row{"AtTheStart", 1000, 1000, {1100, 1300}},
                    Row{"InsideTheFirst", 1050, 1000, {1100, 1300}},
                    Row{"AtTheLastInstantOfTheFirst", 1099, 1000, {1100, 1300}},
                    Row{"AtTheEndOfTheFirst", 1100, 1100, {1300}}, Row{"InsideTheSecond", 1150, 1100, {1300}},
                    Row{"AtTheEndBeforeAGap", 1200, std::nullopt, {1300}},
                    Row{"InTheGapWithinTheTolerance", 1295, 1300, {}},
                    Row{"LaterThanTheEnd", 1400, std::nullopt, {}},
                    Row{"AtTheEndOfAllTime", std::numeric_limits<std::int64_t>::max(), std::nullopt, {}}),
    [](const auto& row) { return row.param.name; });

TEST(AudioFrameQueue, NoSampleIsGivenTwice) {
    AudioFrameQueue queue(100);
    ASSERT_TRUE(queue.push(audioFrame(1000, 100), kNoWait));
    ASSERT_TRUE(queue.push(audioFrame(1100, 100), kNoWait));
    EXPECT_EQ(queue.pop(at(1010), kNoWait).timestamp().value, 1000);
    // The frame that covered this time is gone, and the next one is not due.
    EXPECT_TRUE(queue.pop(at(1020), kNoWait).empty());
    EXPECT_EQ(queue.pop(at(1095), kNoWait).timestamp().value, 1100);
    EXPECT_TRUE(queue.empty());
}

TEST(AudioFrameQueue, TheSamplesAreMovedOutAndNotCopied) {
    AudioFrameQueue queue(100);
    AudioFrame frame = audioFrame(0, 100);
    const std::uint8_t* samples = frame.audioBuffer().getPointersToPlanes()[0];
    ASSERT_TRUE(queue.push(std::move(frame), kNoWait));
    EXPECT_EQ(queue.pop(at(0), kNoWait).audioBuffer().getPointersToPlanes()[0], samples);
}

}  // namespace
}  // namespace vidorra::test
