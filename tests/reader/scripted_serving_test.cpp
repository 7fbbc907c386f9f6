// When the reader thread starts to serve frames, how long it waits for room, and how it ends, with packets
// whose times ordinary files do not give on demand.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <vidorra/vidorra.h>

#include "frames.h"
#include "scripted_source.h"
#include "support/log_capture.h"

extern "C" {
#include <libavutil/error.h>
}

namespace vidorra::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;
using testing::ElementsAre;
using Mode = MediaFileReader::PlaybackMode;
using Reader = MediaFileReaderAsync;

const std::string kAudioLost = "MediaFileReaderAsync: Skipping audio frame, because the AudioQueue is full";
const std::string kVideoLost = "MediaFileReaderAsync: Skipping video frame, because the VideoQueue is full";

// Waits until `condition` holds, for half a minute at most.
template <class Condition>
bool eventually(Condition condition) {
    const auto deadline = steady_clock::now() + seconds(30);
    while (!condition()) {
        if (steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(milliseconds(1));
    }
    return true;
}

// A reader of a script whose thread has ended.
class Ended {
public:
    explicit Ended(std::vector<Step> steps, std::optional<unsigned> audio = 0,
                   std::optional<unsigned> video = 0)
        : mScript(std::move(steps)),
          mReader(std::make_unique<Reader>(scriptedFile(), Mode::Once, audio, video, nullptr)) {
        EXPECT_TRUE(eventually([this] { return mScript.readerIsGone(); }));
    }

    Reader& operator*() { return *mReader; }
    Reader* operator->() { return mReader.get(); }

    // Whether frames are served: only then does a request set the anchor.
    bool ready() {
        static_cast<void>(mReader->getVideoFrame(at(5), kNoWait));
        return mReader->getPtsStarted(at(6)).value == 5;
    }

private:
    Script mScript;
    std::unique_ptr<Reader> mReader;
};

struct Preload {
    const char* name;
    std::vector<Step> steps;
    bool ready;
    std::optional<unsigned> audio = 0;
    std::optional<unsigned> video = 0;
};

std::vector<Preload> preloads() {
    constexpr auto kNone = std::nullopt;
    return {
        {"video of 250 ms", {video(0), video(250000)}, true, kNone, 0},
        {"video of less", {video(0), video(249999)}, false, kNone, 0},
        {"video that does not begin at 0", {video(7000), video(257000)}, true, kNone, 0},
        {"late video of less", {video(7000), video(256999)}, false, kNone, 0},
        // The newest frame of 50 ms does not count.
        {"audio of 250 ms before the newest frame", audios(7, 50000), true, 0, kNone},
        {"audio of less", audios(6, 50000), false, 0, kNone},
        {"both", audios(7, 50000) + std::vector<Step>{video(0), video(250000)}, true},
        {"both, the other way round", std::vector<Step>{video(0), video(250000)} + audios(7, 50000), true},
        {"too little video", audios(7, 50000) + std::vector<Step>{video(0), video(249999)}, false},
        {"too little audio", audios(6, 50000) + std::vector<Step>{video(0), video(250000)}, false},
        {"audio alone of two", audios(7, 50000), false},
        {"video alone of two", {video(0), video(250000)}, false},
        // Both are measured from the first frame of either.
        {"one late frame of video", audios(7, 50000) + std::vector<Step>{video(250000)}, true},
        {"one frame of video that is not late enough", audios(7, 50000) + std::vector<Step>{video(249999)},
         false},
        {"late audio", std::vector<Step>{video(0), video(250000), audio(300000, 50000)}, true},
        {"audio that is not late enough", std::vector<Step>{video(0), video(250000), audio(250000, 50000)},
         false},
        {"a full video queue", videos(60, 1000), true},
        {"a video queue with room for one", videos(59, 1000), false},
        {"a full audio queue", audios(100, 1000), true},
        {"an audio queue with room for one", audios(99, 1000), false},
        {"a track that the file does not have", {video(0), video(250000)}, true, 9, 0},
        {"nothing", {}, false},
        {"an empty packet that is not the end", {video(0), kEmpty, video(250000)}, true, kNone, 0},
    };
}

TEST(ScriptedServing, BeginsWith250MillisecondsOfEachTrackOrAFullQueue) {
    for (const Preload& row : preloads()) {
        SCOPED_TRACE(row.name);
        Ended reader(row.steps, row.audio, row.video);
        EXPECT_EQ(reader.ready(), row.ready);
    }
}

TEST(ScriptedServing, AFileThatNeverGotReadyAnswersNothingAndAtOnce) {
    Ended reader(videos(6, 40000), std::nullopt);
    const auto start = steady_clock::now();
    EXPECT_TRUE(reader->getVideoFrame(at(1), seconds(60)).empty());
    EXPECT_TRUE(reader->getAudioFrame(at(1), seconds(60)).empty());
    EXPECT_LT(steady_clock::now() - start, seconds(30));
    EXPECT_EQ(reader->getPtsStarted(at(77)).value, 77) << "no request has set the anchor";
}

TEST(ScriptedServing, WhatIsBufferedIsServedAfterTheThreadHasEnded) {
    Ended reader(audios(7, 50000) + videos(10, 40000));
    for (std::int64_t i = 0; i < 7; ++i) {
        EXPECT_EQ(reader->getAudioFrame(at(9000 + i * 50000), kNoWait).timestamp().value, 9000 + i * 50000);
    }
    const auto start = steady_clock::now();
    EXPECT_TRUE(reader->getAudioFrame(at(500000), milliseconds(40)).empty());
    EXPECT_GE(steady_clock::now() - start, milliseconds(40)) << "an empty queue costs the whole timeout";
    EXPECT_EQ(reader->getVideoFrame(at(9000 + 10000000), kNoWait).timestamp().value, 9000 + 360000);
}

TEST(ScriptedServing, ARequestInAnotherBaseIsAnsweredOnTheCallersClock) {
    Ended reader(videos(10, 40000), std::nullopt);
    EXPECT_EQ(reader->getVideoFrame({{1, 1000}, 5000}, kNoWait).timestamp().value, 5000000);
    const VideoFrame frame = reader->getVideoFrame({{1, 1000}, 5100}, kNoWait);
    EXPECT_EQ(frame.timestamp().value, 5120000);
    EXPECT_EQ(frame.timestamp().timebase, Timebase());
}

TEST(ScriptedServing, AnEarlierRequestThanTheAnchorIsAnsweredByTheBeginning) {
    Ended reader(videos(10, 40000), std::nullopt);
    EXPECT_EQ(reader->getPtsStarted(at(1000000)).value, 1000000);
    EXPECT_EQ(reader->getVideoFrame(at(900000), kNoWait).timestamp().value, 1000000);
}

// How long it took from the start until the log had so many lines.
steady_clock::duration untilLines(const LogCapture& log, std::size_t count, steady_clock::time_point start) {
    EXPECT_TRUE(eventually([&] { return log.lines().size() >= count; }));
    return steady_clock::now() - start;
}

struct Overflow {
    const char* name;
    std::vector<Step> steps;
    std::string lost;
    // How long a push waits for room.
    milliseconds wait;
    std::optional<unsigned> audio = 0;
    std::optional<unsigned> video = 0;
};

TEST(ScriptedServing, AFullQueueLosesAFrameAfterTheTimeThatIsBuffered) {
    constexpr auto kNone = std::nullopt;
    const std::vector<Overflow> rows = {
        {"video", videos(61, 10000), kVideoLost, milliseconds(590), kNone, 0},
        {"audio, without its newest frame", audios(101, 4000), kAudioLost, milliseconds(392), 0, kNone},
        {"video while there is more audio", audios(50, 10000) + videos(61, 1000), kVideoLost,
         milliseconds(480)},
        {"audio while there is more video", videos(50, 10000) + audios(101, 1000), kAudioLost,
         milliseconds(490)},
        // The track that is not selected counts as a quarter of a second.
        {"little video", videos(61, 1000), kVideoLost, milliseconds(250), kNone, 0},
        {"little audio", audios(101, 1000), kAudioLost, milliseconds(250), 0, kNone},
    };
    for (const Overflow& row : rows) {
        SCOPED_TRACE(row.name);
        const LogCapture log;
        const Script script(row.steps);
        const auto start = steady_clock::now();
        const Reader reader(scriptedFile(), Mode::Once, row.audio, row.video, nullptr);
        const auto waited = untilLines(log, 1, start);
        EXPECT_GE(waited, row.wait);
        EXPECT_LT(waited, row.wait + seconds(5));
        EXPECT_THAT(log.lines(), ElementsAre(LogCapture::Line{2, row.lost}));
    }
}

TEST(ScriptedServing, TheWaitForRoomIsSettledWhenAQueueIsFirstFull) {
    // The frames that find no room are minutes ahead.
    const LogCapture log;
    const Script script(videos(60, 1000) +
                        std::vector<Step>{video(100000000), video(200000000), video(300000000)});
    const auto start = steady_clock::now();
    const Reader reader(scriptedFile(), Mode::Once, std::nullopt, 0, nullptr);
    EXPECT_LT(untilLines(log, 3, start), seconds(20));
    EXPECT_GE(steady_clock::now() - start, milliseconds(750));
}

TEST(ScriptedServing, TheThreadGoesOnAfterAFrameThatFoundNoRoom) {
    const LogCapture log;
    const Script script(videos(70, 1000));
    Reader reader(scriptedFile(), Mode::Once, std::nullopt, 0, nullptr);
    ASSERT_TRUE(eventually([&] { return !log.lines().empty(); }));
    EXPECT_EQ(reader.getVideoFrame(at(0), kNoWait).timestamp().value, 0);
    std::int64_t last = 0;
    ASSERT_TRUE(eventually([&, time = std::int64_t{50000}]() mutable {
        time += 1000;
        last = reader.getVideoFrame(at(time), kNoWait).timestamp().value;
        return last == 69000;
    })) << last;
    EXPECT_EQ(script.reads(), 71U);
}

TEST(ScriptedServing, NoTrackAtAllIsNeverReady) {
    const Script script(videos(100, 40000));
    Reader reader(scriptedFile(), Mode::Loop, std::nullopt, std::nullopt, nullptr);
    EXPECT_TRUE(reader.getVideoFrame(at(1), kNoWait).empty());
    EXPECT_EQ(reader.getPtsStarted(at(3)).value, 3);
    EXPECT_EQ(script.reads(), 0U);
}

TEST(ScriptedServing, GoesAtOnceWhileItsThreadWaitsForRoom) {
    // A minute is buffered.
    for (const bool audio : {false, true}) {
        SCOPED_TRACE(audio ? "audio" : "video");
        const std::vector<Step> steps = audio ? audios(101, 600000) : videos(61, 1000000);
        const auto track = [](bool selected) { return selected ? std::optional<unsigned>(0) : std::nullopt; };
        const LogCapture log;
        const Script script(steps);
        auto reader =
            std::make_unique<Reader>(scriptedFile(), Mode::Once, track(audio), track(!audio), nullptr);
        // The last frame was asked for: what follows is the wait for room.
        ASSERT_TRUE(eventually([&] { return script.reads() == steps.size(); }));
        const auto start = steady_clock::now();
        reader.reset();
        EXPECT_LT(steady_clock::now() - start, seconds(30));
        EXPECT_THAT(log.texts(), testing::IsEmpty()) << "the frame that waited was not skipped";
    }
}

TEST(ScriptedServing, ItsEndWaitsForTheReadThatIsUnderWay) {
    std::promise<void> inRead;
    std::promise<void> leaveRead;
    const auto blocking = calls().avReadFrame.replace([&](void*, void*) {
        inRead.set_value();
        leaveRead.get_future().wait();
        return AVERROR_EOF;
    });
    auto reader = std::make_unique<Reader>(scriptedFile(), Mode::Once, std::nullopt, 0, nullptr);
    inRead.get_future().wait();
    auto gone = std::async(std::launch::async, [&] { reader.reset(); });
    EXPECT_EQ(gone.wait_for(milliseconds(50)), std::future_status::timeout);
    leaveRead.set_value();
    gone.get();
}

TEST(ScriptedServingDeathTest, WhatEndsTheProcessIsLoggedBefore) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            const Script script({video(0), video(0)});
            const Reader reader(scriptedFile(), Mode::Once, std::nullopt, 0, nullptr);
            std::this_thread::sleep_for(seconds(10));
        },
        "error: MediaFileReaderAsync: the reader thread ends the process: "
        "BlockingFrameBufferBase::push\\(\\): frame PTS must be greater than last added one\n"
        ".*terminate");
}

TEST(ScriptedServingDeathTest, AReadThatFailsEndsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            const Script script({video(0), kError});
            const Reader reader(scriptedFile(), Mode::Once, std::nullopt, 0, nullptr);
            std::this_thread::sleep_for(seconds(10));
        },
        "Input/output error");
}

TEST(ScriptedServingDeathTest, TwoFramesOfOneTimeEndTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            const Script script({video(0), video(0)});
            const Reader reader(scriptedFile(), Mode::Once, std::nullopt, 0, nullptr);
            std::this_thread::sleep_for(seconds(10));
        },
        "frame PTS must be greater than last added one");
}

}  // namespace
}  // namespace vidorra::test
