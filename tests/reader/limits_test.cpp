// Keeps the figures of docs/LIMITS.md true.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

#include <vidorra/vidorra.h>

#include "clips.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace vidorra::test {
namespace {

using Mode = MediaFileReader::PlaybackMode;

struct Row {
    std::string file;
    std::vector<std::string> encoder;
    std::size_t frames;
};

class FramesKeptBack : public testing::TestWithParam<Row> {};

TEST_P(FramesKeptBack, AreAsManyAsTheDocumentationSays) {
    const Row& row = GetParam();
    MediaFileReader reader(mediaFile("limit-" + row.file, pictures("2") + row.encoder), Mode::Once, nullptr);
    reader.open();
    std::size_t frames = 0;
    while (reader.read().index() != 0) {
        ++frames;
    }
    EXPECT_EQ(frames, row.frames);
}

INSTANTIATE_TEST_SUITE_P(
    Codecs, FramesKeptBack,
    testing::Values(Row{"h264_b2.mp4", {"-c:v", "libx264", "-bf", "2"}, 48},
                    Row{"hevc_b2.mp4", {"-c:v", "libx265", "-x265-params", "log-level=none:bframes=2"}, 48},
                    Row{"h264_b0.mp4", {"-c:v", "libx264", "-bf", "0"}, 50},
                    Row{"mpeg2_b2.ts", {"-c:v", "mpeg2video", "-bf", "2"}, 49},
                    Row{"mpeg4_b2.mp4", {"-c:v", "mpeg4", "-bf", "2"}, 49},
                    Row{"mpeg4_b0.avi", {"-c:v", "mpeg4", "-bf", "0"}, 50},
                    Row{"mjpeg.avi", {"-c:v", "mjpeg"}, 50}, Row{"ffv1.mkv", {"-c:v", "ffv1"}, 50},
                    Row{"vp8.webm", {"-c:v", "libvpx", "-deadline", "realtime"}, 50},
                    Row{"vp9.webm", {"-c:v", "libvpx-vp9", "-deadline", "realtime", "-cpu-used", "8"}, 50},
                    Row{"av1.mkv", {"-c:v", "libaom-av1", "-cpu-used", "8", "-usage", "realtime"}, 50}),
    [](const auto& row) { return row.param.file.substr(0, row.param.file.find('.')); });

// Samples read from two seconds of a tone, and samples that the file holds.
struct AudioRow {
    std::string file;
    std::vector<std::string> encoder;
    bool cut;
};

class RoundedDurations : public testing::TestWithParam<AudioRow> {};

TEST_P(RoundedDurations, CutTheFramesOfSomeCodecs) {
    const AudioRow& row = GetParam();
    const std::string path = mediaFile("limit-" + row.file, tone("2") + row.encoder);
    MediaFileReader reader(path, Mode::Once, nullptr);
    reader.open();
    unsigned long samples = 0;
    for (auto frame = reader.read(); frame.index() != 0; frame = reader.read()) {
        samples += std::get<AudioFrame>(frame).audioBuffer().numberOfSamples();
    }
    // There are fewer samples than the encoded two seconds only when every frame lost some.
    EXPECT_EQ(samples < 96000, row.cut) << samples;
}

INSTANTIATE_TEST_SUITE_P(
    Codecs, RoundedDurations,
    testing::Values(AudioRow{"aac.mp4", {"-c:a", "aac"}, false}, AudioRow{"aac.mkv", {"-c:a", "aac"}, true},
                    AudioRow{"vorbis.mkv", {"-c:a", "libvorbis"}, true},
                    AudioRow{"pcm.mkv", {"-c:a", "pcm_s16le"}, true},
                    AudioRow{"opus.mkv", {"-c:a", "libopus"}, false},
                    AudioRow{"flac.mkv", {"-c:a", "flac", "-frame_size", "4608"}, false}),
    [](const auto& row) {
        std::string name = row.param.file;
        name[name.find('.')] = '_';
        return name;
    });

// The smallest and the greatest step between two frames of audio over three passes, in microseconds.
struct Steps {
    std::int64_t least = std::numeric_limits<std::int64_t>::max();
    std::int64_t most = 0;
};

Steps stepsOfLoops(const std::string& path) {
    std::size_t once = 0;
    {
        MediaFileReader reader(path, Mode::Once, nullptr);
        reader.open();
        for (; reader.read().index() != 0; ++once) {
        }
    }
    MediaFileReader reader(path, Mode::Loop, nullptr);
    reader.open();
    Steps steps;
    std::int64_t last = std::get<AudioFrame>(reader.read()).timestamp().value;
    for (std::size_t i = 1; i < 3 * once; ++i) {
        const std::int64_t time = std::get<AudioFrame>(reader.read()).timestamp().value;
        steps.least = std::min(steps.least, time - last);
        steps.most = std::max(steps.most, time - last);
        last = time;
    }
    return steps;
}

TEST(SeamsOfLoops, OpusDoesNotRiseThereOutsideOfMp4) {
    const std::vector<std::string> opus = {"-c:a", "libopus"};
    EXPECT_LE(stepsOfLoops(mediaFile("loop-opus.ogg", tone("2") + opus)).least, 0);
    EXPECT_LE(stepsOfLoops(mediaFile("loop-opus.mkv", tone("2") + opus)).least, 0);
    EXPECT_GT(stepsOfLoops(mediaFile("loop-opus.mp4", tone("2") + opus)).least, 0);
}

TEST(SeamsOfLoops, AShortOggOfVorbisJumpsByADay) {
    const std::vector<std::string> vorbis = {"-c:a", "libvorbis"};
    constexpr std::int64_t kHour = 3600000000;
    EXPECT_GT(stepsOfLoops(mediaFile("loop-vorbis.ogg", tone("1", "44100") + vorbis)).most, 24 * kHour);
    EXPECT_LT(stepsOfLoops(mediaFile("loop-vorbis.ogg", tone("2", "44100") + vorbis)).most, 100000);
    EXPECT_LT(stepsOfLoops(mediaFile("loop-vorbis.mkv", tone("1", "44100") + vorbis)).most, 100000);
}

TEST(SeamsOfLoops, AFileThatBeginsLatePausesForThatLong) {
    const std::string path = mediaFile("loop-ac3.ts", tone("2") + std::vector<std::string>{"-c:a", "ac3"});
    EXPECT_EQ(stepsOfLoops(path).most, 1400000 + 32000);
}

// The codecs that the streams announce before each of the first three packets.
std::vector<AVCodecID> announced(const std::string& rate, bool findStreamInfo) {
    FormatContext source;
    source.setUrl(
        mediaFile("limit-mp2.ts", tone("1", rate) + std::vector<std::string>{"-c:a", "mp2", "-ac", "1"}));
    source.open("", findStreamInfo, std::chrono::seconds(2));
    std::vector<AVCodecID> codecs;
    for (int i = 0; i < 3; ++i) {
        codecs.push_back(source.trackAtIndex(0)->codecpar->codec_id);
        static_cast<void>(source.readPacket());
    }
    return codecs;
}

TEST(Mp2InATransportStream, IsAnnouncedAsMp3AtFirst) {
    constexpr AVCodecID kMp2 = AV_CODEC_ID_MP2;
    constexpr AVCodecID kMp3 = AV_CODEC_ID_MP3;
    EXPECT_THAT(announced("32000", true), testing::ElementsAre(kMp3, kMp3, kMp2));
    EXPECT_THAT(announced("32000", false), testing::ElementsAre(kMp3, kMp3, kMp2));
    EXPECT_THAT(announced("48000", true), testing::ElementsAre(kMp2, kMp2, kMp2));
    EXPECT_THAT(announced("48000", false), testing::ElementsAre(kMp3, kMp2, kMp2));
}

TEST(TracksLeftOut, StillGiveThePacketsThatFfmpegHadRead) {
    const std::string path =
        mediaFile("limit-discard.mkv",
                  pictures("1") + tone("1") + std::vector<std::string>{"-c:v", "mjpeg", "-c:a", "pcm_s16le"});
    for (const bool findStreamInfo : {false, true}) {
        SCOPED_TRACE(findStreamInfo);
        FormatContext source;
        source.setUrl(path);
        source.open("", findStreamInfo, std::chrono::seconds(2));
        source.discardTrackAtIndex(1, AVDISCARD_ALL);
        int packets = 0;
        for (Packet packet = source.readPacket(); !source.isEOF(); packet = source.readPacket()) {
            packets += packet.stream_index == 1 ? 1 : 0;
        }
        EXPECT_EQ(packets > 0, findStreamInfo) << packets;
    }
    MediaFileReader reader(path, Mode::Once, nullptr);
    reader.open();
    reader.selectTracks(std::nullopt, 0);
    for (auto frame = reader.read(); frame.index() != 0; frame = reader.read()) {
        ASSERT_TRUE(std::holds_alternative<VideoFrame>(frame));
    }
}

TEST(SeamsOfLoops, OpusPlaysItsRunUpFromTheSecondPassOn) {
    for (const std::string container : {"ogg", "webm", "mp4"}) {
        SCOPED_TRACE(container);
        const std::string path =
            mediaFile("loop-opus." + container, tone("2") + std::vector<std::string>{"-c:a", "libopus"});
        MediaFileReader reader(path, Mode::Loop, nullptr);
        reader.open();
        std::vector<unsigned long> samples;
        for (int i = 0; i < 202; ++i) {
            samples.push_back(std::get<AudioFrame>(reader.read()).audioBuffer().numberOfSamples());
        }
        EXPECT_EQ(samples[0], 648U);
        EXPECT_EQ(samples[101], container == "mp4" ? 648U : 960U);
    }
}

TEST(SeamsOfLoops, ALastPacketWithoutADurationIsFollowedByItsOwnTime) {
    const std::string path = mediaFile("loop-video.flv", pictures("1"));
    MediaFileReader reader(path, Mode::Loop, nullptr);
    reader.open();
    std::vector<std::int64_t> times;
    for (int i = 0; i < 26; ++i) {
        times.push_back(std::get<VideoFrame>(reader.read()).timestamp().value);
    }
    EXPECT_EQ(times[24], 960000);
    EXPECT_EQ(times[25], times[24]);
}

TEST(SeamsOfLoops, ARawStreamCannotGoBack) {
    MediaFileReader reader(mediaFile("loop-raw.h264", pictures("1")), Mode::Loop, nullptr);
    reader.open();
    EXPECT_THROW(
        for (int i = 0; i < 100; ++i) { static_cast<void>(reader.read()); }, std::runtime_error);
}

// The time of the first picture after a seek, in seconds.
double firstPictureAfter(const std::string& path, std::int64_t time) {
    FormatContext source;
    source.setUrl(path);
    source.open("", true, std::chrono::seconds(2));
    source.seek(Timestamp(Timebase(), time));
    for (Packet packet = source.readPacket(); !source.isEOF(); packet = source.readPacket()) {
        const VideoFrame frame = source.decodeVideoPacket(packet);
        if (!frame.empty()) {
            return static_cast<double>(frame.timestamp().value) / 1e6;
        }
    }
    return -1;
}

TEST(Seeking, BeginsAfterTheTimeInATransportStream) {
    const std::vector<std::string> encoder = {"-c:v", "libx264", "-bf",           "2",
                                              "-g",   "50",      "-sc_threshold", "0"};
    const std::string ts = mediaFile("seek.ts", pictures("6") + encoder);
    EXPECT_EQ(firstPictureAfter(ts, 2000000), 3.48);
    EXPECT_EQ(firstPictureAfter(ts, 5900000), -1);
    const std::string mp4 = mediaFile("seek.mp4", pictures("6") + encoder);
    EXPECT_EQ(firstPictureAfter(mp4, 1900000), 0);
    EXPECT_EQ(firstPictureAfter(mp4, 5900000), 4);
}

TEST(KeyFlags, AreReplaced) {
    struct Flags {
        std::string file;
        std::vector<std::string> encoder;
        bool key;
    };
    for (const Flags& row :
         {Flags{"keys.mp4", {"-c:v", "libx264"}, false}, Flags{"keys.ts", {"-c:v", "mpeg2video"}, true}}) {
        FormatContext source;
        source.setUrl(mediaFile(row.file, pictures("1") + row.encoder));
        source.open("", true, std::chrono::seconds(2));
        int packets = 0;
        for (Packet packet = source.readPacket(); !source.isEOF(); packet = source.readPacket(), ++packets) {
            EXPECT_EQ(packet.isKeyFrame(), row.key) << row.file;
        }
        EXPECT_EQ(packets, 25) << row.file;
    }
}

TEST(NamesWithAColon, AreProtocols) {
    const std::string content = fileContent(mediaFile("names.mp4", pictures("1")));
    const std::string path = temporaryFile("a:b.mp4", content).string();
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(std::filesystem::path(path).parent_path());
    FormatContext source;
    source.setUrl("a:b.mp4");
    EXPECT_THROW(source.open("", true, std::chrono::seconds(2)), std::runtime_error);
    for (const std::string name : {"file:a:b.mp4", "./a:b.mp4"}) {
        source.setUrl(name);
        EXPECT_TRUE(source.open("", true, std::chrono::seconds(2))) << name;
    }
    std::filesystem::current_path(before);
}

}  // namespace
}  // namespace vidorra::test
