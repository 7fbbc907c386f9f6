// Keeps the figures of docs/LIMITS.md true.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <vidorra/vidorra.h>

#include "clips.h"

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
    // Less than the two seconds that were encoded is there only when every frame lost something.
    EXPECT_EQ(samples < 96000, row.cut) << samples;
}

INSTANTIATE_TEST_SUITE_P(Codecs, RoundedDurations,
                         testing::Values(AudioRow{"aac.mp4", {"-c:a", "aac"}, false},
                                         AudioRow{"aac.mkv", {"-c:a", "aac"}, true},
                                         AudioRow{"vorbis.mkv", {"-c:a", "libvorbis"}, true},
                                         AudioRow{"pcm.mkv", {"-c:a", "pcm_s16le"}, true},
                                         AudioRow{"opus.mkv", {"-c:a", "libopus"}, false},
                                         AudioRow{"flac.mkv", {"-c:a", "flac"}, false}),
                         [](const auto& row) {
                             std::string name = row.param.file;
                             name[name.find('.')] = '_';
                             return name;
                         });

}  // namespace
}  // namespace vidorra::test
