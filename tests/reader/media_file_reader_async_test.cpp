#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <thread>
#include <vector>

#include <vidorra/vidorra.h>

#include "clips.h"
#include "frames.h"
#include "support/throw_text.h"

namespace vidorra::test {
namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::steady_clock;
using Mode = MediaFileReader::PlaybackMode;

constexpr microseconds kLong{10000000};

using Reader = MediaFileReaderAsync;

// The first answer of either kind, once the reader is ready; empty if it does not become so within ten
// seconds.
template <class Get>
auto firstAnswer(Get get) {
    const auto deadline = steady_clock::now() + std::chrono::seconds(10);
    auto frame = get();
    while (frame.empty() && steady_clock::now() < deadline) {
        std::this_thread::sleep_for(milliseconds(1));
        frame = get();
    }
    return frame;
}

TEST(MediaFileReaderAsync, AFileThatCannotBeOpenedThrowsFromTheConstructor) {
    EXPECT_THROW(Reader("missing.mp4", Mode::Once, 0, 0, nullptr), std::runtime_error);
}

TEST(MediaFileReaderAsync, TheFirstRequestIsAnsweredByTheBeginningOfTheFile) {
    Reader reader(audioAndVideo(), Mode::Loop, 0, 0, nullptr);
    const VideoFrame frame = firstAnswer([&] { return reader.getVideoFrame(at(1000000), kNoWait); });
    ASSERT_FALSE(frame.empty());
    EXPECT_EQ(frame.timestamp().value, 1000000);
    EXPECT_FALSE(frame.timestamp().isNull);
    EXPECT_EQ(reader.getPtsStarted(at(5)).value, 1000000);
}

TEST(MediaFileReaderAsync, ARequestBeforeTheReaderIsReadySetsNoAnchor) {
    // One frame of video alone never makes the reader ready.
    Reader reader(mediaFile("short.mkv", pictures("0.04") + std::vector<std::string>{"-c:v", "mjpeg"}),
                  Mode::Once, std::nullopt, 0, nullptr);
    EXPECT_TRUE(reader.getVideoFrame(at(1), kLong).empty()) << "at once, whatever the timeout";
    EXPECT_TRUE(reader.getVideoFrame(at(1), kLong).empty()) << "the same time again is no error yet";
    EXPECT_TRUE(reader.getVideoFrame(Timestamp(), kLong).empty());
    EXPECT_EQ(reader.getPtsStarted(at(77)).value, 77);
    EXPECT_EQ(reader.getPtsStarted(at(78)).value, 77);
}

TEST(MediaFileReaderAsync, TheAnchorNeedsATime) {
    Reader reader(videoOnly(), Mode::Loop, std::nullopt, 0, nullptr);
    EXPECT_THROW_TEXT(std::invalid_argument, "MediaFileReaderAsync::getPtsStarted(): pts must not be empty",
                      static_cast<void>(reader.getPtsStarted(Timestamp())));
    firstAnswer([&] { return reader.getVideoFrame(at(10), kNoWait); });
    EXPECT_THROW_TEXT(std::invalid_argument, "MediaFileReaderAsync::getPtsStarted(): pts must not be empty",
                      static_cast<void>(reader.getVideoFrame(Timestamp(), kNoWait)));
}

TEST(MediaFileReaderAsync, BothKindsShareTheAnchor) {
    Reader reader(audioAndVideo(), Mode::Loop, 0, 0, nullptr);
    const AudioFrame audio = firstAnswer([&] { return reader.getAudioFrame(at(500), kNoWait); });
    ASSERT_FALSE(audio.empty());
    const VideoFrame video = reader.getVideoFrame(at(80500), kNoWait);
    ASSERT_FALSE(video.empty());
    EXPECT_EQ(video.timestamp().value, 80500);
}

TEST(MediaFileReaderAsync, ATimeAskedForTwiceIsTheCallersError) {
    Reader reader(videoOnly(), Mode::Loop, std::nullopt, 0, nullptr);
    ASSERT_FALSE(firstAnswer([&] { return reader.getVideoFrame(at(10), kNoWait); }).empty());
    EXPECT_THROW_TEXT(std::logic_error,
                      "BlockingFrameBufferBase::pop(): pts must be greater than last requested one",
                      static_cast<void>(reader.getVideoFrame(at(10), kNoWait)));
    EXPECT_FALSE(reader.getVideoFrame(at(11), kNoWait).empty());
}

TEST(MediaFileReaderAsync, AudioAloneBecomesReady) {
    Reader reader(audioAndVideo(), Mode::Loop, 0, std::nullopt, nullptr);
    EXPECT_FALSE(firstAnswer([&] { return reader.getAudioFrame(at(10), kNoWait); }).empty());
    EXPECT_TRUE(reader.getVideoFrame(at(20), kNoWait).empty());
}

TEST(MediaFileReaderAsync, ServesTheNearestFramesOverThreeLoops) {
    Reader reader(videoOnly(), Mode::Loop, std::nullopt, 0, nullptr);
    constexpr std::int64_t kStart = 7000000;
    // 25 frames a second, requested 30 times a second. Frame n is at n * 40000, in all loops.
    ASSERT_FALSE(firstAnswer([&] { return reader.getVideoFrame(at(kStart), kNoWait); }).empty());
    for (std::int64_t tick = 1; tick < 90; ++tick) {
        const std::int64_t asked = tick * 100000 / 3;
        const std::int64_t nearest = (asked + 20000) / 40000 * 40000;
        // The thread may not be there yet: then the newest frame answers, and the next microsecond is
        // requested.
        VideoFrame frame;
        const auto deadline = steady_clock::now() + std::chrono::seconds(10);
        for (std::int64_t retry = 0; retry < 10000 && steady_clock::now() < deadline; ++retry) {
            frame = reader.getVideoFrame(at(kStart + asked + retry), kLong);
            if (frame.timestamp().value >= kStart + nearest) {
                break;
            }
            std::this_thread::sleep_for(milliseconds(1));
        }
        ASSERT_EQ(frame.timestamp().value, kStart + nearest) << "asked for " << asked;
    }
}

TEST(MediaFileReaderAsync, AFilePlayedOnceIsServedToItsEnd) {
    Reader reader(videoOnly(), Mode::Once, std::nullopt, 0, nullptr);
    ASSERT_FALSE(firstAnswer([&] { return reader.getVideoFrame(at(1), kNoWait); }).empty());
    // The last frame is at 960000, and stays.
    const VideoFrame last = firstAnswer([&, time = std::int64_t{5000000}]() mutable {
        VideoFrame frame = reader.getVideoFrame(at(time++), kLong);
        return frame.timestamp().value >= 960001 ? frame : VideoFrame();
    });
    EXPECT_EQ(last.timestamp().value, 960001);
}

TEST(MediaFileReaderAsync, TheSameRequestSharesThePixels) {
    Reader reader(videoOnly(), Mode::Loop, std::nullopt, 0, nullptr);
    const VideoFrame first = firstAnswer([&] { return reader.getVideoFrame(at(1), kNoWait); });
    const VideoFrame again = reader.getVideoFrame(at(2), kNoWait);
    EXPECT_EQ(first.picture().data()[0], again.picture().data()[0]);
}

TEST(MediaFileReaderAsyncDeathTest, StampsThatDoNotRiseEndTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const std::string path =
        mediaFile("raw.h264", pictures("0.4") + std::vector<std::string>{"-c:v", "libx264", "-bf", "0"});
    EXPECT_DEATH(
        {
            Reader reader(path, Mode::Once, std::nullopt, 0, nullptr);
            std::this_thread::sleep_for(std::chrono::seconds(10));
        },
        "frame PTS must be greater than last added one");
}

TEST(MediaFileReaderAsync, GoesAtAnyMoment) {
    const std::string path = audioAndVideo();
    for (int i = 0; i < 20; ++i) {
        // Right after construction.
        Reader(path, Mode::Loop, 0, 0, nullptr);
        {
            // While it decodes, before or after it is ready.
            Reader reader(path, Mode::Loop, 0, 0, nullptr);
            std::this_thread::sleep_for(microseconds(i * 200));
        }
        {
            // While callers wait for frames.
            Reader reader(path, Mode::Loop, 0, 0, nullptr);
            firstAnswer([&] { return reader.getAudioFrame(at(1), kNoWait); });
        }
    }
}

}  // namespace
}  // namespace vidorra::test
