// The level of a buffer, against a plain computation of its own.

#include <gmock/gmock.h>

#include <cmath>
#include <cstddef>
#include <cstring>
#include <limits>
#include <random>
#include <type_traits>

#include "picture/av_frames.h"
#include "vidorra/picture/audio_buffer.h"

namespace vidorra {
namespace {

using test::allKinds;
using test::Kind;
using testing::Each;

static_assert(std::is_trivially_copyable_v<AudioLevel> && std::is_standard_layout_v<AudioLevel>);
static_assert(sizeof(AudioLevel) == 16 * sizeof(float));
static_assert(offsetof(AudioLevel, peak) == 0 && offsetof(AudioLevel, rms) == 8 * sizeof(float));

// One sample as its format holds it, of a value with full scale at 1.
template <class Sample>
void store(std::uint8_t* target, Sample sample) {
    std::memcpy(target, &sample, sizeof(sample));
}

// Writes a value into memory and gives the value that is there afterwards, after the rounding of the format.
long double put(std::uint8_t* target, AVSampleFormat format, double value) {
    switch (format) {
    case AV_SAMPLE_FMT_U8:
    case AV_SAMPLE_FMT_U8P: {
        const auto sample = static_cast<std::uint8_t>(128 + std::floor(value * 127));
        store(target, sample);
        return (static_cast<int>(sample) - 128) / 128.0L;
    }
    case AV_SAMPLE_FMT_S16:
    case AV_SAMPLE_FMT_S16P: {
        const auto sample = static_cast<std::int16_t>(value * 32767);
        store(target, sample);
        return sample / 32768.0L;
    }
    case AV_SAMPLE_FMT_S32:
    case AV_SAMPLE_FMT_S32P: {
        const auto sample = static_cast<std::int32_t>(value * 2147483647);
        store(target, sample);
        return sample / 2147483648.0L;
    }
    case AV_SAMPLE_FMT_S64:
    case AV_SAMPLE_FMT_S64P: {
        const auto sample = static_cast<std::int64_t>(value * 9e18);
        store(target, sample);
        return sample / 9223372036854775808.0L;
    }
    case AV_SAMPLE_FMT_FLT:
    case AV_SAMPLE_FMT_FLTP:
        store(target, static_cast<float>(value));
        return static_cast<float>(value);
    default:
        store(target, value);
        return value;
    }
}

std::uint8_t* sampleAt(AudioBuffer& buffer, const Kind& kind, int channel, int index) {
    const auto planes = buffer.getPointersToPlanes();
    const bool inPlanes = kind.format.planar && kind.layout.channels > 1;
    std::uint8_t* plane = planes[static_cast<std::size_t>(inPlanes ? channel : 0)];
    return plane + kind.format.bytes * (inPlanes ? index : index * kind.layout.channels + channel);
}

TEST(AudioLevels, ArePeakAndRootMeanSquareOfEachOfTheFirstEightChannels) {
    for (const Kind& kind : allKinds()) {
        SCOPED_TRACE(testing::PrintToString(kind));
        constexpr int kSamples = 1000;
        AudioBuffer buffer(kind.layout.mask, kind.format.format);
        buffer.resize(kSamples);
        std::mt19937 random(99);
        std::vector<long double> peak(12);
        std::vector<long double> squares(12);
        for (int i = 0; i < kSamples; ++i) {
            for (int channel = 0; channel < kind.layout.channels; ++channel) {
                // Each channel has a loudness of its own.
                const double limit = 0.98 - 0.07 * channel;
                const double value = std::uniform_real_distribution<double>(-limit, limit)(random);
                const long double stored =
                    std::abs(put(sampleAt(buffer, kind, channel, i), kind.format.format, value));
                const auto at = static_cast<std::size_t>(channel);
                peak[at] = std::max(peak[at], stored);
                squares[at] += stored * stored;
            }
        }
        const AudioLevel level = buffer.getAudioLevel();
        for (std::size_t channel = 0; channel < 8; ++channel) {
            SCOPED_TRACE(channel);
            EXPECT_FLOAT_EQ(level.peak[channel], static_cast<float>(peak[channel]));
            EXPECT_FLOAT_EQ(level.rms[channel], static_cast<float>(std::sqrt(squares[channel] / kSamples)));
        }
    }
}

TEST(AudioLevels, AreZeroForChannelsThatThereAreNot) {
    for (const Kind& kind : allKinds()) {
        SCOPED_TRACE(testing::PrintToString(kind));
        AudioBuffer buffer(kind.layout.mask, kind.format.format);
        buffer.resize(1);
        for (int channel = 0; channel < kind.layout.channels; ++channel) {
            put(sampleAt(buffer, kind, channel, 0), kind.format.format, 0.5);
        }
        const AudioLevel level = buffer.getAudioLevel();
        for (int channel = 0; channel < 8; ++channel) {
            const auto at = static_cast<std::size_t>(channel);
            EXPECT_EQ(level.peak[at] > 0, channel < kind.layout.channels) << channel;
            EXPECT_EQ(level.rms[at] > 0, channel < kind.layout.channels) << channel;
        }
    }
}

TEST(AudioLevels, AreZeroForSilence) {
    for (const Kind& kind : allKinds()) {
        SCOPED_TRACE(testing::PrintToString(kind));
        AudioBuffer buffer(kind.layout.mask, kind.format.format);
        buffer.resize(50);
        for (int i = 0; i < 50; ++i) {
            for (int channel = 0; channel < kind.layout.channels; ++channel) {
                put(sampleAt(buffer, kind, channel, i), kind.format.format, 0);
            }
        }
        EXPECT_THAT(buffer.getAudioLevel().peak, Each(0.0F));
        EXPECT_THAT(buffer.getAudioLevel().rms, Each(0.0F));
    }
}

TEST(AudioLevels, AreZeroWithoutSamples) {
    for (const Kind& kind : allKinds()) {
        SCOPED_TRACE(testing::PrintToString(kind));
        AudioBuffer buffer(kind.layout.mask, kind.format.format);
        EXPECT_THAT(buffer.getAudioLevel().peak, Each(0.0F));
        buffer.resize(0);
        EXPECT_THAT(buffer.getAudioLevel().peak, Each(0.0F));
        EXPECT_THAT(buffer.getAudioLevel().rms, Each(0.0F));
    }
}

template <class Sample>
AudioLevel levelOfMono(AVSampleFormat format, const std::vector<Sample>& samples) {
    AudioBuffer buffer(AV_CH_LAYOUT_MONO, format);
    buffer.resize(samples.size());
    std::memcpy(buffer.getPointersToPlanes().front(), samples.data(), samples.size() * sizeof(Sample));
    return buffer.getAudioLevel();
}

template <class Sample>
constexpr Sample kMin = std::numeric_limits<Sample>::min();

TEST(AudioLevel, IsOneForTheLowestValueOfAnIntegerFormat) {
    for (const AudioLevel& level : {levelOfMono<std::uint8_t>(AV_SAMPLE_FMT_U8, {0}),
                                    levelOfMono<std::int16_t>(AV_SAMPLE_FMT_S16, {kMin<std::int16_t>}),
                                    levelOfMono<std::int32_t>(AV_SAMPLE_FMT_S32P, {kMin<std::int32_t>}),
                                    levelOfMono<std::int64_t>(AV_SAMPLE_FMT_S64, {kMin<std::int64_t>})}) {
        EXPECT_EQ(level.peak[0], 1.0F);
        EXPECT_EQ(level.rms[0], 1.0F);
    }
}

TEST(AudioLevel, TakesTheMiddleOfUnsignedSamplesForSilence) {
    EXPECT_EQ(levelOfMono<std::uint8_t>(AV_SAMPLE_FMT_U8, {128}).peak[0], 0.0F);
    EXPECT_EQ(levelOfMono<std::uint8_t>(AV_SAMPLE_FMT_U8P, {129}).peak[0], 0.0078125F);
    EXPECT_EQ(levelOfMono<std::uint8_t>(AV_SAMPLE_FMT_U8, {255}).peak[0], 0.9921875F);
}

TEST(AudioLevel, IsKnownForASquareWave) {
    const AudioLevel level = levelOfMono<std::int16_t>(AV_SAMPLE_FMT_S16, {16384, -16384, 16384, -16384});
    EXPECT_EQ(level.peak[0], 0.5F);
    EXPECT_EQ(level.rms[0], 0.5F);
}

TEST(AudioLevel, IsKnownForASinglePulse) {
    const AudioLevel level = levelOfMono<float>(AV_SAMPLE_FMT_FLT, {0, 0, -1, 0});
    EXPECT_EQ(level.peak[0], 1.0F);
    EXPECT_EQ(level.rms[0], 0.5F);
}

TEST(AudioLevel, LimitsFloatingPointSamplesToFullScale) {
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    for (const float sample : {1.5F, -3.0F, 1e30F, kInfinity, -kInfinity}) {
        const AudioLevel level = levelOfMono<float>(AV_SAMPLE_FMT_FLTP, {sample});
        EXPECT_EQ(level.peak[0], 1.0F) << sample;
        EXPECT_EQ(level.rms[0], 1.0F) << sample;
    }
    EXPECT_EQ(levelOfMono<double>(AV_SAMPLE_FMT_DBL, {-1e300}).rms[0], 1.0F);
}

TEST(AudioLevel, TakesWhatIsNoNumberForSilence) {
    const AudioLevel level =
        levelOfMono<float>(AV_SAMPLE_FMT_FLT, {std::numeric_limits<float>::quiet_NaN(), 0.5F});
    EXPECT_EQ(level.peak[0], 0.5F);
    EXPECT_FLOAT_EQ(level.rms[0], static_cast<float>(0.5 / std::sqrt(2.0)));
}

TEST(AudioLevel, ReadsNoMoreThanAPlaneThatACopyHasShrunk) {
    for (const test::Kind& kind : allKinds()) {
        SCOPED_TRACE(testing::PrintToString(kind));
        AudioBuffer buffer(kind.layout.mask, kind.format.format);
        buffer.resize(100000);
        AudioBuffer copy = buffer;
        copy.resize(1);
        for (int channel = 0; channel < kind.layout.channels; ++channel) {
            put(sampleAt(buffer, kind, channel, 0), kind.format.format, -0.5);
        }
        const AudioLevel level = buffer.getAudioLevel();
        EXPECT_EQ(level.peak[0], copy.getAudioLevel().peak[0]);
        EXPECT_EQ(level.rms[0], copy.getAudioLevel().rms[0]);
    }
}

}  // namespace
}  // namespace vidorra
