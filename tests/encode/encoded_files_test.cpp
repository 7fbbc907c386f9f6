// The encoder's output, as the ffmpeg and ffprobe programs see it.
#include <gtest/gtest.h>

#include <cstdint>

#include "encode/patterns.h"
#include "encode/video_encoders.h"
#include "encode/written_file.h"
#include "support/ffprobe.h"
#include "support/media.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/log.h>
}

namespace vidorra {
namespace {

using test::encodeAll;
using test::frameAt;
using test::kVideoSize;
using test::pattern;
using test::videoConfig;

struct Row {
    const char* name;
    const char* encoder;
    const char* format;
    const char* file;
    const char* options;
    bool lossless;
};

constexpr Row kRows[] = {
    {.name = "Ffv1",
     .encoder = "ffv1",
     .format = "yuv420p",
     .file = "ffv1.mkv",
     .options = "",
     .lossless = true},
    {.name = "Ffv1Alpha",
     .encoder = "ffv1",
     .format = "yuva420p",
     .file = "ffv1a.mkv",
     .options = "",
     .lossless = true},
    {.name = "Huffyuv",
     .encoder = "huffyuv",
     .format = "yuv422p",
     .file = "huffyuv.mkv",
     .options = "",
     .lossless = true},
    {.name = "Png", .encoder = "png", .format = "rgba", .file = "png.mkv", .options = "", .lossless = true},
    {.name = "PngGray",
     .encoder = "png",
     .format = "gray",
     .file = "gray.nut",
     .options = "",
     .lossless = true},
    {.name = "Mpeg4",
     .encoder = "mpeg4",
     .format = "yuv420p",
     .file = "mpeg4.mp4",
     .options = "bf",
     .lossless = false},
    {.name = "Mpeg2",
     .encoder = "mpeg2video",
     .format = "yuv420p",
     .file = "mpeg2.mkv",
     .options = "bf",
     .lossless = false},
    {.name = "Mjpeg",
     .encoder = "mjpeg",
     .format = "yuv420p",
     .file = "mjpeg.mkv",
     .options = "",
     .lossless = false},
    {.name = "H264",
     .encoder = "libx264",
     .format = "yuv420p",
     .file = "h264.mp4",
     .options = "bf",
     .lossless = false},
};

class EncodedFile : public testing::TestWithParam<Row> {
protected:
    EncodedFile() { av_log_set_level(AV_LOG_ERROR); }
    ~EncodedFile() override { av_log_set_level(AV_LOG_INFO); }
};

constexpr int kFrames = 12;

TEST_P(EncodedFile, DecodesToTheFramesThatWentIn) {
    const Row& row = GetParam();
    objstream::object config = videoConfig(row.encoder, row.format);
    if (row.options[0] != '\0') {
        config["options"][row.options] = 2;
    }
    VideoEncoder encoder(config);
    std::vector<VideoFrame> frames;
    std::vector<std::string> hashes;
    for (int i = 0; i < kFrames; ++i) {
        const test::Pattern source =
            pattern(kVideoSize, encoder.codecContext()->pix_fmt, static_cast<unsigned>(i));
        frames.push_back(frameAt(source.picture, 1000000 + i * 40000));
        hashes.push_back(source.hash());
    }
    const std::vector<Packet> packets = encodeAll(encoder, frames);
    EXPECT_EQ(packets.size(), static_cast<std::size_t>(kFrames));
    const std::filesystem::path path = test::temporaryFolder() / row.file;
    test::writeFile(path, encoder, packets);

    const std::vector<std::string> decoded = test::frameHashes(path);
    EXPECT_EQ(decoded.size(), static_cast<std::size_t>(kFrames));
    if (row.lossless) {
        EXPECT_EQ(decoded, hashes);
    }
    const test::ProbedStream stream = test::probe(path).streams.at(0);
    const std::vector<std::optional<std::int64_t>> times = test::probeFrameTimes(path);
    ASSERT_EQ(times.size(), static_cast<std::size_t>(kFrames));
    for (int i = 0; i < kFrames; ++i) {
        const auto time = times[static_cast<std::size_t>(i)];
        ASSERT_TRUE(time.has_value());
        EXPECT_NEAR(static_cast<double>(*time) * stream.timebaseNum / stream.timebaseDen, 1 + i * 0.04,
                    0.0006)
            << i;
    }
}

INSTANTIATE_TEST_SUITE_P(Encoders, EncodedFile, testing::ValuesIn(kRows),
                         [](const auto& row) { return std::string(row.param.name); });

}  // namespace
}  // namespace vidorra
