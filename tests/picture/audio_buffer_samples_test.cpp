// The operations of AudioBuffer that take and give single samples.

#include <gmock/gmock.h>
#include <malloc.h>

#include <array>
#include <cstring>
#include <limits>
#include <stdexcept>

#include "picture/av_frames.h"
#include "support/throw_text.h"
#include "vidorra/picture/audio_buffer.h"

namespace vidorra {
namespace {

using testing::Each;
using testing::ElementsAre;

constexpr short kLowest = std::numeric_limits<short>::min();
constexpr short kHighest = std::numeric_limits<short>::max();

template <class Sample>
std::vector<Sample> samplesOf(const AudioBuffer& buffer, std::size_t plane, std::size_t count) {
    const auto* data = reinterpret_cast<const Sample*>(buffer.getPointersToPlanes().at(plane));
    return {data, data + count};
}

TEST(AudioBufferLoadSamples, GivesTheSignalToBothChannels) {
    AudioBuffer buffer(AV_CH_LAYOUT_STEREO, AV_SAMPLE_FMT_S16);
    buffer.loadSamples({1, -2, kLowest, kHighest});
    EXPECT_EQ(buffer.numberOfSamples(), 4U);
    EXPECT_THAT(samplesOf<short>(buffer, 0, 8),
                ElementsAre(1, 1, -2, -2, kLowest, kLowest, kHighest, kHighest));
}

TEST(AudioBufferLoadSamples, GivesTheSignalToASingleChannel) {
    AudioBuffer buffer(AV_CH_LAYOUT_MONO, AV_SAMPLE_FMT_S16);
    buffer.loadSamples({1, -2, 3});
    EXPECT_EQ(buffer.numberOfSamples(), 3U);
    EXPECT_THAT(samplesOf<short>(buffer, 0, 3), ElementsAre(1, -2, 3));
}

TEST(AudioBufferLoadSamples, GivesTheSignalToSixChannels) {
    AudioBuffer buffer(AV_CH_LAYOUT_5POINT1_BACK, AV_SAMPLE_FMT_S16);
    buffer.loadSamples({5, -6});
    EXPECT_EQ(buffer.numberOfSamples(), 2U);
    EXPECT_THAT(samplesOf<short>(buffer, 0, 12), ElementsAre(5, 5, 5, 5, 5, 5, -6, -6, -6, -6, -6, -6));
}

TEST(AudioBufferLoadSamples, ScalesToFloatInEachPlane) {
    AudioBuffer buffer(AV_CH_LAYOUT_STEREO, AV_SAMPLE_FMT_FLTP);
    buffer.loadSamples({16384, 0, -1, kLowest, kHighest});
    EXPECT_EQ(buffer.numberOfSamples(), 5U);
    for (const std::size_t plane : {0U, 1U}) {
        EXPECT_THAT(samplesOf<float>(buffer, plane, 5),
                    ElementsAre(0.5F, 0.0F, -0.000030517578125F, -1.0F, 0.999969482421875F));
    }
}

TEST(AudioBufferLoadSamples, ScalesToFloatInTheOnlyPlaneOfMono) {
    AudioBuffer buffer(AV_CH_LAYOUT_MONO, AV_SAMPLE_FMT_FLTP);
    buffer.loadSamples({16384, -8192});
    EXPECT_THAT(buffer.getPointersToPlanes(), testing::SizeIs(1));
    EXPECT_THAT(samplesOf<float>(buffer, 0, 2), ElementsAre(0.5F, -0.25F));
}

TEST(AudioBufferLoadSamples, FillsAllPlanesOfTwelve) {
    AudioBuffer buffer(test::kTwelveChannels, AV_SAMPLE_FMT_FLTP);
    buffer.loadSamples({8192});
    for (std::size_t plane = 0; plane < 12; ++plane) {
        EXPECT_THAT(samplesOf<float>(buffer, plane, 1), ElementsAre(0.25F)) << plane;
    }
}

// Lets the C library fill allocated memory, so that unwritten memory can be recognised.
class FilledMemory {
public:
    FilledMemory() { mallopt(M_PERTURB, 0x5a); }
    FilledMemory(const FilledMemory&) = delete;
    FilledMemory& operator=(const FilledMemory&) = delete;
    ~FilledMemory() { mallopt(M_PERTURB, 0); }
};

TEST(AudioBufferLoadSamples, WritesNothingInOtherFormats) {
    // As much as both the C library and a sanitizer fill.
    constexpr std::size_t kLooked = 512;
    const std::vector<short> signal(8000, 0x1234);
    const FilledMemory filled;
    for (const test::Kind& kind : test::allKinds()) {
        if (kind.format.format == AV_SAMPLE_FMT_S16 || kind.format.format == AV_SAMPLE_FMT_FLTP) {
            continue;
        }
        SCOPED_TRACE(testing::PrintToString(kind));
        AudioBuffer buffer(kind.layout.mask, kind.format.format);
        buffer.loadSamples(signal);
        EXPECT_EQ(buffer.numberOfSamples(), signal.size());
        EXPECT_THAT(buffer.getPointersToPlanes(), testing::SizeIs(static_cast<std::size_t>(kind.planes())));
        AudioBuffer untouched(kind.layout.mask, kind.format.format);
        untouched.resize(signal.size());
        EXPECT_EQ(test::planesOf(buffer, kLooked), test::planesOf(untouched, kLooked));
        EXPECT_EQ(test::planesOf(buffer, kLooked)[0], test::Bytes(kLooked, test::planesOf(buffer, 1)[0][0]));
    }
}

TEST(AudioBufferLoadSamples, ReplacesTheSamplesWithoutTouchingThoseOfCopies) {
    AudioBuffer buffer(AV_CH_LAYOUT_MONO, AV_SAMPLE_FMT_S16);
    buffer.loadSamples({1, 2, 3});
    const AudioBuffer copy = buffer;
    buffer.loadSamples({9});
    EXPECT_EQ(buffer.numberOfSamples(), 1U);
    EXPECT_EQ(copy.numberOfSamples(), 3U);
    EXPECT_THAT(samplesOf<short>(copy, 0, 3), ElementsAre(1, 2, 3));
}

TEST(AudioBufferLoadSamples, LeavesTheRate) {
    AudioBuffer buffer(AV_CH_LAYOUT_MONO, AV_SAMPLE_FMT_S16);
    buffer.setSampleRate(32000);
    buffer.loadSamples({1});
    EXPECT_EQ(buffer.sampleRate(), 32000);
}

TEST(AudioBufferLoadSamples, LeavesNoSamplesForAnEmptyInput) {
    for (const test::Kind& kind : test::allKinds()) {
        SCOPED_TRACE(testing::PrintToString(kind));
        AudioBuffer buffer(kind.layout.mask, kind.format.format);
        buffer.resize(10);
        EXPECT_NO_THROW(buffer.loadSamples({}));
        EXPECT_EQ(buffer.numberOfSamples(), 0U);
        EXPECT_FALSE(buffer.empty());
        EXPECT_THROW((void)buffer.getSample_s16(0), std::out_of_range);
    }
}

TEST(AudioBufferLoadSamples, ThrowsWithoutALayout) {
    AudioBuffer buffer;
    EXPECT_THROW_TEXT(std::runtime_error,
                      "Could not get buffer size for audio layout 0, sample format -1, samples 3",
                      buffer.loadSamples({1, 2, 3}));
}

TEST(AudioBufferSamples, AreTwoForTwoChannels) {
    AudioBuffer buffer(AV_CH_LAYOUT_STEREO, AV_SAMPLE_FMT_S16);
    buffer.resize(3);
    buffer.setSample_s16({1, 2}, 0);
    buffer.setSample_s16({3, 4}, 1);
    buffer.setSample_s16({kLowest, kHighest}, 2);
    EXPECT_THAT(samplesOf<short>(buffer, 0, 6), ElementsAre(1, 2, 3, 4, kLowest, kHighest));
    EXPECT_THAT(buffer.getSample_s16(0), ElementsAre(1, 2));
    EXPECT_THAT(buffer.getSample_s16(1), ElementsAre(3, 4));
    EXPECT_THAT(buffer.getSample_s16(2), ElementsAre(kLowest, kHighest));
}

TEST(AudioBufferSamples, AreOneForOneChannel) {
    AudioBuffer buffer(AV_CH_LAYOUT_MONO, AV_SAMPLE_FMT_S16);
    buffer.resize(2);
    buffer.setSample_s16({1}, 0);
    buffer.setSample_s16({2, 99}, 1);
    EXPECT_THAT(samplesOf<short>(buffer, 0, 2), ElementsAre(1, 2));
    EXPECT_THAT(buffer.getSample_s16(1), ElementsAre(2));
}

TEST(AudioBufferSamples, AreOneAtItsPlaceInTheMemoryForSixChannels) {
    AudioBuffer buffer(AV_CH_LAYOUT_5POINT1_BACK, AV_SAMPLE_FMT_S16);
    buffer.resize(2);
    for (unsigned long i = 0; i < 12; ++i) {
        buffer.setSample_s16({static_cast<short>(10 * i)}, i);
    }
    EXPECT_THAT(samplesOf<short>(buffer, 0, 12),
                ElementsAre(0, 10, 20, 30, 40, 50, 60, 70, 80, 90, 100, 110));
    EXPECT_THAT(buffer.getSample_s16(7), ElementsAre(70));
}

TEST(AudioBufferSamples, AreThoseOfPlaneZeroInAPlanarFormat) {
    AudioBuffer buffer(AV_CH_LAYOUT_STEREO, AV_SAMPLE_FMT_S16P);
    buffer.resize(4);
    for (std::uint8_t* plane : buffer.getPointersToPlanes()) {
        std::memset(plane, 0, 8);
    }
    buffer.setSample_s16({1, 2}, 1);
    EXPECT_THAT(samplesOf<short>(buffer, 0, 4), ElementsAre(0, 0, 1, 2));
    EXPECT_THAT(samplesOf<short>(buffer, 1, 4), Each(0));
    EXPECT_THAT(buffer.getSample_s16(1), ElementsAre(1, 2));
}

TEST(AudioBufferSamples, AreOutOfRangeBehindThePlane) {
    AudioBuffer stereo(AV_CH_LAYOUT_STEREO, AV_SAMPLE_FMT_S16);
    stereo.resize(3);
    AudioBuffer mono(AV_CH_LAYOUT_MONO, AV_SAMPLE_FMT_S16);
    mono.resize(3);
    for (AudioBuffer* buffer : {&stereo, &mono}) {
        EXPECT_NO_THROW(buffer->setSample_s16({0, 0}, 2));
        for (const unsigned long index : {3UL, 4UL, ~0UL, ~0UL / 2 + 1, ~0UL / 4}) {
            EXPECT_THROW((void)buffer->getSample_s16(index), std::out_of_range) << index;
            EXPECT_THROW(buffer->setSample_s16({0, 0}, index), std::out_of_range) << index;
        }
    }
}

TEST(AudioBufferSamples, AreOutOfRangeWithoutMemory) {
    AudioBuffer buffer(AV_CH_LAYOUT_STEREO, AV_SAMPLE_FMT_S16);
    EXPECT_THROW((void)buffer.getSample_s16(0), std::out_of_range);
    EXPECT_THROW(buffer.setSample_s16({0, 0}, 0), std::out_of_range);
}

TEST(AudioBufferSamples, NeedAValueForEachChannel) {
    AudioBuffer buffer(AV_CH_LAYOUT_STEREO, AV_SAMPLE_FMT_S16);
    buffer.loadSamples({7});
    EXPECT_THROW(buffer.setSample_s16({1}, 0), std::out_of_range);
    EXPECT_THROW(buffer.setSample_s16({}, 0), std::out_of_range);
    EXPECT_THAT(buffer.getSample_s16(0), ElementsAre(7, 7));
}

}  // namespace
}  // namespace vidorra
