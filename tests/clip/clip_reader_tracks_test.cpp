#include <gmock/gmock.h>

#include <stdexcept>

#include "clips.h"
#include "support/throw_text.h"
#include "vidorra/core/ffmpeg_error.h"

namespace vidorra {
namespace {

using test::readAll;
using test::Reading;
using testing::ElementsAre;

// Pictures, and sound in two languages, of 300 and 600 ms.
std::string languages() {
    return test::mediaFile("languages.mkv", {"-f",
                                             "lavfi",
                                             "-i",
                                             "testsrc2=s=64x48:r=25:d=0.2",
                                             "-f",
                                             "lavfi",
                                             "-i",
                                             "sine=r=48000:d=0.3",
                                             "-f",
                                             "lavfi",
                                             "-i",
                                             "sine=r=48000:d=0.6",
                                             "-map",
                                             "0",
                                             "-map",
                                             "1",
                                             "-map",
                                             "2",
                                             "-c:v",
                                             "ffv1",
                                             "-c:a",
                                             "pcm_s16le",
                                             "-metadata:s:a:0",
                                             "language=ger",
                                             "-metadata:s:a:1",
                                             "language=fre"});
}

// Sound with the picture of its album.
std::string album() {
    return test::mediaFile("album.mp3", {"-f", "lavfi", "-i", "sine=d=0.3", "-f", "lavfi", "-i",
                                         "color=red:s=32x32:d=0.04", "-map", "0", "-map", "1", "-c:a",
                                         "libmp3lame", "-c:v", "png", "-disposition:v", "attached_pic"});
}

Reading withAudio(const std::string& path, const ClipTrackChoice& audio) {
    ClipOptions options;
    options.audio = audio;
    return readAll(path, options);
}

TEST(ClipReaderTracks, AreListedByKind) {
    ClipReader reader(languages());
    const std::vector<ClipTrack>& tracks = reader.tracks();
    ASSERT_EQ(tracks.size(), 3U);
    EXPECT_EQ(tracks[0].kind, ClipTrack::Kind::Video);
    EXPECT_EQ(tracks[0].codec, "ffv1");
    EXPECT_TRUE(tracks[0].selected);
    EXPECT_EQ(tracks[1].kind, ClipTrack::Kind::Audio);
    EXPECT_EQ(tracks[1].number, 0);
    EXPECT_EQ(tracks[1].language, "ger");
    EXPECT_TRUE(tracks[1].selected);
    EXPECT_EQ(tracks[2].number, 1);
    EXPECT_FALSE(tracks[2].selected);
}

TEST(ClipReaderTracks, AreChosenByNumberAndLanguage) {
    EXPECT_EQ(withAudio(languages(), 0).samples, 14400);
    EXPECT_EQ(withAudio(languages(), 1).samples, 28800);
    EXPECT_EQ(withAudio(languages(), "fre").samples, 28800);
    EXPECT_EQ(withAudio(languages(), "GER").samples, 14400);
    EXPECT_EQ(withAudio(languages(), "spa").samples, 14400) << "no such language: the best";
}

TEST(ClipReaderTracks, CanBeLeftOut) {
    const Reading silent = withAudio(languages(), TrackChoice::None);
    EXPECT_EQ(silent.samples, 0);
    EXPECT_EQ(silent.pictures.size(), 5U);
    ClipOptions options;
    options.video = TrackChoice::None;
    const Reading blind = readAll(languages(), options);
    EXPECT_EQ(blind.pictures.size(), 0U);
    EXPECT_EQ(blind.samples, 14400);
}

TEST(ClipReaderTracks, ANumberThatNoneHasIsRefused) {
    EXPECT_THROW_TEXT(std::invalid_argument, languages() + " has no audio track 2",
                      withAudio(languages(), 2));
}

TEST(ClipReaderTracks, AnAttachedPictureIsNoTrackUnlessAsked) {
    EXPECT_EQ(readAll(album()).pictures.size(), 0U);
    ClipReader reader(album());
    ASSERT_EQ(reader.tracks().size(), 2U);
    EXPECT_TRUE(reader.tracks()[1].attachedPicture);
    EXPECT_FALSE(reader.tracks()[1].selected);
    ClipOptions options;
    options.video = 0;
    EXPECT_EQ(readAll(album(), options).pictures.size(), 1U);
}

TEST(ClipReaderTracks, ASourceWithoutATrackToDecodeIsRefused) {
    const std::string text = test::temporaryFile("text.srt", "1\n00:00:00,000 --> 00:00:01,000\nHello\n");
    EXPECT_THROW_TEXT(FFmpegError,
                      text + " has no track to decode FFmpeg AV_ERROR: #-1381258232: Stream not found",
                      ClipReader(text).open());
    ClipOptions options;
    options.audio = TrackChoice::None;
    EXPECT_THROW(ClipReader(album(), options).open(), FFmpegError);
}

TEST(ClipReaderDecoders, AreChosenByName) {
    ClipOptions options;
    options.audioDecoder = "mp3";
    ClipReader reader(album(), options);
    const ClipFrame frame = reader.read();
    ASSERT_NE(frame.audio(), nullptr);
    // The default, mp3float, gives floating-point samples.
    EXPECT_EQ(frame.audio()->audioBuffer().sampleFormat(), AV_SAMPLE_FMT_S16P);
    options.audioDecoder = "nonsense";
    EXPECT_THROW_TEXT(std::invalid_argument, "there is no decoder \"nonsense\"",
                      ClipReader(album(), options).open());
}

TEST(ClipReaderFormats, AreChosenByName) {
    const std::string raw = test::temporaryFile("raw.bin", std::string(64 * 48 * 3 / 2 * 4, 'x'));
    ClipOptions options;
    options.format = "rawvideo";
    options.options = {{"video_size", "64x48"}, {"framerate", "50"}};
    const Reading reading = readAll(raw, options);
    ASSERT_EQ(reading.pictures.size(), 4U);
    EXPECT_EQ(reading.pictures[3].time, 60000);
    options.format = "nonsense";
    EXPECT_THROW_TEXT(std::invalid_argument, "there is no format \"nonsense\"",
                      ClipReader(raw, options).open());
}

TEST(ClipReaderOptions, ThatNothingKnowsAreTold) {
    ClipOptions options;
    options.options = {{"probesize", "100000"}, {"flags2", "+showall"}, {"probsize", "1"}};
    ClipReader reader(test::clip(), options);
    EXPECT_THAT(reader.unusedOptions(), ElementsAre("probsize"));
}

}  // namespace
}  // namespace vidorra
