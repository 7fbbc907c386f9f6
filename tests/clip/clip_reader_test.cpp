#include "vidorra/clip/clip_reader.h"

#include <gmock/gmock.h>

#include <stdexcept>

#include "clips.h"
#include "support/ffprobe.h"
#include "support/left_open.h"
#include "support/throw_text.h"
#include "vidorra/core/ffmpeg_error.h"

namespace vidorra {
namespace {

using test::clip;
using test::microseconds;
using test::readAll;
using test::Reading;
using test::soundFile;
using testing::ElementsAre;

TEST(ClipReader, GivesEveryFrame) {
    const Reading reading = readAll(clip());
    EXPECT_EQ(reading.hashes, test::frameHashes(clip()));
    ASSERT_EQ(reading.pictures.size(), 25U);
    for (std::size_t i = 0; i < reading.pictures.size(); ++i) {
        EXPECT_EQ(reading.pictures[i].time, static_cast<std::int64_t>(i) * 40000);
        EXPECT_EQ(reading.pictures[i].duration, 40000);
    }
    EXPECT_EQ(reading.samples, 48000);
    EXPECT_EQ(reading.sounds.front().time, 0);
}

TEST(ClipReader, OpensNothingBeforeItIsAsked) {
    ClipReader reader("/nowhere.mp4");
    EXPECT_THROW(reader.open(), FFmpegError);
    EXPECT_THROW(static_cast<void>(reader.read()), FFmpegError);
}

TEST(ClipReader, IsAtItsEndForGood) {
    ClipReader reader(clip());
    readAll(reader);
    EXPECT_FALSE(reader.read());
    EXPECT_FALSE(reader.read());
}

struct Sound {
    const char* file;
    const char* encoder;
    /// In a pass that another one follows, when it is not what one reading gives.
    std::int64_t samplesBetweenPasses = 0;
};

class Seams : public testing::TestWithParam<Sound> {};

TEST_P(Seams, HoldNoSampleTooFewTwiceOrOfPriming) {
    const std::string path = soundFile(GetParam().file, GetParam().encoder);
    const Reading once = readAll(path);
    const std::int64_t between =
        GetParam().samplesBetweenPasses != 0 ? GetParam().samplesBetweenPasses : once.samples;
    ClipOptions options;
    options.passes = 3;
    const Reading loop = readAll(path, options);
    EXPECT_EQ(loop.samples, 2 * between + once.samples);
    const auto bytes = static_cast<std::ptrdiff_t>(once.sound.size()) * between / once.samples;
    std::vector<std::uint8_t> thrice;
    for (int i = 0; i < 2; ++i) {
        thrice.insert(thrice.end(), once.sound.begin(), once.sound.begin() + bytes);
    }
    thrice.insert(thrice.end(), once.sound.begin(), once.sound.end());
    EXPECT_TRUE(loop.sound == thrice) << "the passes differ";
    for (std::size_t i = 1; i < loop.sounds.size(); ++i) {
        EXPECT_EQ(loop.sounds[i].time, loop.sounds[i - 1].time + loop.sounds[i - 1].duration) << i;
    }
    EXPECT_EQ(loop.sounds.back().pass, 2U);
}

// The container tells of the padding of seam.m4a, which FFmpeg cuts from its version 9 on.
INSTANTIATE_TEST_SUITE_P(Codecs, Seams,
                         testing::Values(Sound{"seam.mp3", "libmp3lame"}, Sound{"seam.webm", "libopus"},
                                         Sound{"seam.opus", "libopus"}, Sound{"seam.m4a", "aac", 48000},
                                         Sound{"seam.mkv", "libvorbis"}, Sound{"seam.ac3", "ac3"}));

TEST(ClipReader, APassBeginsAtTheGreatestEndOfTheOneBefore) {
    ClipOptions options;
    options.passes = 2;
    const Reading loop = readAll(clip(), options);
    ASSERT_EQ(loop.pictures.size(), 50U);
    EXPECT_EQ(loop.pictures[25].time, 1000000);
    EXPECT_EQ(loop.pictures[25].sourceTime, 0);
    EXPECT_EQ(loop.pictures[25].pass, 1U);
}

TEST(ClipReader, LoopsForEverWithZeroPasses) {
    ClipOptions options;
    options.passes = 0;
    ClipReader reader(clip(), options);
    EXPECT_GT(readAll(reader, 1000).pictures.back().pass, 5U);
}

TEST(ClipReader, APassEndsWithItsPicturesWhenAsked) {
    const std::string path =
        test::mediaFile("long_sound.mkv", {"-f", "lavfi", "-i", "testsrc2=s=64x48:r=25:d=0.6", "-f", "lavfi",
                                           "-i", "sine=r=48000:d=1", "-c:v", "ffv1", "-c:a", "pcm_s16le"});
    ClipOptions options;
    EXPECT_EQ(readAll(path, options).samples, 48000);
    options.endWithPictures = true;
    options.passes = 2;
    const Reading loop = readAll(path, options);
    EXPECT_EQ(loop.samples, 2 * 28800);
    EXPECT_EQ(loop.pictures.at(15).time, 600000);
}

TEST(ClipReader, ReadsFromTheInToTheOutPoint) {
    ClipOptions options;
    options.in = microseconds(250000);
    options.out = microseconds(610000);
    const Reading reading = readAll(clip(), options);
    EXPECT_THAT(reading.times(),
                ElementsAre(0, 30000, 70000, 110000, 150000, 190000, 230000, 270000, 310000, 350000));
    EXPECT_EQ(reading.pictures.front().duration, 30000);
    EXPECT_EQ(reading.pictures.back().duration, 10000);
    EXPECT_EQ(reading.samples, 17280);
    EXPECT_EQ(reading.pictures.front().sourceTime, 250000);
}

TEST(ClipReader, AnInPointPastTheEndGivesNothing) {
    ClipOptions options;
    options.in = microseconds(5000000);
    const Reading reading = readAll(clip(), options);
    EXPECT_TRUE(reading.pictures.empty());
    EXPECT_TRUE(reading.sounds.empty());
}

TEST(ClipReader, AnOutPointPastTheEndIsTheEnd) {
    ClipOptions options;
    options.out = microseconds(5000000);
    EXPECT_EQ(readAll(clip(), options).pictures.size(), 25U);
}

TEST(ClipReader, SeeksToThePictureThatShowsAndTheSample) {
    ClipReader reader(clip());
    readAll(reader, 10);
    reader.seek(microseconds(500000));
    Reading reading = readAll(reader);
    EXPECT_EQ(reading.pictures.front().time, 500000);
    EXPECT_EQ(reading.pictures.at(1).time, 520000);
    EXPECT_EQ(reading.samples, 24000);
    reader.seek(microseconds(0));
    EXPECT_EQ(readAll(reader).samples, 48000);
    reader.seek(microseconds(9000000));
    EXPECT_FALSE(reader.read());
}

TEST(ClipReader, SeeksToTheKeyPictureBefore) {
    ClipReader reader(clip());
    reader.seek(microseconds(700000), ClipReader::SeekTo::KeyFrame);
    const Reading reading = readAll(reader);
    EXPECT_EQ(reading.pictures.front().time, 400000);
    EXPECT_EQ(reading.samples, 28800);
}

TEST(ClipReader, SeeksFarIntoALongFile) {
    const std::string path =
        test::mediaFile("long.mp4", {"-f", "lavfi", "-i", "testsrc2=s=64x48:r=25:d=40", "-f", "lavfi", "-i",
                                     "sine=r=48000:d=40", "-c:v", "libx264", "-preset", "ultrafast", "-bf",
                                     "2", "-g", "200", "-c:a", "aac"});
    const Reading whole = readAll(path);
    ClipReader reader(path);
    reader.seek(microseconds(31000000));
    const Reading far = readAll(reader);
    EXPECT_EQ(far.pictures.size(), whole.pictures.size() - 775);
    EXPECT_EQ(far.pictures.front().time, 31000000);
    EXPECT_EQ(far.samples, whole.samples - 31 * 48000);
}

TEST(ClipReader, TellsWhereItIsAndHowLongAPassIs) {
    ClipReader reader(clip());
    EXPECT_EQ(reader.position(), microseconds(0));
    EXPECT_EQ(reader.duration(), microseconds(1000000));
    readAll(reader);
    EXPECT_EQ(reader.position(), microseconds(1000000));
    ClipOptions options;
    options.in = microseconds(200000);
    options.out = microseconds(700000);
    EXPECT_EQ(ClipReader(clip(), options).duration(), microseconds(500000));
}

TEST(ClipReader, FramesOfAPacketThatHoldsSeveralAreAllGiven) {
    const std::string path = test::mediaFile(
        "adpcm.wav", {"-f", "lavfi", "-i", "sine=r=48000:d=2", "-ac", "2", "-c:a", "adpcm_ms"});
    ClipReader reader(path);
    const Reading reading = readAll(reader);
    EXPECT_GE(reading.samples, 96000);
    EXPECT_GT(reader.counters().repairedTimes, 0U);
    for (std::size_t i = 1; i < reading.sounds.size(); ++i) {
        EXPECT_GT(reading.sounds[i].time, reading.sounds[i - 1].time);
    }
}

TEST(ClipReader, PicturesWithoutTimesGetThem) {
    const std::string path = test::mediaFile("raw.h264", {"-f", "lavfi", "-i", "testsrc2=s=64x48:r=25:d=1",
                                                          "-c:v", "libx264", "-preset", "veryfast"});
    const Reading reading = readAll(path);
    ASSERT_EQ(reading.pictures.size(), 25U);
    for (std::size_t i = 1; i < 25; ++i) {
        EXPECT_EQ(reading.pictures[i].time, static_cast<std::int64_t>(i) * 40000);
    }
}

TEST(ClipReader, DamagedPacketsAreCountedAndPassedOver) {
    std::string content = test::fileContent(clip());
    for (std::size_t i = content.size() / 3; i < content.size() / 2; i += 7) {
        content[i] = 'x';
    }
    ClipReader reader(test::temporaryFile("damaged.mp4", content));
    const Reading reading = readAll(reader);
    EXPECT_GT(reader.counters().damagedPackets, 0U);
    EXPECT_GT(reading.pictures.size(), 5U);
}

TEST(ClipReader, TellsOfFilesThatItCannotOpenByName) {
    EXPECT_THROW_TEXT(FFmpegError, "cannot open /nowhere.mp4 FFmpeg AV_ERROR: #-2: No such file or directory",
                      ClipReader("/nowhere.mp4").open());
    const std::string garbage = test::temporaryFile("garbage.mp4", std::string(5000, 'x'));
    try {
        ClipReader(garbage).open();
        ADD_FAILURE() << "nothing was thrown";
    } catch (const FFmpegError& error) {
        EXPECT_EQ(error.error(), AvError::InvalidData);
        EXPECT_THAT(error.what(), testing::HasSubstr(garbage));
    }
}

TEST(ClipReader, LeavesNothingOpen) {
    const test::NothingLeftOpen nothing;
    ClipOptions options;
    options.threads = 3;
    ClipReader reader(clip(), options);
    readAll(reader, 5);
    EXPECT_THROW(ClipReader("/nowhere.mp4").open(), FFmpegError);
}

TEST(ClipReader, MovesWithItsPlace) {
    ClipReader reader(clip());
    readAll(reader, 30);
    ClipReader moved = std::move(reader);
    const Reading rest = readAll(moved);
    EXPECT_EQ(rest.pictures.size() + rest.sounds.size() + 30,
              readAll(clip()).pictures.size() + readAll(clip()).sounds.size());
}

TEST(ClipReader, RefusesOptionsThatContradictEachOther) {
    const auto refused = [](auto change) {
        ClipOptions options;
        change(options);
        EXPECT_THROW(ClipReader("x", options), std::invalid_argument);
    };
    refused([](ClipOptions& o) { o.in = microseconds(-1); });
    refused([](ClipOptions& o) { o.in = o.out = microseconds(1000); });
    refused([](ClipOptions& o) { o.audio = -1; });
    refused([](ClipOptions& o) { o.audio = o.video = TrackChoice::None; });
    refused([](ClipOptions& o) { o.threads = -1; });
    refused([](ClipOptions& o) { o.readTimeout = std::chrono::microseconds(-1); });
    EXPECT_THROW(ClipReader(std::shared_ptr<ByteSource>()), std::invalid_argument);
    EXPECT_THROW(ClipReader(clip()).seek(Timestamp()), std::invalid_argument);
}

}  // namespace
}  // namespace vidorra
