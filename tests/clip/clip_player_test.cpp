#include "vidorra/clip/clip_player.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <mutex>
#include <stdexcept>
#include <string>
#include <utility>

#include "playing.h"
#include "support/log_capture.h"
#include "vdr_utils/warnings_store_async.h"

namespace vidorra {
namespace {

using namespace std::chrono_literals;
using State = PlayStatus::State;
using test::kSoon;
using test::microseconds;

PlayOptions loop() {
    PlayOptions options;
    options.clip.passes = 0;
    return options;
}

std::string pictures(const std::string& name, const std::string& seconds) {
    return test::mediaFile(name,
                           {"-f", "lavfi", "-i", "testsrc2=s=64x48:r=25:d=" + seconds, "-c:v", "mpeg4"});
}

VideoFrame slate() {
    return {Picture(Size{16, 16}, AV_PIX_FMT_GRAY8, AVCOL_RANGE_JPEG, 1), Timestamp(), Frame::NoFlags};
}

bool hasNoSignal(const VideoFrame& frame) {
    return (frame.flags() & Frame::NoSignal) != Frame::NoFlags;
}

TEST(ClipPlayer, GivesEveryFrameOnce) {
    const test::Reading all = test::readAll(test::clip());
    ClipPlayer player(test::clip());
    test::Playing playing;
    test::play(player, playing, 0, 25);
    EXPECT_EQ(playing.pictures, all.times());
    EXPECT_EQ(playing.sounds.size(), all.sounds.size());
    EXPECT_EQ(playing.sound, all.sound);
    const PlayCounters counters = player.status().counters;
    EXPECT_EQ(counters.pictures, 25U);
    EXPECT_EQ(counters.sounds, all.sounds.size());
    EXPECT_EQ(counters.repeatedPictures, 0U);
    EXPECT_EQ(counters.skippedPictures, 0U);
    EXPECT_EQ(counters.skippedSounds, 0U);
}

TEST(ClipPlayer, AFileShorterThanWhatIsReadAheadBecomesReadyAndEnds) {
    ClipPlayer player(pictures("short.mov", "0.12"));
    ASSERT_TRUE(player.waitUntil(State::Ready, kSoon));
    EXPECT_EQ(player.status().state, State::Ready);
    for (std::int64_t tick = 0; tick < 3; ++tick) {
        EXPECT_EQ(player.getVideoFrame(microseconds(tick * 40000), kSoon).timestamp().value, tick * 40000);
        EXPECT_EQ(player.status().state, State::Ready) << tick;
    }
    EXPECT_FALSE(player.waitUntil(State::Ended, 1ms));
    EXPECT_EQ(player.getVideoFrame(microseconds(120000)).timestamp().value, 80000) << "the last one stays";
    EXPECT_TRUE(player.waitUntil(State::Ended, 0ms));
    EXPECT_TRUE(player.waitUntil(State::Ready, 0ms)) << "it was";
    EXPECT_FALSE(player.waitUntil(State::Failed, kSoon)) << "returns at once";
}

TEST(ClipPlayer, AStillPictureIsServed) {
    const std::string path =
        test::mediaFile("still.png", {"-f", "lavfi", "-i", "testsrc2=s=64x48", "-frames:v", "1"});
    ClipPlayer player(path);
    const VideoFrame picture = player.getVideoFrame(microseconds(7), kSoon);
    EXPECT_EQ(picture.timestamp().value, 7);
    EXPECT_EQ(player.getVideoFrame(microseconds(3600000000), kSoon).timestamp().value, 7);
}

TEST(ClipPlayer, AWaitBeforeTheFirstQuestionLosesNothing) {
    const std::string path = test::mediaFile(
        "cue.mov", {"-f", "lavfi", "-i", "testsrc2=s=64x48:r=25:d=4", "-f", "lavfi", "-i",
                    "aevalsrc=exprs=random(0)-0.5:s=48000:d=4", "-c:v", "mpeg4", "-c:a", "pcm_s16le"});
    const test::Reading all = test::readAll(path);
    PlayOptions options;
    options.clip.readTimeout = 1ms;
    ClipPlayer player(path, options);
    ASSERT_TRUE(player.waitUntil(State::Ready, kSoon));
    // Ready means here that it has read enough and waits, since the file is longer: no time changes that.
    const PlayStatus cued = player.status();
    EXPECT_FALSE(player.waitUntil(State::Ended, 300ms));
    EXPECT_EQ(player.status().bufferedBytes, cued.bufferedBytes);
    EXPECT_LT(cued.bufferedPictures.value, 1500000);
    test::Playing playing;
    test::play(player, playing, 0, 100, 600000000);
    EXPECT_EQ(playing.pictures, all.times());
    EXPECT_EQ(playing.sound, all.sound);
    EXPECT_EQ(player.status().counters.skippedSounds, 0U);
    EXPECT_EQ(player.status().counters.repeatedPictures, 0U);
}

TEST(ClipPlayer, ALongLoopGivesEachPictureAtItsTick) {
    ClipPlayer player(test::clip(), loop());
    const test::Reading once = test::readAll(test::clip());
    constexpr std::int64_t kPasses = 40;
    std::size_t most = 0;
    for (std::int64_t pass = 0; pass < kPasses; ++pass) {
        test::Playing playing;
        playing.soundEnd = pass * 1000000;
        test::play(player, playing, pass * 25, pass * 25 + 25);
        std::vector<std::int64_t> expected = once.times();
        for (std::int64_t& time : expected) {
            time += pass * 1000000;
        }
        ASSERT_EQ(playing.pictures, expected) << "pass " << pass;
        ASSERT_EQ(playing.sound, once.sound) << "pass " << pass;
        most = std::max(most, player.status().bufferedBytes);
    }
    const PlayStatus status = player.status();
    EXPECT_EQ(status.counters.pictures, 25U * kPasses);
    EXPECT_EQ(status.counters.skippedSounds, 0U);
    EXPECT_GE(status.pass, static_cast<std::uint64_t>(kPasses - 1));
    EXPECT_LT(most, 1U << 20) << "a second of pictures of 64 by 48 and of sound";
}

TEST(ClipPlayer, GivesTheNearestPictureAndRepeatsIt) {
    ClipPlayer player(pictures("nearest.mov", "1"));
    const auto ask = [&player](std::int64_t time) {
        return player.getVideoFrame(microseconds(time), kSoon).timestamp().value;
    };
    EXPECT_EQ(ask(0), 0);
    EXPECT_EQ(ask(19999), 0);
    EXPECT_EQ(ask(20000), 40000);
    EXPECT_EQ(ask(50000), 40000);
    EXPECT_EQ(ask(200000), 200000);
    const PlayCounters counters = player.status().counters;
    EXPECT_EQ(counters.pictures, 3U);
    EXPECT_EQ(counters.repeatedPictures, 2U);
    EXPECT_EQ(counters.skippedPictures, 3U);
}

TEST(ClipPlayer, CountsFromTheFirstTimeOfEitherKind) {
    ClipPlayer player(test::clip());
    EXPECT_EQ(player.getAudioFrame(microseconds(1000000), kSoon).timestamp().value, 1000000);
    EXPECT_EQ(player.getVideoFrame(microseconds(1080000), kSoon).timestamp().value, 1080000);
    EXPECT_EQ(player.status().position.value, 80000);
}

TEST(ClipPlayer, SoundIsGivenOnce) {
    ClipPlayer player(test::clip());
    const AudioFrame first = player.getAudioFrame(microseconds(0), kSoon);
    ASSERT_FALSE(first.empty());
    EXPECT_TRUE(player.getAudioFrame(microseconds(1), kSoon).empty()) << "the next one begins later";
    const std::int64_t end = first.audioBuffer().duration().value;
    EXPECT_NEAR(player.getAudioFrame(microseconds(end), kSoon).timestamp().value, end, 1);
}

TEST(ClipPlayer, PicturesThatNobodyAsksForDoNotHoldUpTheSound) {
    const std::string path = test::mediaFile(
        "unasked.mov", {"-f", "lavfi", "-i", "testsrc2=s=64x48:r=25:d=6", "-f", "lavfi", "-i",
                        "aevalsrc=exprs=random(0)-0.5:s=48000:d=6", "-c:v", "mpeg4", "-c:a", "pcm_s16le"});
    const test::Reading all = test::readAll(path);
    ClipPlayer player(path);
    std::size_t samples = 0;
    for (std::int64_t time = 0; time < 6000000;) {
        const AudioFrame frame = player.getAudioFrame(microseconds(time), kSoon);
        ASSERT_FALSE(frame.empty()) << time;
        samples += frame.audioBuffer().numberOfSamples();
        time = frame.timestamp().value + frame.audioBuffer().duration().value;
    }
    EXPECT_EQ(samples, static_cast<std::size_t>(all.samples));
    EXPECT_GT(player.status().counters.skippedPictures, 100U);
}

TEST(ClipPlayer, TakesNoMoreMemoryThanItMay) {
    const std::string path = test::mediaFile(
        "large.mov", {"-f", "lavfi", "-i", "testsrc2=s=640x360:r=25:d=2", "-c:v", "mpeg4", "-b:v", "500k"});
    constexpr std::size_t kPicture = 640 * 360 * 3 / 2;
    PlayOptions options;
    options.bytes = 6 * kPicture;
    ClipPlayer player(path, options);
    ASSERT_TRUE(player.waitUntil(State::Ready, kSoon));
    for (std::int64_t tick = 0; tick < 50; ++tick) {
        EXPECT_EQ(player.getVideoFrame(microseconds(tick * 40000), kSoon).timestamp().value, tick * 40000);
        // FFmpeg's pictures are a little larger than their pixels.
        EXPECT_LT(player.status().bufferedBytes, 8 * kPicture);
    }
    EXPECT_EQ(player.status().counters.skippedPictures, 0U);
}

TEST(ClipPlayer, HoldsFourFramesHoweverLargeTheyAre) {
    PlayOptions options;
    options.bytes = 0;
    ClipPlayer player(pictures("four.mov", "1"), options);
    ASSERT_TRUE(player.waitUntil(State::Ready, kSoon));
    EXPECT_EQ(player.status().bufferedPictures.value, 4 * 40000);
    for (std::int64_t tick = 0; tick < 25; ++tick) {
        EXPECT_EQ(player.getVideoFrame(microseconds(tick * 40000), kSoon).timestamp().value, tick * 40000);
    }
}

TEST(ClipPlayer, TellsOfTheClip) {
    ClipPlayer player(test::clip());
    ASSERT_TRUE(player.waitUntil(State::Ready, kSoon));
    PlayStatus status = player.status();
    EXPECT_EQ(status.duration.value, 1000000);
    EXPECT_TRUE(status.position.isNull);
    EXPECT_GE(status.bufferedPictures.value, 500000);
    EXPECT_GE(status.bufferedSound.value, 500000);
    EXPECT_EQ(status.message, "");
    EXPECT_FALSE(player.getVideoFrame(microseconds(0)).empty());
    EXPECT_FALSE(player.getVideoFrame(microseconds(200000)).empty());
    status = player.status();
    EXPECT_EQ(status.position.value, 200000);
    EXPECT_EQ(status.counters.pictures, 2U);
    EXPECT_EQ(status.counters.skippedPictures, 4U);
}

TEST(ClipPlayer, WrongUseThrows) {
    ClipPlayer player(test::clip());
    EXPECT_THROW(std::ignore = player.getVideoFrame(Timestamp()), std::invalid_argument);
    EXPECT_THROW(std::ignore = player.getAudioFrame(Timestamp()), std::invalid_argument);
    ASSERT_FALSE(player.getVideoFrame(microseconds(40000), kSoon).empty());
    EXPECT_THROW(std::ignore = player.getVideoFrame(microseconds(40000)), std::logic_error);
    EXPECT_FALSE(player.getVideoFrame(microseconds(40001)).empty());
    ASSERT_FALSE(player.getAudioFrame(microseconds(40001), kSoon).empty());
    EXPECT_THROW(std::ignore = player.getAudioFrame(microseconds(40001)), std::logic_error);

    EXPECT_THROW(ClipPlayer(std::shared_ptr<ByteSource>()), std::invalid_argument);
    PlayOptions options;
    options.ahead = -1us;
    EXPECT_THROW(ClipPlayer(test::clip(), options), std::invalid_argument);
    options = {};
    options.standInAfter = -1us;
    EXPECT_THROW(ClipPlayer(test::clip(), options), std::invalid_argument);
    options = {};
    options.clip.threads = -1;
    EXPECT_THROW(ClipPlayer(test::clip(), options), std::invalid_argument);
    options = {};
    options.reconnect = true;
    EXPECT_THROW(ClipPlayer(memorySource({1, 2, 3}), options), std::invalid_argument);
}

TEST(ClipPlayer, ShowsAStandInAfterATimeWithoutPictures) {
    PlayOptions options;
    options.standIn = slate();
    options.standInAfter = 200ms;
    ClipPlayer player(pictures("before.mov", "0.2"), options);
    const VideoFrame first = player.getVideoFrame(microseconds(0), kSoon);
    EXPECT_FALSE(hasNoSignal(first));
    // The last picture ends at 0.2 s.
    const VideoFrame last = player.getVideoFrame(microseconds(399999), kSoon);
    EXPECT_FALSE(hasNoSignal(last));
    EXPECT_EQ(last.timestamp().value, 160000);
    const VideoFrame standIn = player.getVideoFrame(microseconds(400000), kSoon);
    EXPECT_TRUE(hasNoSignal(standIn));
    EXPECT_EQ(standIn.timestamp().value, 400000);
    EXPECT_EQ(standIn.picture().frameSize(), (Size{16, 16}));
    EXPECT_EQ(player.status().counters.standIns, 1U);
}

TEST(ClipPlayer, ShowsAStandInWhereNothingCanBeOpened) {
    const test::LogCapture log;
    PlayOptions options;
    options.standIn = slate();
    ClipPlayer player("/nowhere/clip.mp4", options);
    ASSERT_TRUE(player.waitUntil(State::Failed, kSoon));
    EXPECT_TRUE(player.getVideoFrame(microseconds(0)).empty());
    EXPECT_TRUE(player.getVideoFrame(microseconds(999999)).empty());
    EXPECT_TRUE(hasNoSignal(player.getVideoFrame(microseconds(1000000))));
}

// What the user was told, in order: "+" raises a warning and "-" withdraws it.
class Told {
public:
    Told() {
        mStore->setObserver([this](auto change, const std::string& text) {
            const std::lock_guard lock(mMutex);
            mTexts.push_back((change == vx::vdr::utils::WarningsStoreAsync::Change::Shown ? "+" : "-") +
                             text);
        });
    }
    Told(const Told&) = delete;
    Told& operator=(const Told&) = delete;
    ~Told() { mStore->setObserver({}); }

    std::shared_ptr<vx::vdr::utils::WarningsStoreAsync> store() const { return mStore; }

    std::vector<std::string> texts() const {
        const std::lock_guard lock(mMutex);
        return mTexts;
    }

private:
    std::shared_ptr<vx::vdr::utils::WarningsStoreAsync> mStore =
        std::make_shared<vx::vdr::utils::WarningsStoreAsync>();
    mutable std::mutex mMutex;
    std::vector<std::string> mTexts;
};

TEST(ClipPlayerWarnings, TellOfReadingThatIsTooLate) {
    const Told told;
    PlayOptions options = loop();
    options.clip.warnings = told.store();
    ClipPlayer player(test::clip(), options);
    ASSERT_FALSE(player.getVideoFrame(microseconds(0), kSoon).empty());
    EXPECT_EQ(told.texts(), std::vector<std::string>());
    ASSERT_EQ(player.getVideoFrame(microseconds(8000000), kSoon).timestamp().value, 8000000);
    const std::string text =
        "Not enough decoding resources to process the media file \"clip.mov\". This could lead to partial or "
        "full audio/video frames loss.";
    EXPECT_EQ(told.texts(), (std::vector<std::string>{"+" + text, "-" + text}));
}

TEST(ClipPlayerWarnings, TellOfTracksThatLieFarApart) {
    // All the sound comes after the pictures.
    const std::string video =
        test::mediaFile("apart_v.ts", {"-f", "lavfi", "-i", "testsrc2=s=64x48:r=25:d=1", "-c:v", "mpeg2video",
                                       "-mpegts_start_pid", "0x100"});
    const std::string audio = test::mediaFile(
        "apart_a.ts", {"-f", "lavfi", "-i", "sine=r=48000:d=1", "-c:a", "mp2", "-mpegts_start_pid", "0x200"});
    const std::string path =
        test::temporaryFile("apart.ts", test::fileContent(video) + test::fileContent(audio));
    const std::string text =
        "File \"apart.ts\" contains a non-interleaved media stream, issues with audio may occur";
    const test::LogCapture log;
    const Told told;
    PlayOptions options;
    options.clip.warnings = told.store();
    ClipPlayer player(path, options);
    ASSERT_FALSE(player.getAudioFrame(microseconds(500000), kSoon).empty());
    EXPECT_THAT(told.texts(), testing::Contains("+" + text));
    EXPECT_THAT(log.lines(), testing::Contains(test::LogCapture::Line{2, "ClipReader: " + text}));
}

TEST(ClipPlayerWarnings, TellOfPacketsWithoutADuration) {
    const std::string path = test::mediaFile(
        "zero.flv", {"-f", "lavfi", "-i", "testsrc2=s=64x48:r=25:d=1", "-c:v", "flv1", "-f", "flv"});
    const std::string text = "Duration of video packets cannot be retrieved from \"zero.flv\"";
    const test::LogCapture log;
    const Told told;
    PlayOptions options;
    options.clip.warnings = told.store();
    ClipPlayer player(path, options);
    ASSERT_TRUE(player.waitUntil(State::Ready, kSoon));
    ASSERT_FALSE(told.texts().empty());
    EXPECT_EQ(told.texts()[0], "+" + text);
    EXPECT_EQ(log.lines(), (std::vector<test::LogCapture::Line>{{2, "ClipReader: " + text}}));
}

}  // namespace
}  // namespace vidorra
