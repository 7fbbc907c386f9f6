#include "ffmpeg/samples.h"

#include <climits>
#include <cstdint>

extern "C" {
#include <libavutil/error.h>
}

namespace vidorra::ffmpeg_ext {
namespace {

TEST(SampleBufferSize, IsThatOfFFmpegWithoutPadding) {
    for (int i = 0; i < AV_SAMPLE_FMT_NB; ++i) {
        const auto format = static_cast<AVSampleFormat>(i);
        for (const int channels : {1, 2, 6, 12, 64}) {
            for (const int samples : {1, 7, 1024, 48000}) {
                SCOPED_TRACE(testing::Message() << i << ": " << channels << " channels, " << samples);
                const int expected = av_samples_get_buffer_size(nullptr, channels, samples, format, 1);
                EXPECT_EQ(expected, channels * samples * av_get_bytes_per_sample(format));
                EXPECT_EQ(sampleBufferSize(channels, static_cast<std::uint64_t>(samples), format), expected);
            }
        }
    }
}

TEST(SampleBufferSize, IsZeroForNoSamplesOfAFormatAndChannelsThatThereAre) {
    EXPECT_EQ(sampleBufferSize(1, 0, AV_SAMPLE_FMT_U8), 0);
    EXPECT_EQ(sampleBufferSize(2, 0, AV_SAMPLE_FMT_FLTP), 0);
    for (const std::uint64_t samples : {0, 1}) {
        EXPECT_EQ(sampleBufferSize(0, samples, AV_SAMPLE_FMT_S16), AVERROR(EINVAL));
        EXPECT_EQ(sampleBufferSize(-1, samples, AV_SAMPLE_FMT_S16), AVERROR(EINVAL));
        EXPECT_EQ(sampleBufferSize(2, samples, AV_SAMPLE_FMT_NONE), AVERROR(EINVAL));
        EXPECT_EQ(sampleBufferSize(2, samples, AV_SAMPLE_FMT_NB), AVERROR(EINVAL));
    }
}

TEST(SampleBufferSize, IsRefusedWhereAnIntDoesNotHoldCountOrBytes) {
    constexpr std::uint64_t kMax = INT_MAX;
    EXPECT_EQ(sampleBufferSize(1, kMax + 1, AV_SAMPLE_FMT_U8), AVERROR(EINVAL));
    // What 32 bits leave of these is a small count.
    EXPECT_EQ(sampleBufferSize(1, (std::uint64_t{1} << 32U) + 5, AV_SAMPLE_FMT_U8), AVERROR(EINVAL));
    EXPECT_EQ(sampleBufferSize(1, UINT64_MAX, AV_SAMPLE_FMT_U8), AVERROR(EINVAL));
    EXPECT_LT(sampleBufferSize(2, kMax, AV_SAMPLE_FMT_U8), 0);
    EXPECT_LT(sampleBufferSize(1, kMax / 4, AV_SAMPLE_FMT_DBL), 0);
}

}  // namespace
}  // namespace vidorra::ffmpeg_ext
