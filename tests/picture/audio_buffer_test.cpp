#include "vidorra/picture/audio_buffer.h"

#include <gmock/gmock.h>

#include <climits>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <type_traits>

#include "picture/av_frames.h"
#include "support/media.h"
#include "support/throw_text.h"

namespace vidorra {
namespace {

using test::allKinds;
using test::Kind;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsNull;
using testing::NotNull;
using testing::SizeIs;

static_assert(!std::is_polymorphic_v<AudioBuffer>);
static_assert(std::is_copy_constructible_v<AudioBuffer> && std::is_copy_assignable_v<AudioBuffer>);
// A mask, a format, a count, a rate and a shared pointer.
static_assert(sizeof(AudioBuffer) == 8 + 8 + 8 + 8 + 16);

AudioBuffer stereo16(unsigned long samples = 0) {
    AudioBuffer buffer(AV_CH_LAYOUT_STEREO, AV_SAMPLE_FMT_S16);
    buffer.resize(samples);
    return buffer;
}

TEST(AudioBuffer, IsEmptyByDefault) {
    const AudioBuffer buffer;
    EXPECT_TRUE(buffer.empty());
    EXPECT_EQ(buffer.channelLayout(), 0U);
    EXPECT_EQ(buffer.sampleFormat(), AV_SAMPLE_FMT_NONE);
    EXPECT_EQ(buffer.numberOfSamples(), 0U);
    EXPECT_EQ(buffer.sampleRate(), 0);
    EXPECT_EQ(buffer.numberOfChannels(), 0);
}

TEST(AudioBuffer, IsNotEmptyWithALayoutAndNoSamples) {
    const AudioBuffer buffer(AV_CH_LAYOUT_STEREO, AV_SAMPLE_FMT_S16);
    EXPECT_FALSE(buffer.empty());
    EXPECT_EQ(buffer.channelLayout(), static_cast<unsigned long>(AV_CH_LAYOUT_STEREO));
    EXPECT_EQ(buffer.sampleFormat(), AV_SAMPLE_FMT_S16);
    EXPECT_EQ(buffer.numberOfSamples(), 0U);
    EXPECT_EQ(buffer.sampleRate(), 0);
}

TEST(AudioBuffer, TakesPlanesThatAreThereWithoutCopying) {
    MemBuffer left(40, true);
    MemBuffer right(40, true);
    const AudioBuffer buffer(AV_CH_LAYOUT_STEREO, AV_SAMPLE_FMT_FLTP, 48000, 10, {left, right});
    EXPECT_THAT(buffer.getPointersToPlanes(), ElementsAre(left.data(), right.data()));
    EXPECT_EQ(buffer.debugDescription(), "10 samples 48000Hz stereo fltp");
    EXPECT_EQ(buffer.availableSamples(), 10U);
    const AudioBuffer interleaved(AV_CH_LAYOUT_STEREO, AV_SAMPLE_FMT_FLT, 44100, 5, {left});
    EXPECT_THAT(interleaved.getPointersToPlanes(), ElementsAre(left.data()));
    EXPECT_EQ(left.useCount(), 3);
}

TEST(AudioBuffer, LeavesOutWhatIsBehindTheSamplesOfPlanesThatAreThere) {
    const MemBuffer larger(100, true);
    const AudioBuffer buffer(AV_CH_LAYOUT_STEREO, AV_SAMPLE_FMT_S16, 48000, 10, {larger});
    EXPECT_EQ(larger.size(), 100U);
    const std::filesystem::path path = test::temporaryFolder() / "plane";
    {
        std::ofstream stream(path);
        buffer.dumpPlane(stream, 0);
    }
    EXPECT_EQ(test::fileContent(path).size(), 40U);
}

TEST(AudioBuffer, TakesOnlyPlanesThatFitTheSamples) {
    const MemBuffer plane(40, true);
    const MemBuffer smaller(36, true);
    const auto make = [](std::vector<MemBuffer> planes) {
        return AudioBuffer(AV_CH_LAYOUT_STEREO, AV_SAMPLE_FMT_FLTP, 48000, 10, std::move(planes));
    };
    const std::string text = "AudioBuffer: The planes do not fit the samples";
    EXPECT_THROW_TEXT(std::invalid_argument, text, make({}));
    EXPECT_THROW_TEXT(std::invalid_argument, text, make({plane}));
    EXPECT_THROW_TEXT(std::invalid_argument, text, make({plane, plane, plane}));
    EXPECT_THROW_TEXT(std::invalid_argument, text, make({plane, smaller}));
    EXPECT_THROW_TEXT(std::invalid_argument, text, make({plane, MemBuffer()}));
    EXPECT_NO_THROW(make({plane, plane}));
    EXPECT_THROW_TEXT(std::runtime_error,
                      "Could not get buffer size for audio layout 0, sample format 8, samples 10",
                      AudioBuffer(0, AV_SAMPLE_FMT_FLTP, 48000, 10, {plane}));
}

TEST(AudioBuffer, KeepsTheRateThatIsSet) {
    AudioBuffer buffer;
    buffer.setSampleRate(44100);
    EXPECT_EQ(buffer.sampleRate(), 44100);
    EXPECT_TRUE(buffer.empty());
}

AudioBuffer make(const Kind& kind) {
    return {kind.layout.mask, kind.format.format};
}

TEST(AudioBufferKinds, HaveOnePlaneOrOneForEachChannel) {
    for (const Kind& kind : allKinds()) {
        SCOPED_TRACE(testing::PrintToString(kind));
        const AudioBuffer buffer = make(kind);
        EXPECT_EQ(buffer.numberOfChannels(), kind.layout.channels);
        EXPECT_THAT(buffer.getPointersToPlanes(), SizeIs(static_cast<std::size_t>(kind.planes())));
        EXPECT_THAT(buffer.getPointersToPlanes(), Each(IsNull()));
    }
}

TEST(AudioBufferKinds, NeedAllSamplesOfAllChannels) {
    for (const Kind& kind : allKinds()) {
        SCOPED_TRACE(testing::PrintToString(kind));
        const long perSample = kind.format.bytes * kind.layout.channels;
        EXPECT_EQ(make(kind).getNeededBufferSize(0), 0);
        EXPECT_EQ(make(kind).getNeededBufferSize(1), perSample);
        EXPECT_EQ(make(kind).getNeededBufferSize(1023), 1023 * perSample);
    }
}

TEST(AudioBufferKinds, DivideTheirSizeAmongTheirPlanes) {
    for (const Kind& kind : allKinds()) {
        SCOPED_TRACE(testing::PrintToString(kind));
        const AudioBuffer buffer = make(kind);
        EXPECT_EQ(buffer.getPointersToPlanes().size(), buffer.numberOfPlanes());
        EXPECT_EQ(buffer.planeSize(100) * buffer.numberOfPlanes(),
                  static_cast<std::size_t>(buffer.getNeededBufferSize(100)));
    }
}

TEST(AudioBufferKinds, HaveSizeZeroWithoutSamples) {
    for (const Kind& kind : allKinds()) {
        SCOPED_TRACE(testing::PrintToString(kind));
        AudioBuffer buffer = make(kind);
        EXPECT_NO_THROW(buffer.resize(0));
        EXPECT_EQ(buffer.numberOfSamples(), 0U);
        EXPECT_FALSE(buffer.empty());
    }
}

TEST(AudioBufferKinds, KeepTheirSamplesWhenTheyGrowAndShrink) {
    for (const Kind& kind : allKinds()) {
        SCOPED_TRACE(testing::PrintToString(kind));
        const auto frame = test::makeFrame(kind, 10, 48000, test::unlikePlanes(kind, 10));
        AudioBuffer buffer;
        buffer.loadAVFrame(frame.get());
        buffer.resize(4000);
        EXPECT_EQ(buffer.numberOfSamples(), 4000U);
        EXPECT_EQ(test::planesOf(buffer, kind.planeBytes(10)),
                  test::planesOf(*frame, kind.planes(), kind.planeBytes(10)));
        buffer.resize(3);
        EXPECT_EQ(buffer.numberOfSamples(), 3U);
        EXPECT_EQ(test::planesOf(buffer, kind.planeBytes(3)),
                  test::planesOf(*frame, kind.planes(), kind.planeBytes(3)));
    }
}

TEST(AudioBufferKinds, DumpTheBytesOfAPlane) {
    for (const Kind& kind : allKinds()) {
        SCOPED_TRACE(testing::PrintToString(kind));
        const auto frame = test::makeFrame(kind, 33, 48000, test::unlikePlanes(kind, 33));
        AudioBuffer buffer;
        buffer.loadAVFrame(frame.get());
        const auto planes = test::planesOf(*frame, kind.planes(), kind.planeBytes(33));
        for (int i = 0; i < kind.planes(); ++i) {
            const auto path = test::temporaryFile("plane.raw", "");
            std::ofstream stream(path, std::ios::binary);
            buffer.dumpPlane(stream, i);
            stream.close();
            const auto& plane = planes[static_cast<std::size_t>(i)];
            EXPECT_EQ(test::fileContent(path), std::string(plane.begin(), plane.end())) << "plane " << i;
        }
    }
}

TEST(AudioBuffer, MakesOnePlaneAndThenThrowsWhenADefaultOneIsResized) {
    AudioBuffer buffer;
    EXPECT_THROW_TEXT(std::runtime_error,
                      "Could not get buffer size for audio layout 0, sample format -1, samples 10",
                      buffer.resize(10));
    EXPECT_FALSE(buffer.empty());
    EXPECT_THAT(buffer.getPointersToPlanes(), ElementsAre(nullptr));
    EXPECT_EQ(buffer.numberOfSamples(), 10U);
}

TEST(AudioBuffer, HasNoSizeWithoutALayoutEvenForNoSamples) {
    AudioBuffer buffer(0, AV_SAMPLE_FMT_FLTP);
    EXPECT_THROW_TEXT(std::runtime_error,
                      "Could not get buffer size for audio layout 0, sample format 8, samples 0",
                      buffer.resize(0));
}

TEST(AudioBuffer, HasNoSizeWithoutAFormatEvenForNoSamples) {
    const AudioBuffer buffer(AV_CH_LAYOUT_5POINT1_BACK, AV_SAMPLE_FMT_NONE);
    EXPECT_THROW_TEXT(std::runtime_error,
                      "Could not get buffer size for audio layout 63, sample format -1, samples 0",
                      (void)buffer.getNeededBufferSize(0));
}

TEST(AudioBuffer, KeepsTheCountAndTheOldPlanesWhenASizeIsTooLarge) {
    AudioBuffer buffer = stereo16(2);
    buffer.setSample_s16({7, 8}, 1);
    EXPECT_THROW_TEXT(std::runtime_error,
                      "Could not get buffer size for audio layout 3, sample format 1, samples 2147483647",
                      buffer.resize(INT_MAX));
    EXPECT_EQ(buffer.numberOfSamples(), static_cast<unsigned long>(INT_MAX));
    EXPECT_THAT(buffer.getSample_s16(1), ElementsAre(7, 8));
}

TEST(AudioBuffer, HasNoSizeForMoreSamplesThanAnIntHolds) {
    const AudioBuffer buffer(AV_CH_LAYOUT_MONO, AV_SAMPLE_FMT_U8);
    EXPECT_THROW_TEXT(std::runtime_error,
                      "Could not get buffer size for audio layout 4, sample format 0, samples 4294967297",
                      (void)buffer.getNeededBufferSize(4294967297UL));
}

TEST(AudioBuffer, IsCompatibleWithABufferThatDiffersInTheCountOnly) {
    AudioBuffer one = stereo16(1);
    AudioBuffer many = stereo16(1000);
    one.setSampleRate(48000);
    many.setSampleRate(48000);
    EXPECT_TRUE(one.isCompatibleWithBuffer(many));
    EXPECT_TRUE(many.isCompatibleWithBuffer(one));
}

TEST(AudioBuffer, IsNotCompatibleWithAnotherLayoutFormatOrRate) {
    AudioBuffer buffer = stereo16(1);
    buffer.setSampleRate(48000);
    AudioBuffer layout(AV_CH_LAYOUT_MONO, AV_SAMPLE_FMT_S16);
    layout.setSampleRate(48000);
    AudioBuffer format(AV_CH_LAYOUT_STEREO, AV_SAMPLE_FMT_S16P);
    format.setSampleRate(48000);
    AudioBuffer rate = stereo16(1);
    rate.setSampleRate(44100);
    EXPECT_FALSE(buffer.isCompatibleWithBuffer(layout));
    EXPECT_FALSE(buffer.isCompatibleWithBuffer(format));
    EXPECT_FALSE(buffer.isCompatibleWithBuffer(rate));
    EXPECT_TRUE(AudioBuffer().isCompatibleWithBuffer(AudioBuffer()));
}

TEST(AudioBuffer, SharesItsSamplesWithItsCopies) {
    AudioBuffer buffer = stereo16(2);
    buffer.setSampleRate(8000);
    AudioBuffer copy = buffer;
    EXPECT_EQ(copy.numberOfSamples(), 2U);
    EXPECT_EQ(copy.sampleRate(), 8000);
    EXPECT_EQ(copy.getPointersToPlanes(), buffer.getPointersToPlanes());
    buffer.setSample_s16({1, 2}, 0);
    EXPECT_THAT(copy.getSample_s16(0), ElementsAre(1, 2));
    copy.setSample_s16({3, 4}, 1);
    EXPECT_THAT(buffer.getSample_s16(1), ElementsAre(3, 4));
}

TEST(AudioBuffer, ResizedThroughOneCopyLeavesTheCountOfTheOther) {
    AudioBuffer buffer = stereo16(2);
    AudioBuffer copy = buffer;
    copy.resize(50000);
    EXPECT_EQ(copy.numberOfSamples(), 50000U);
    EXPECT_EQ(buffer.numberOfSamples(), 2U);
    EXPECT_EQ(copy.getPointersToPlanes(), buffer.getPointersToPlanes());
}

TEST(AudioBuffer, GivesACopyNewPlanesOfItsOwn) {
    AudioBuffer buffer = stereo16(1);
    buffer.setSampleRate(8000);
    buffer.setSample_s16({1, 2}, 0);
    AudioBuffer copy = buffer;
    copy.createPlanes();
    EXPECT_EQ(copy.numberOfSamples(), 0U);
    EXPECT_EQ(copy.sampleRate(), 8000);
    EXPECT_EQ(copy.channelLayout(), buffer.channelLayout());
    EXPECT_EQ(copy.sampleFormat(), buffer.sampleFormat());
    EXPECT_THAT(copy.getPointersToPlanes(), ElementsAre(nullptr));
    copy.resize(1);
    copy.setSample_s16({5, 6}, 0);
    EXPECT_THAT(buffer.getSample_s16(0), ElementsAre(1, 2));
    EXPECT_EQ(buffer.numberOfSamples(), 1U);
}

TEST(AudioBuffer, GivesTheSamePlanesThroughAConstReference) {
    AudioBuffer buffer = stereo16(1);
    const AudioBuffer& constant = buffer;
    EXPECT_THAT(buffer.getPointersToPlanes(), ElementsAre(NotNull()));
    EXPECT_EQ(constant.getPointersToPlanes().front(), buffer.getPointersToPlanes().front());
}

TEST(AudioBuffer, ThrowsOutOfRangeForSamplesWithoutPlanes) {
    AudioBuffer buffer;
    EXPECT_THROW((void)buffer.getSample_s16(0), std::out_of_range);
    EXPECT_THROW(buffer.setSample_s16({1, 2}, 0), std::out_of_range);
    EXPECT_THROW((void)buffer.getPointersToPlanes(), std::out_of_range);
    EXPECT_THROW((void)std::as_const(buffer).getPointersToPlanes(), std::out_of_range);
    EXPECT_THROW((void)buffer.getAudioLevel(), std::out_of_range);
    EXPECT_TRUE(buffer.empty());
}

TEST(AudioBuffer, ThrowsOutOfRangeForAPlaneThatThereIsNot) {
    AudioBuffer buffer(AV_CH_LAYOUT_STEREO, AV_SAMPLE_FMT_FLTP);
    buffer.resize(1);
    std::ofstream stream(test::temporaryFile("plane.raw", ""), std::ios::binary);
    EXPECT_NO_THROW(buffer.dumpPlane(stream, 1));
    EXPECT_THROW(buffer.dumpPlane(stream, 2), std::out_of_range);
    EXPECT_THROW(buffer.dumpPlane(stream, -1), std::out_of_range);
    EXPECT_THROW(AudioBuffer().dumpPlane(stream, 0), std::out_of_range);
}

TEST(AudioBuffer, DumpsNothingForAPlaneWithoutMemory) {
    const AudioBuffer buffer(AV_CH_LAYOUT_STEREO, AV_SAMPLE_FMT_FLTP);
    const auto path = test::temporaryFile("plane.raw", "");
    std::ofstream stream(path, std::ios::binary);
    buffer.dumpPlane(stream, 1);
    stream.close();
    EXPECT_THAT(test::fileContent(path), IsEmpty());
}

TEST(AudioBuffer, LastsAsLongAsItsSamples) {
    AudioBuffer buffer = stereo16(48000);
    buffer.setSampleRate(48000);
    const Timestamp duration = buffer.duration();
    EXPECT_EQ(duration.value, 1000000);
    EXPECT_EQ(duration.timebase, Timebase(1, 1000000));
    EXPECT_FALSE(duration.isNull);
}

TEST(AudioBuffer, RoundsItsDurationToTheNearestMicrosecond) {
    struct Row {
        int rate;
        unsigned long samples;
        std::int64_t expected;
    };
    const Row rows[] = {
        {.rate = 48000, .samples = 0, .expected = 0},
        {.rate = 48000, .samples = 1, .expected = 21},        // 20.83
        {.rate = 44100, .samples = 1, .expected = 23},        // 22.68
        {.rate = 44100, .samples = 1024, .expected = 23220},  // 23219.95
        {.rate = 48000, .samples = 1024, .expected = 21333},  // 21333.33
        {.rate = 32000, .samples = 1, .expected = 31},        // 31.25
        {.rate = 96000, .samples = 6, .expected = 63},        // 62.5: half goes up
        {.rate = 400000, .samples = 1, .expected = 3},        // 2.5
        {.rate = 2000000, .samples = 1, .expected = 1},       // 0.5
        {.rate = 3000000, .samples = 1, .expected = 0},       // 0.33
        {.rate = 8000, .samples = 8000UL * 86400, .expected = 86400000000},
        {.rate = 1, .samples = 3, .expected = 3000000},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::Message() << row.samples << " samples at " << row.rate << " Hz");
        AudioBuffer buffer(AV_CH_LAYOUT_MONO, AV_SAMPLE_FMT_U8);
        if (row.samples < 100000) {
            buffer.resize(row.samples);
        } else {
            // The count is what it is asked to be, also where there is no memory for it.
            AudioBuffer without;
            EXPECT_THROW(without.resize(row.samples), std::runtime_error);
            buffer = without;
        }
        buffer.setSampleRate(row.rate);
        EXPECT_EQ(buffer.duration().value, row.expected);
    }
}

TEST(AudioBuffer, LastsNoTimeWithoutARate) {
    AudioBuffer buffer = stereo16(48000);
    EXPECT_EQ(buffer.duration().value, 0);
    buffer.setSampleRate(-1);
    EXPECT_EQ(buffer.duration().value, 0);
    EXPECT_EQ(buffer.duration().timebase, Timebase());
}

TEST(AudioBuffer, DescribesItself) {
    struct Row {
        std::uint64_t mask;
        AVSampleFormat format;
        unsigned long samples;
        int rate;
        const char* expected;
    };
    const Row rows[] = {
        {AV_CH_LAYOUT_STEREO, AV_SAMPLE_FMT_FLTP, 1024, 48000, "1024 samples 48000Hz stereo fltp"},
        {AV_CH_LAYOUT_MONO, AV_SAMPLE_FMT_U8, 0, 0, "0 samples 0Hz mono u8"},
        {AV_CH_LAYOUT_5POINT1_BACK, AV_SAMPLE_FMT_S16, 1, 96000, "1 samples 96000Hz 5.1 s16"},
        {AV_CH_LAYOUT_5POINT1, AV_SAMPLE_FMT_S64P, 1, 8000, "1 samples 8000Hz 5.1(side) s64p"},
        {AV_CH_LAYOUT_7POINT1, AV_SAMPLE_FMT_DBL, 2, 44100, "2 samples 44100Hz 7.1 dbl"},
        {AV_CH_FRONT_LEFT, AV_SAMPLE_FMT_S32P, 2, -1, "2 samples -1Hz 1 channels (FL) s32p"},
        {AV_CH_FRONT_LEFT | AV_CH_BACK_CENTER, AV_SAMPLE_FMT_S16P, 2, 1,
         "2 samples 1Hz 2 channels (FL+BC) s16p"},
    };
    for (const Row& row : rows) {
        AudioBuffer buffer(row.mask, row.format);
        buffer.resize(row.samples);
        buffer.setSampleRate(row.rate);
        EXPECT_EQ(buffer.debugDescription(), row.expected);
        std::ostringstream stream;
        stream << buffer;
        EXPECT_EQ(stream.str(), row.expected);
    }
}

TEST(AudioBuffer, DescribesAnEmptyOne) {
    EXPECT_EQ(AudioBuffer().debugDescription(), "(empty)");
    std::ostringstream stream;
    stream << AudioBuffer();
    EXPECT_EQ(stream.str(), "(empty)");
}

TEST(AudioBuffer, DescribesOneWithoutALayout) {
    EXPECT_EQ(AudioBuffer(0, AV_SAMPLE_FMT_S16).debugDescription(), "0 samples 0Hz 0 channels s16");
}

TEST(AudioBuffer, DescribesSixtyFourChannels) {
    const std::string text = AudioBuffer(~0UL, AV_SAMPLE_FMT_S16).debugDescription();
    EXPECT_THAT(text, testing::StartsWith("0 samples 0Hz 64 channels (FL+FR+FC+LFE+"));
    EXPECT_THAT(text, testing::EndsWith(") s16"));
}

}  // namespace
}  // namespace vidorra
