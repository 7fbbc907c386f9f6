#include "ffmpeg/audio_level.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <iterator>
#include <vector>

namespace vidorra::ffmpeg_ext {
namespace {

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
