#include "platform/ffmpeg/samples.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <vector>

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

// A record of which each number is 9.
AudioLevelRecord nines() {
    AudioLevelRecord level{};
    std::fill(std::begin(level.peak), std::end(level.peak), 9.0F);
    std::fill(std::begin(level.rms), std::end(level.rms), 9.0F);
    return level;
}

TEST(AudioLevelCalc, WritesTheNumbersOfItsChannelsOnly) {
    const std::int16_t samples[] = {16384, -8192, 0, 8192};
    AudioLevelRecord level = nines();
    av_audio_level_calc(samples, 2, 2, AV_SAMPLE_FMT_S16, &level);
    EXPECT_EQ(level.peak[0], 0.5F);
    EXPECT_EQ(level.peak[1], 0.25F);
    EXPECT_FLOAT_EQ(level.rms[0], static_cast<float>(0.5 / std::sqrt(2.0)));
    EXPECT_EQ(level.rms[1], 0.25F);
    for (int channel = 2; channel < 8; ++channel) {
        EXPECT_EQ(level.peak[channel], 9.0F) << channel;
        EXPECT_EQ(level.rms[channel], 9.0F) << channel;
    }
}

TEST(AudioLevelCalc, TakesAPlaneForInterleavedSamplesOfItsFormat) {
    const float samples[] = {0.25F, -0.5F, 1.0F};
    AudioLevelRecord level = nines();
    av_audio_level_calc(samples, 1, 3, AV_SAMPLE_FMT_FLTP, &level);
    EXPECT_EQ(level.peak[0], 0.25F);
    EXPECT_EQ(level.peak[1], 0.5F);
    EXPECT_EQ(level.rms[2], 1.0F);
}

TEST(AudioLevelCalc, IsZeroWithoutSamples) {
    AudioLevelRecord level = nines();
    av_audio_level_calc(nullptr, 0, 2, AV_SAMPLE_FMT_S16, &level);
    for (int channel = 0; channel < 2; ++channel) {
        EXPECT_EQ(level.peak[channel], 0.0F);
        EXPECT_EQ(level.rms[channel], 0.0F);
    }
    EXPECT_EQ(level.peak[2], 9.0F);
}

TEST(AudioLevelCalc, WritesNothingForAnUnknownFormat) {
    const std::vector<std::uint8_t> samples(64);
    for (const AVSampleFormat format : {AV_SAMPLE_FMT_NONE, AV_SAMPLE_FMT_NB}) {
        AudioLevelRecord level = nines();
        av_audio_level_calc(samples.data(), 1, 8, format, &level);
        for (int channel = 0; channel < 8; ++channel) {
            EXPECT_EQ(level.peak[channel], 9.0F);
            EXPECT_EQ(level.rms[channel], 9.0F);
        }
    }
}

}  // namespace
}  // namespace vidorra::ffmpeg_ext
