#include "vidorra/audio/resampler.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <optional>
#include <set>
#include <stdexcept>
#include <utility>

#include "audio/plain_resampling.h"
#include "support/throw_text.h"

extern "C" {
#include <libavutil/buffer.h>
#include <libavutil/error.h>
#include <libswresample/swresample.h>
}

namespace vidorra::test {
namespace {

constexpr std::uint64_t kMono = 4;
constexpr std::uint64_t kStereo = 3;
constexpr std::uint64_t kQuad = 0x33;
constexpr std::uint64_t kFive = 0x3f;    // 5.1
constexpr std::uint64_t kSeven = 0x63f;  // 7.1

using Sample = std::int16_t;

AudioBuffer s16(std::uint64_t layout, const std::vector<Sample>& interleaved, int rate = 48000) {
    AudioBuffer buffer(layout, AV_SAMPLE_FMT_S16);
    buffer.setSampleRate(rate);
    buffer.resize(interleaved.size() / static_cast<std::size_t>(buffer.numberOfChannels()));
    std::memcpy(buffer.getPointersToPlanes()[0], interleaved.data(), interleaved.size() * sizeof(Sample));
    return buffer;
}

std::vector<Sample> interleaved(const AudioBuffer& buffer) {
    const auto* samples = reinterpret_cast<const Sample*>(buffer.getPointersToPlanes()[0]);
    return {samples,
            samples + buffer.numberOfSamples() * static_cast<unsigned long>(buffer.numberOfChannels())};
}

struct Row {
    const char* name;
    std::uint64_t inLayout = kStereo;
    AVSampleFormat inFormat = AV_SAMPLE_FMT_FLTP;
    int inRate = 48000;
    std::uint64_t outLayout = kStereo;
    AVSampleFormat outFormat = AV_SAMPLE_FMT_FLTP;
    int outRate = 48000;
};

constexpr Row kRows[] = {
    {.name = "Same"},
    {.name = "FltpToS16", .outFormat = AV_SAMPLE_FMT_S16},
    {.name = "S16ToFltp", .inFormat = AV_SAMPLE_FMT_S16},
    {.name = "S32ToU8", .inFormat = AV_SAMPLE_FMT_S32, .outFormat = AV_SAMPLE_FMT_U8},
    {.name = "U8ToDbl", .inFormat = AV_SAMPLE_FMT_U8, .outFormat = AV_SAMPLE_FMT_DBL},
    {.name = "S16ToS16p", .inFormat = AV_SAMPLE_FMT_S16, .outFormat = AV_SAMPLE_FMT_S16P},
    {.name = "DblpToFlt", .inFormat = AV_SAMPLE_FMT_DBLP, .outFormat = AV_SAMPLE_FMT_FLT},
    {.name = "To44100", .outRate = 44100},
    {.name = "From44100", .inRate = 44100},
    {.name = "From44100InS16",
     .inFormat = AV_SAMPLE_FMT_S16,
     .inRate = 44100,
     .outFormat = AV_SAMPLE_FMT_S16},
    {.name = "To8000InS16p", .inFormat = AV_SAMPLE_FMT_S16, .outFormat = AV_SAMPLE_FMT_S16P, .outRate = 8000},
    {.name = "From8000ToFlt", .inFormat = AV_SAMPLE_FMT_S16, .inRate = 8000, .outFormat = AV_SAMPLE_FMT_FLT},
    {.name = "To192000", .outRate = 192000},
    {.name = "From11025To12000", .inRate = 11025, .outRate = 12000},
    {.name = "MonoToStereo", .inLayout = kMono},
    {.name = "StereoToMono", .outLayout = kMono},
    {.name = "FiveToStereo", .inLayout = kFive},
    {.name = "StereoToFive", .outLayout = kFive},
    {.name = "SevenToFiveInS32At44100",
     .inLayout = kSeven,
     .inFormat = AV_SAMPLE_FMT_S32P,
     .outLayout = kFive,
     .outFormat = AV_SAMPLE_FMT_S32,
     .outRate = 44100},
    {.name = "QuadToMonoInDblAt22050",
     .inLayout = kQuad,
     .inFormat = AV_SAMPLE_FMT_FLT,
     .outLayout = kMono,
     .outFormat = AV_SAMPLE_FMT_DBLP,
     .outRate = 22050},
    {.name = "MonoU8From32000ToS32",
     .inLayout = kMono,
     .inFormat = AV_SAMPLE_FMT_U8,
     .inRate = 32000,
     .outFormat = AV_SAMPLE_FMT_S32},
    {.name = "MonoPlanarToMonoPlanar", .inLayout = kMono, .inRate = 24000, .outLayout = kMono},
};

class ResamplerPairs : public testing::TestWithParam<Row> {};

TEST_P(ResamplerPairs, GiveWhatPlainCallsOfLibswresampleGive) {
    const Row& row = GetParam();
    Resampler resampler;
    PlainResampling plain(tones(row.inLayout, row.inFormat, row.inRate, 1), row.outRate, row.outLayout,
                          row.outFormat);
    int start = 0;
    for (const int samples : {1024, 1, 0, 1024, 17, 4096, 3}) {
        SCOPED_TRACE(start);
        const AudioBuffer input = tones(row.inLayout, row.inFormat, row.inRate, samples, start);
        start += samples;
        const AudioBuffer output =
            resampler.resample(input, row.outRate, static_cast<long>(row.outLayout), row.outFormat);
        EXPECT_EQ(output.sampleRate(), row.outRate);
        EXPECT_EQ(output.channelLayout(), row.outLayout);
        EXPECT_EQ(output.sampleFormat(), row.outFormat);
        ASSERT_EQ(bytesOf(output), plain.convert(input));
        EXPECT_EQ(resampler.getDelay().value, plain.delayInMicroseconds());
    }
}

INSTANTIATE_TEST_SUITE_P(Resampler, ResamplerPairs, testing::ValuesIn(kRows),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(Resampler, ATonePassesAChangeOfRate) {
    constexpr double kPi = 3.14159265358979323846;
    Resampler resampler;
    std::vector<float> output;
    for (int start = 0; start < 44100; start += 441) {
        const AudioBuffer piece = resampler.resample(tones(kMono, AV_SAMPLE_FMT_FLT, 44100, 441, start),
                                                     48000, kMono, AV_SAMPLE_FMT_FLT);
        const auto* samples = reinterpret_cast<const float*>(piece.getPointersToPlanes()[0]);
        output.insert(output.end(), samples, samples + piece.numberOfSamples());
    }
    const auto held = static_cast<double>(resampler.getDelay().value) * 0.048;
    EXPECT_NEAR(static_cast<double>(output.size()) + held, 48000, 2);
    // The first samples depend on the filter.
    for (std::size_t i = 100; i < output.size(); ++i) {
        ASSERT_NEAR(output[i], 0.5 * std::sin(2 * kPi * 440 * static_cast<double>(i) / 48000), 2e-3) << i;
    }
}

TEST(Resampler, ShortInputsContinueEachOther) {
    for (const int step : {1, 8}) {
        SCOPED_TRACE(step);
        Resampler inSteps;
        std::vector<Sample> pieces;
        for (int start = 0; start < 800; start += step) {
            const AudioBuffer piece = inSteps.resample(tones(kStereo, AV_SAMPLE_FMT_S16, 44100, step, start),
                                                       48000, kStereo, AV_SAMPLE_FMT_S16);
            const std::vector<Sample> samples = interleaved(piece);
            pieces.insert(pieces.end(), samples.begin(), samples.end());
        }
        Resampler atOnce;
        const std::vector<Sample> whole = interleaved(atOnce.resample(
            tones(kStereo, AV_SAMPLE_FMT_S16, 44100, 800), 48000, kStereo, AV_SAMPLE_FMT_S16));
        ASSERT_GT(pieces.size(), 1600U);
        const std::size_t common = std::min(pieces.size(), whole.size());
        EXPECT_TRUE(
            std::equal(pieces.begin(), pieces.begin() + static_cast<std::ptrdiff_t>(common), whole.begin()));
    }
}

TEST(Resampler, AnInputWithoutSamplesGivesNone) {
    Resampler resampler;
    AudioBuffer input(kStereo, AV_SAMPLE_FMT_S16);
    input.setSampleRate(44100);
    const AudioBuffer output = resampler.resample(input, 48000, kMono, AV_SAMPLE_FMT_FLTP);
    EXPECT_FALSE(output.empty());
    EXPECT_EQ(output.numberOfSamples(), 0U);
    EXPECT_EQ(output.sampleRate(), 48000);
}

TEST(Resampler, TheDelayIsZeroBeforeTheFirstBuffer) {
    const Timestamp delay = Resampler().getDelay();
    EXPECT_EQ(delay.value, 0);
    EXPECT_EQ(delay.timebase, Timebase(1, 1000000));
    EXPECT_FALSE(delay.isNull);
}

TEST(Resampler, AChangeOfAnyParameterDropsWhatIsHeldBack) {
    const auto first = [](Resampler& resampler) {
        static_cast<void>(resampler.resample(tones(kStereo, AV_SAMPLE_FMT_FLTP, 44100, 1024), 48000, kStereo,
                                             AV_SAMPLE_FMT_FLTP));
    };
    for (const Row& row : {
             Row{.name = "output rate", .inRate = 44100, .outRate = 32000},
             Row{.name = "output layout", .inRate = 44100, .outLayout = kMono},
             Row{.name = "output format", .inRate = 44100, .outFormat = AV_SAMPLE_FMT_S16},
             Row{.name = "input rate", .inRate = 22050},
             Row{.name = "input layout", .inLayout = kFive, .inRate = 44100},
             Row{.name = "input format", .inFormat = AV_SAMPLE_FMT_S32, .inRate = 44100},
         }) {
        SCOPED_TRACE(row.name);
        Resampler resampler;
        first(resampler);
        EXPECT_GT(resampler.getDelay().value, 0);
        const AudioBuffer input = tones(row.inLayout, row.inFormat, row.inRate, 500, 1024);
        const auto layout = static_cast<long>(row.outLayout);
        const AudioBuffer output = resampler.resample(input, row.outRate, layout, row.outFormat);
        Resampler fresh;
        EXPECT_EQ(bytesOf(output), bytesOf(fresh.resample(input, row.outRate, layout, row.outFormat)));
    }
    Resampler unchanged;
    first(unchanged);
    const AudioBuffer input = tones(kStereo, AV_SAMPLE_FMT_FLTP, 44100, 500, 1024);
    const AudioBuffer output = unchanged.resample(input, 48000, kStereo, AV_SAMPLE_FMT_FLTP);
    Resampler fresh;
    EXPECT_NE(bytesOf(output), bytesOf(fresh.resample(input, 48000, kStereo, AV_SAMPLE_FMT_FLTP)));
}

struct MapRow {
    const char* name;
    const char* map;
    std::uint64_t layout;
    std::vector<Sample> input;
    std::vector<Sample> expected;
};

class ResamplerMap : public testing::TestWithParam<MapRow> {};

TEST_P(ResamplerMap, PlacesChannels) {
    Resampler resampler;
    resampler.setChannelMapping(GetParam().map);
    EXPECT_EQ(interleaved(resampler.remap(s16(GetParam().layout, GetParam().input))), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Resampler, ResamplerMap,
    testing::Values(
        MapRow{"Kept", "FL|FR", kStereo, {1, 2, 3, 4}, {1, 2, 3, 4}},
        MapRow{"Swapped", "FR|FL", kStereo, {1, 2, 3, 4}, {2, 1, 4, 3}},
        MapRow{"TwiceTheSame", "FR|FR", kStereo, {1, 2, 3, 4}, {2, 2, 4, 4}},
        MapRow{"OneNameOnly", "FC", kStereo, {1, 2, 3, 4}, {1, 0, 3, 0}},
        MapRow{"OneNameOfAnotherLayout", "FL", kStereo, {1, 2, 3, 4}, {0, 0, 0, 0}},
        MapRow{"EmptyText", "", kStereo, {1, 2, 3, 4}, {0, 0, 0, 0}},
        MapRow{"EmptyName", "|FL", kStereo, {1, 2, 3, 4}, {0, 1, 0, 3}},
        MapRow{"NameAtTheEndEmpty", "FR|", kStereo, {1, 2, 3, 4}, {2, 0, 4, 0}},
        MapRow{"UnknownName", "FR|nonsense", kStereo, {1, 2, 3, 4}, {2, 0, 4, 0}},
        MapRow{"NameOfALayout", "FR|stereo", kStereo, {1, 2, 3, 4}, {2, 0, 4, 0}},
        MapRow{"MoreNamesThanChannels", "FR|FL", kMono, {1, 2}, {0, 0}},
        MapRow{"OneOfMoreNamesIsThere", "FL|FR", kMono, {1, 2}, {1, 2}},
        MapRow{"Six", "FC|FL|FR|BL|BR|LFE", kFive, {1, 2, 3, 4, 5, 6}, {3, 1, 2, 5, 6, 4}},
        MapRow{
            "Eight", "SR|SL|BR|BL|LFE|FC|FR|FL", kSeven, {1, 2, 3, 4, 5, 6, 7, 8}, {8, 7, 6, 5, 4, 3, 2, 1}},
        MapRow{"MoreChannelsThanPlaces",
               "SR|SL|BR|BL|LFE|FC|FR|FL",
               0x3ff,
               {1, 2, 3, 4, 5, 6, 7, 8, 9, 10},
               {8, 7, 6, 5, 4, 3, 2, 1, 0, 0}}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(Resampler, AMapServesLaterBuffersOfFewerChannels) {
    Resampler resampler;
    resampler.setChannelMapping("FR|FL");
    EXPECT_EQ(interleaved(resampler.remap(s16(kStereo, {1, 2}))), (std::vector<Sample>{2, 1}));
    EXPECT_EQ(interleaved(resampler.remap(s16(kMono, {1, 2}))), (std::vector<Sample>{0, 0}));
    EXPECT_EQ(interleaved(resampler.remap(s16(kStereo, {3, 4}))), (std::vector<Sample>{4, 3}));
}

TEST(Resampler, ANewMapReplacesTheOldOne) {
    Resampler resampler;
    resampler.setChannelMapping("FR|FL");
    static_cast<void>(resampler.remap(s16(kStereo, {1, 2})));
    resampler.setChannelMapping("FL|FL");
    EXPECT_EQ(interleaved(resampler.remap(s16(kStereo, {1, 2}))), (std::vector<Sample>{1, 1}));
    resampler.setChannelMapping("FR");
    EXPECT_EQ(interleaved(resampler.remap(s16(kStereo, {1, 2}))), (std::vector<Sample>{0, 0}));
}

TEST(Resampler, NineNamesAreTooManyAndLeaveNoMap) {
    Resampler resampler;
    resampler.setChannelMapping("FR|FL");
    static_cast<void>(resampler.resample(s16(kStereo, {1, 2}, 44100), 48000, kStereo, AV_SAMPLE_FMT_S16));
    EXPECT_GT(resampler.getDelay().value, 0);
    EXPECT_THROW_TEXT(std::runtime_error, "Too many channels in channel map",
                      resampler.setChannelMapping("FL|FR|FC|LFE|BL|BR|SL|SR|FL"));
    EXPECT_EQ(resampler.getDelay().value, 0);
    EXPECT_EQ(interleaved(resampler.remap(s16(kStereo, {1, 2}))), (std::vector<Sample>{1, 2}));
}

TEST(Resampler, ASettingOfTheMapDropsWhatIsHeldBack) {
    Resampler resampler;
    static_cast<void>(
        resampler.resample(tones(kStereo, AV_SAMPLE_FMT_S16, 44100, 100), 48000, kStereo, AV_SAMPLE_FMT_S16));
    EXPECT_GT(resampler.getDelay().value, 0);
    resampler.setChannelMapping("FL|FR");
    EXPECT_EQ(resampler.getDelay().value, 0);
}

TEST(Resampler, AMovedOneGoesOn) {
    const auto input = [](int start) { return tones(kStereo, AV_SAMPLE_FMT_S16, 44100, 500, start); };
    const auto convert = [](Resampler& resampler, const AudioBuffer& samples) {
        return bytesOf(resampler.resample(samples, 48000, kStereo, AV_SAMPLE_FMT_S16));
    };
    Resampler unmoved;
    unmoved.setChannelMapping("FR|FL");
    auto original = std::make_unique<Resampler>();
    original->setChannelMapping("FR|FL");
    EXPECT_EQ(convert(*original, input(0)), convert(unmoved, input(0)));
    Resampler moved(std::move(*original));
    original->setChannelMapping("FL|FR");
    original.reset();
    EXPECT_EQ(convert(moved, input(500)), convert(unmoved, input(500)));
    Resampler assigned;
    assigned = std::move(moved);
    EXPECT_EQ(convert(assigned, input(1000)), convert(unmoved, input(1000)));
    // The moved-from resampler starts again, without the map.
    EXPECT_EQ(moved.getDelay().value, 0);  // NOLINT(bugprone-use-after-move)
    EXPECT_EQ(interleaved(moved.remap(s16(kStereo, {1, 2}))), (std::vector<Sample>{1, 2}));
}

TEST(Resampler, CompensationBeforeTheFirstBufferDoesNothing) {
    Resampler resampler;
    EXPECT_EQ(resampler.setCompensation(5, 0), 0);
    EXPECT_EQ(resampler.setCompensation(100, 1000), 0);
    EXPECT_EQ(interleaved(resampler.remap(s16(kStereo, {1, 2}))), (std::vector<Sample>{1, 2}));
}

TEST(Resampler, CompensationIsThatOfLibswresample) {
    const AudioBuffer input = tones(kStereo, AV_SAMPLE_FMT_FLTP, 44100, 4000);
    Resampler resampler;
    PlainResampling plain(input, 48000, kStereo, AV_SAMPLE_FMT_FLTP);
    const auto convert = [&] {
        return bytesOf(resampler.resample(input, 48000, kStereo, AV_SAMPLE_FMT_FLTP));
    };
    const auto usual = convert();
    EXPECT_EQ(usual, plain.convert(input));
    EXPECT_EQ(resampler.setCompensation(5, 0), AVERROR(EINVAL));
    EXPECT_EQ(resampler.setCompensation(200, 4000), swr_set_compensation(plain.context(), 200, 4000));
    EXPECT_GT(convert()[0].size(), usual[0].size());
}

TEST(Resampler, ABufferHasRoomForWhatWentInAndWhatWasHeldBack) {
    const AudioBuffer input = tones(kStereo, AV_SAMPLE_FMT_FLTP, 44100, 1000);
    Resampler resampler;
    PlainResampling plain(input, 48000, kStereo, AV_SAMPLE_FMT_FLTP);
    const auto convert = [&] { return resampler.resample(input, 48000, kStereo, AV_SAMPLE_FMT_FLTP); };
    static_cast<void>(convert());
    static_cast<void>(plain.convert(input));
    // Far more samples than there is room for.
    EXPECT_EQ(resampler.setCompensation(20000, 40000), 0);
    const auto samples = static_cast<double>(1000 + swr_get_delay(plain.context(), 44100));
    EXPECT_EQ(convert().numberOfSamples(), static_cast<unsigned long>(std::ceil(samples * 48000 / 44100)));
}

TEST(Resampler, MemoryOfResultsThatAreGoneServesAgain) {
    const AudioBuffer input = tones(kStereo, AV_SAMPLE_FMT_FLTP, 48000, 1000);
    Resampler resampler;
    const auto convert = [&] { return resampler.resample(input, 48000, kStereo, AV_SAMPLE_FMT_S16); };
    std::set<const std::uint8_t*> places;
    std::optional<AudioBuffer> kept = convert();
    for (int i = 0; i < 20; ++i) {
        AudioBuffer result = convert();
        places.insert(std::as_const(result).getPointersToPlanes()[0]);
        kept = std::move(result);
    }
    EXPECT_EQ(places.size(), 2U);
}

TEST(Resampler, ResultsKeepTheirSamplesWhateverComesAfterThem) {
    const AudioBuffer first = s16(kStereo, {1, 2, 3, 4});
    std::optional<Resampler> resampler(std::in_place);
    AudioBuffer result = resampler->remap(first);
    const AudioBuffer copy = result;
    static_cast<void>(resampler->remap(s16(kStereo, {5, 6, 7, 8})));
    static_cast<void>(resampler->resample(first, 96000, kStereo, AV_SAMPLE_FMT_FLTP));
    resampler.reset();
    EXPECT_EQ(interleaved(copy), (std::vector<Sample>{1, 2, 3, 4}));
    result.resize(1000);
    result.resize(2);
    EXPECT_EQ(interleaved(result), (std::vector<Sample>{1, 2, 3, 4}));
    EXPECT_EQ(interleaved(copy), (std::vector<Sample>{1, 2, 3, 4}));
}

TEST(Resampler, RatesOfZeroAndBelowAreRefused) {
    Resampler resampler;
    const std::string text = "Resampler::resample: The sample rates must be above 0";
    for (const int rate : {0, -1}) {
        EXPECT_THROW_TEXT(std::invalid_argument, text,
                          static_cast<void>(resampler.remap(s16(kStereo, {1, 2}, rate))));
        EXPECT_THROW_TEXT(
            std::invalid_argument, text,
            static_cast<void>(resampler.resample(s16(kStereo, {1, 2}), rate, kStereo, AV_SAMPLE_FMT_S16)));
    }
    EXPECT_THROW_TEXT(std::invalid_argument, text, static_cast<void>(resampler.remap(AudioBuffer())));
}

TEST(Resampler, AnOutputWithoutSizeIsAnError) {
    Resampler resampler;
    const AudioBuffer input = s16(kStereo, {1, 2, 3, 4});
    EXPECT_THROW_TEXT(std::runtime_error,
                      "Could not get buffer size for audio layout 0, sample format 1, samples 2",
                      static_cast<void>(resampler.resample(input, 48000, 0, AV_SAMPLE_FMT_S16)));
    EXPECT_THROW_TEXT(std::runtime_error,
                      "Could not get buffer size for audio layout 3, sample format -1, samples 2",
                      static_cast<void>(resampler.resample(input, 48000, kStereo, AV_SAMPLE_FMT_NONE)));
}

TEST(Resampler, AnInputThatCannotBeConvertedIsAnErrorOfTheOutputsSize) {
    Resampler resampler;
    // -22 as a count.
    const std::string text =
        "Could not get buffer size for audio layout 3, sample format 1, samples 18446744073709551594";
    AudioBuffer input;
    input.setSampleRate(48000);
    for (int i = 0; i < 2; ++i) {
        EXPECT_THROW_TEXT(std::runtime_error, text,
                          static_cast<void>(resampler.resample(input, 48000, kStereo, AV_SAMPLE_FMT_S16)));
    }
    EXPECT_EQ(interleaved(resampler.remap(s16(kStereo, {1, 2}))), (std::vector<Sample>{1, 2}));
}

// FFmpeg's converters take samples from any address.
TEST(Resampler, PlanesOffTheAlignmentAreConvertedLikeOthers) {
    const auto result = [](AVSampleFormat format, unsigned long layout, int rate, std::size_t offset) {
        const AudioBuffer shape(layout, format);
        const std::size_t size = shape.planeSize(1001);
        std::vector<MemBuffer> planes;
        for (std::size_t i = 0; i < shape.numberOfPlanes(); ++i) {
            AVBufferRef* plane = av_buffer_alloc(static_cast<int>(size + offset));
            plane->data += offset;
            plane->size -= static_cast<decltype(plane->size)>(offset);
            for (std::size_t at = 0; at < size; at += sizeof(float)) {
                // Within the range of every format, a number in each.
                const auto value = static_cast<std::uint32_t>(0x3e000000U + 977 * at + i);
                std::memcpy(plane->data + at, &value, std::min(sizeof(value), size - at));
            }
            planes.emplace_back(&plane);
        }
        const AudioBuffer input(layout, format, 48000, 1001, std::move(planes));
        Resampler resampler;
        return interleaved(resampler.resample(input, rate, kStereo, AV_SAMPLE_FMT_S16));
    };
    for (const AVSampleFormat format : {AV_SAMPLE_FMT_S16P, AV_SAMPLE_FMT_S32P, AV_SAMPLE_FMT_FLTP,
                                        AV_SAMPLE_FMT_DBLP, AV_SAMPLE_FMT_S16, AV_SAMPLE_FMT_FLT}) {
        const auto step = static_cast<std::size_t>(av_get_bytes_per_sample(format));
        for (const std::uint64_t layout : {kMono, kStereo, kFive, kSeven}) {
            for (const int rate : {48000, 44100}) {
                EXPECT_EQ(result(format, layout, rate, step), result(format, layout, rate, 0));
            }
        }
    }
}

TEST(Resampler, OnlyTheSamplesThatAreThereAreRead) {
    AudioBuffer input = s16(kStereo, {1, 2, 3, 4, 5, 6, 7, 8});
    AudioBuffer copy = input;
    copy.resize(1);
    Resampler resampler;
    EXPECT_EQ(interleaved(resampler.remap(input)), (std::vector<Sample>{1, 2}));
}

}  // namespace
}  // namespace vidorra::test
