// How decodeAudioPacket fits a frame to the duration of its packet.

#include <gmock/gmock.h>

#include <algorithm>
#include <limits>

#include "demux/plain_decoding.h"
#include "demux/sounds.h"
#include "support/media.h"
#include "vidorra/demux/audio_decoder.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace vidorra {
namespace {

using test::kNoTime;
using testing::ElementsAre;

// Uncompressed sound: a packet of any length gives its samples at once. Sample k of a packet is k.
struct Mono {
    FormatContext source;

    explicit Mono(int rate) {
        source = test::opened(test::mediaFile(
            "mono.wav", test::joined({test::signal(rate, "mono", 1, 0.1), {"-c:a", "pcm_s16le"}})));
    }

    AudioFrame decode(int samples, std::int64_t time, std::int64_t duration) {
        Packet packet = test::makePacket(2 * samples);
        for (int i = 0; i < samples; ++i) {
            packet.data[2 * i] = static_cast<std::uint8_t>(i);
            packet.data[2 * i + 1] = static_cast<std::uint8_t>(i >> 8);
        }
        packet.pts = packet.dts = time;
        packet.duration = duration;
        return source.decodeAudioPacket(packet);
    }
};

TEST(DurationRepair, CutsSurplusSamplesAtTheEnd) {
    const AudioFrame frame = Mono(48000).decode(1024, 5000000, 20000);
    EXPECT_EQ(frame.audioBuffer().numberOfSamples(), 960U);
    EXPECT_EQ(frame.timestamp().value, 5000000);
    EXPECT_THAT(frame.audioBuffer().getSample_s16(0), ElementsAre(0));
    EXPECT_THAT(frame.audioBuffer().getSample_s16(959), ElementsAre(959));
    EXPECT_EQ(frame.audioBuffer().duration().value, 20000);
}

TEST(DurationRepair, StartsAFrameThatLacksSamplesLater) {
    const AudioFrame frame = Mono(48000).decode(480, 5000000, 20000);
    EXPECT_EQ(frame.audioBuffer().numberOfSamples(), 480U);
    EXPECT_EQ(frame.timestamp().value, 5010000);
    EXPECT_THAT(frame.audioBuffer().getSample_s16(0), ElementsAre(0));
    EXPECT_THAT(frame.audioBuffer().getSample_s16(479), ElementsAre(479));
}

TEST(DurationRepair, LeavesAFrameThatFits) {
    const AudioFrame frame = Mono(48000).decode(960, 5000000, 20000);
    EXPECT_EQ(frame.audioBuffer().numberOfSamples(), 960U);
    EXPECT_EQ(frame.timestamp().value, 5000000);
}

TEST(DurationRepair, LeavesAFrameOfAPacketWithoutADuration) {
    for (const std::int64_t duration : {std::int64_t{0}, std::int64_t{-1}, std::int64_t{-20000}}) {
        const AudioFrame frame = Mono(48000).decode(1024, 5000000, duration);
        EXPECT_EQ(frame.audioBuffer().numberOfSamples(), 1024U) << duration;
        EXPECT_EQ(frame.timestamp().value, 5000000) << duration;
    }
}

TEST(DurationRepair, RoundsToTheNearestSampleAndTheNearestMicrosecond) {
    struct Row {
        int rate;
        int samples;
        std::int64_t duration;
        unsigned long expectedSamples;
        std::int64_t expectedTime;
    };
    const Row rows[] = {
        // 1024 samples are 23219.95 us; 23220 us are 1024.002 samples.
        {.rate = 44100, .samples = 1024, .duration = 23220, .expectedSamples = 1024, .expectedTime = 1000},
        // 21333 us are 1023.98 samples, 21000 us are 1008.
        {.rate = 48000, .samples = 1024, .duration = 21333, .expectedSamples = 1024, .expectedTime = 1000},
        {.rate = 48000, .samples = 1024, .duration = 21000, .expectedSamples = 1008, .expectedTime = 1000},
        // 26122 us are 1151.98 samples; 1105 are missing, 25056.69 us.
        {.rate = 44100, .samples = 47, .duration = 26122, .expectedSamples = 47, .expectedTime = 26057},
        // One sample is missing: 22.68 us, 20.83 us, 31.25 us, 125 us.
        {.rate = 44100, .samples = 1023, .duration = 23220, .expectedSamples = 1023, .expectedTime = 1023},
        {.rate = 48000, .samples = 959, .duration = 20000, .expectedSamples = 959, .expectedTime = 1021},
        {.rate = 32000, .samples = 639, .duration = 20000, .expectedSamples = 639, .expectedTime = 1031},
        {.rate = 8000, .samples = 159, .duration = 20000, .expectedSamples = 159, .expectedTime = 1125},
        // 62.5 us are half a sample at 8000 Hz: 63 us make one, 62 us none.
        {.rate = 8000, .samples = 3, .duration = 63, .expectedSamples = 1, .expectedTime = 1000},
        {.rate = 8000, .samples = 3, .duration = 62, .expectedSamples = 0, .expectedTime = 1000},
        // 187.5 us are one and a half: 188 us make two.
        {.rate = 8000, .samples = 1, .duration = 188, .expectedSamples = 1, .expectedTime = 1125},
        {.rate = 8000, .samples = 1, .duration = 187, .expectedSamples = 1, .expectedTime = 1000},
        // 125 us are 0.5 samples at 4000 Hz, and a half goes up.
        {.rate = 4000, .samples = 2, .duration = 125, .expectedSamples = 1, .expectedTime = 1000},
        {.rate = 96000, .samples = 10, .duration = 1000000, .expectedSamples = 10, .expectedTime = 1000896},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::Message()
                     << row.samples << " samples at " << row.rate << " Hz, " << row.duration << " us");
        const AudioFrame frame = Mono(row.rate).decode(row.samples, 1000, row.duration);
        EXPECT_EQ(frame.audioBuffer().numberOfSamples(), row.expectedSamples);
        EXPECT_EQ(frame.timestamp().value, row.expectedTime);
        const test::Repaired plain = test::repaired(row.samples, 1000, row.duration, row.rate);
        EXPECT_EQ(plain.samples, static_cast<std::int64_t>(row.expectedSamples));
        EXPECT_EQ(plain.time, row.expectedTime);
    }
}

TEST(DurationRepair, LeavesATimeThatIsNotSet) {
    const AudioFrame frame = Mono(48000).decode(480, kNoTime, 20000);
    EXPECT_EQ(frame.audioBuffer().numberOfSamples(), 480U);
    EXPECT_EQ(frame.timestamp().value, kNoTime);
    EXPECT_FALSE(frame.timestamp().isNull);
}

TEST(DurationRepair, ShiftsNegativeTimes) {
    EXPECT_EQ(Mono(48000).decode(480, -6500, 20000).timestamp().value, 3500);
    EXPECT_EQ(Mono(48000).decode(480, -20000, 20000).timestamp().value, -10000);
}

TEST(DurationRepair, LetsTheTimeWrap) {
    constexpr std::int64_t kLast = std::numeric_limits<std::int64_t>::max();
    EXPECT_EQ(Mono(48000).decode(480, kLast, 20000).timestamp().value,
              std::numeric_limits<std::int64_t>::min() + 9999);
}

TEST(DurationRepair, TakesTheLongestDuration) {
    constexpr std::int64_t kLongest = std::numeric_limits<std::int64_t>::max();
    const AudioFrame frame = Mono(8000).decode(480, 0, kLongest);
    const test::Repaired plain = test::repaired(480, 0, kLongest, 8000);
    EXPECT_EQ(frame.audioBuffer().numberOfSamples(), 480U);
    EXPECT_EQ(frame.timestamp().value, plain.time);
}

TEST(DurationRepair, CutsEveryPlane) {
    FormatContext source = test::opened(test::fileOf("AlacInM4a"));
    const std::vector<Packet> packets = test::packetsOf(source, 0);
    const AudioFrame whole = source.decodeAudioPacket(packets[0]);
    Packet shortened = packets[0];
    // 441 samples.
    shortened.duration = 10000;
    const AudioFrame cut = source.decodeAudioPacket(shortened);
    EXPECT_EQ(cut.audioBuffer().numberOfSamples(), 441U);
    ASSERT_EQ(cut.audioBuffer().getPointersToPlanes().size(), 2U);
    for (const std::size_t plane : {0U, 1U}) {
        const std::uint8_t* expected = whole.audioBuffer().getPointersToPlanes()[plane];
        EXPECT_TRUE(std::equal(expected, expected + 882, cut.audioBuffer().getPointersToPlanes()[plane]));
    }
}

TEST(DurationRepair, UsesTheRateOfTheFrame) {
    struct HalfRate : AudioDecoder {
        tl::expected<AvPtr<AVFrame>, AvError> receiveAvFrame() const override {
            auto frame = AudioDecoder::receiveAvFrame();
            (*frame)->sample_rate = 24000;
            return frame;
        }
    };
    Mono mono(48000);
    auto decoder = std::make_unique<HalfRate>();
    Dictionary options = decoder->prepareCodec(std::nullopt, *mono.source.trackAtIndex(0)->codecpar);
    decoder->openCodec(options);
    mono.source.getCodecContext(0) = std::move(decoder);
    const AudioFrame frame = mono.decode(1024, 0, 20000);
    EXPECT_EQ(frame.audioBuffer().numberOfSamples(), 480U);
    EXPECT_EQ(frame.audioBuffer().sampleRate(), 24000);
}

TEST(DurationRepair, LeavesAFrameWithoutARate) {
    struct NoRate : AudioDecoder {
        tl::expected<AvPtr<AVFrame>, AvError> receiveAvFrame() const override {
            auto frame = AudioDecoder::receiveAvFrame();
            (*frame)->sample_rate = 0;
            return frame;
        }
    };
    Mono mono(48000);
    auto decoder = std::make_unique<NoRate>();
    Dictionary options = decoder->prepareCodec(std::nullopt, *mono.source.trackAtIndex(0)->codecpar);
    decoder->openCodec(options);
    mono.source.getCodecContext(0) = std::move(decoder);
    const AudioFrame frame = mono.decode(1024, 7, 20000);
    EXPECT_EQ(frame.audioBuffer().numberOfSamples(), 1024U);
    EXPECT_EQ(frame.timestamp().value, 7);
}

TEST(DurationRepair, IsNotDoneByTheDecoderItself) {
    Mono mono(48000);
    const auto* decoder = dynamic_cast<const AudioDecoder*>(mono.source.getCodecContext(0).get());
    ASSERT_NE(decoder, nullptr);
    Packet packet = test::makePacket(2048);
    packet.pts = packet.dts = 99;
    packet.duration = 20000;
    ASSERT_TRUE(decoder->send(packet).ok);
    const auto surplus = decoder->receive();
    ASSERT_TRUE(surplus.has_value());
    EXPECT_EQ(surplus->audioBuffer().numberOfSamples(), 1024U);
    EXPECT_EQ(surplus->timestamp().value, 99);
    packet = test::makePacket(960);
    packet.pts = packet.dts = 20099;
    packet.duration = 20000;
    ASSERT_TRUE(decoder->send(packet).ok);
    const auto missing = decoder->receive();
    ASSERT_TRUE(missing.has_value());
    EXPECT_EQ(missing->audioBuffer().numberOfSamples(), 480U);
    EXPECT_EQ(missing->timestamp().value, 20099);
}

TEST(DurationRepair, MakesSoundOfAFileThatBeginsWithSkippedSamplesStartOnTime) {
    FormatContext source = test::opened(test::fileOf("Mp3InMp3"));
    const std::vector<Packet> packets = test::packetsOf(source, 0);
    std::vector<AudioFrame> frames;
    for (const Packet& packet : packets) {
        AudioFrame frame = source.decodeAudioPacket(packet);
        if (!frame.empty()) {
            frames.push_back(std::move(frame));
        }
    }
    ASSERT_GE(frames.size(), 3U);
    ASSERT_LT(frames[0].audioBuffer().numberOfSamples(), 1152U);
    // The end of the first frame is the start of the second, but for rounding.
    const std::int64_t end = (frames[0].timestamp() + frames[0].audioBuffer().duration()).value;
    EXPECT_NEAR(static_cast<double>(end), static_cast<double>(frames[1].timestamp().value), 2);
}

}  // namespace
}  // namespace vidorra
