// Compares FormatContext::decodeAudioPacket with the samples and times of whole files.

#include <gmock/gmock.h>

#include <functional>
#include <stdexcept>

#include "demux/sounds.h"
#include "support/log_capture.h"
#include "support/media.h"
#include "vidorra/demux/audio_decoder.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

// The old channel layout fields are deprecated in versions that have both.
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

namespace vidorra {
namespace {

using test::fileOf;
using test::LogCapture;
using test::makePacket;
using test::opened;
using testing::ElementsAre;
using testing::IsEmpty;
using Line = LogCapture::Line;

std::filesystem::path pictureWithSubtitles() {
    return test::mediaFile(
        "subtitled.mkv",
        {"-f",   "lavfi",
         "-i",   "testsrc2=s=64x48:r=25:d=0.4",
         "-f",   "srt",
         "-i",   "data:text/plain;base64,MQowMDowMDowMCwwMDAgLS0+IDAwOjAwOjAwLDMwMApIZWxsbwo=",
         "-f",   "lavfi",
         "-i",   "sine=d=0.4",
         "-map", "0:v",
         "-map", "1:s",
         "-map", "2:a",
         "-c:v", "mpeg4",
         "-c:s", "srt",
         "-c:a", "flac"});
}

// A decoder whose frames a test changes, or replaces by errors.
class AlteringDecoder : public AudioDecoder {
public:
    using Frame = tl::expected<AvPtr<AVFrame>, AvError>;
    using Alter = std::function<void(Frame&)>;

    explicit AlteringDecoder(Alter alter) : mAlter(std::move(alter)) {}

    Frame receiveAvFrame() const override {
        Frame frame = AudioDecoder::receiveAvFrame();
        mAlter(frame);
        return frame;
    }

private:
    Alter mAlter;
};

void replaceDecoder(FormatContext& source, unsigned stream, AlteringDecoder::Alter alter) {
    auto decoder = std::make_unique<AlteringDecoder>(std::move(alter));
    Dictionary options = decoder->prepareCodec(std::nullopt, *source.trackAtIndex(stream)->codecpar);
    decoder->openCodec(options);
    source.getCodecContext(stream) = std::move(decoder);
}

TEST(DecodeAudioPacket, WarnsAboutAPacketOfAVideoStream) {
    const auto path = fileOf("AacWithPictureInMp4");
    FormatContext source = opened(path);
    const LogCapture log;
    const AudioFrame frame = source.decodeAudioPacket(test::packetsOf(source, 0).front());
    EXPECT_TRUE(frame.empty());
    EXPECT_TRUE(frame.timestamp().isNull);
    EXPECT_THAT(log.lines(), ElementsAre(Line{2, "decodeAudioPacket(): " + path.string() +
                                                     ":0 media format \"video\" is not supported"}));
}

TEST(DecodeAudioPacket, WarnsAboutEachPacketOfAVideoStream) {
    FormatContext source = opened(fileOf("AacWithPictureInMp4"));
    const LogCapture log;
    for (const Packet& packet : test::packetsOf(source, 0)) {
        EXPECT_TRUE(source.decodeAudioPacket(packet).empty());
    }
    EXPECT_EQ(log.lines().size(), 15U);
}

TEST(DecodeAudioPacket, SaysNothingAboutAPacketOfSubtitles) {
    FormatContext source = opened(pictureWithSubtitles());
    const LogCapture log(6);
    const std::vector<Packet> packets = test::packetsOf(source, 1);
    ASSERT_EQ(packets.size(), 1U);
    EXPECT_TRUE(source.decodeAudioPacket(packets.front()).empty());
    EXPECT_EQ(source.getCodecContext(1), nullptr);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(DecodeAudioPacket, WarnsWithoutItsNameAboutADecoderOfAnotherKind) {
    const auto path = pictureWithSubtitles();
    FormatContext source = opened(path);
    auto decoder = std::make_unique<DecoderBase>();
    (void)decoder->prepareCodec(std::nullopt, *source.trackAtIndex(1)->codecpar);
    source.getCodecContext(1) = std::move(decoder);
    const LogCapture log;
    EXPECT_TRUE(source.decodeAudioPacket(test::packetsOf(source, 1).front()).empty());
    EXPECT_THAT(log.lines(),
                ElementsAre(Line{2, path.string() + ":1 media format \"subtitle\" is not supported"}));
    source.getCodecContext(1).reset();
}

TEST(DecodeAudioPacket, GivesNothingForAStreamWhoseDecoderIsUnknownAndSaysSoOnce) {
    FormatContext source = opened(fileOf("FlacInFlac"));
    // Reading may put the right one back.
    const std::vector<Packet> packets = test::packetsOf(source, 0);
    source.trackAtIndex(0)->codecpar->codec_id = AV_CODEC_ID_CELT;
    const LogCapture log;
    for (const Packet& packet : packets) {
        EXPECT_TRUE(source.decodeAudioPacket(packet).empty());
    }
    EXPECT_THAT(log.lines(), ElementsAre(Line{1, "Codec celt not found"}));
}

TEST(DecodeAudioPacket, ThrowsForAStreamThatThereIsNot) {
    FormatContext source = opened(fileOf("FlacInFlac"));
    EXPECT_THROW((void)source.decodeAudioPacket(makePacket(10, 1)), std::out_of_range);
    EXPECT_THROW((void)source.decodeAudioPacket(makePacket(10, -1)), std::out_of_range);
}

TEST(DecodeAudioPacket, ThrowsWhenTheSourceIsClosed) {
    FormatContext source;
    EXPECT_THROW((void)source.decodeAudioPacket(makePacket(10)), std::logic_error);
}

TEST(DecodeAudioPacket, GivesNothingForAnEmptyPacketAndLogsIt) {
    const auto path = fileOf("FlacInFlac");
    FormatContext source = opened(path);
    const LogCapture log;
    Packet packet;
    packet.stream_index = 0;
    EXPECT_TRUE(source.decodeAudioPacket(packet).empty());
    EXPECT_THAT(log.lines(), ElementsAre(Line{1, "flac DecoderBase::send: could not encode empty Packet."},
                                         Line{2, "Could not send audio packet from " + path.string() +
                                                     ":0, error: #-22: Invalid argument"}));
}

TEST(DecodeAudioPacket, LogsAPacketThatCannotBeSentAndGoesOn) {
    const auto path = fileOf("SixteenBitsInWav");
    FormatContext source = opened(path);
    std::vector<Packet> packets = test::packetsOf(source, 0);
    const LogCapture log;
    // Half a sample.
    EXPECT_TRUE(source.decodeAudioPacket(makePacket(1)).empty());
    EXPECT_THAT(log.lines(),
                ElementsAre(Line{2, "Could not send audio packet from " + path.string() +
                                        ":0, error: #-1094995529: Invalid data found when processing "
                                        "input"}));
    EXPECT_FALSE(source.decodeAudioPacket(packets.front()).empty());
    EXPECT_EQ(log.lines().size(), 1U);
}

TEST(DecodeAudioPacket, LogsAFrameThatCannotBeDecoded) {
    const auto path = fileOf("SixteenBitsInWav");
    FormatContext source = opened(path);
    replaceDecoder(source, 0, [](auto& frame) { frame = tl::unexpected(AvError::InvalidData); });
    const LogCapture log;
    EXPECT_TRUE(source.decodeAudioPacket(test::packetsOf(source, 0).front()).empty());
    EXPECT_THAT(log.lines(),
                ElementsAre(Line{2, "Could not decode Audio from " + path.string() +
                                        ":0: #-1094995529: Invalid data found when processing input"}));
}

TEST(DecodeAudioPacket, SaysNothingWhenTheDecoderWantsMore) {
    FormatContext source = opened(fileOf("AacInMp4"));
    const std::vector<Packet> packets = test::packetsOf(source, 0);
    const LogCapture log;
    // The samples of the first packet are all skipped.
    EXPECT_TRUE(source.decodeAudioPacket(packets[0]).empty());
    EXPECT_FALSE(source.decodeAudioPacket(packets[1]).empty());
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(DecodeAudioPacket, TakesFramesThroughTheVirtualOperation) {
    FormatContext source = opened(fileOf("SixteenBitsInWav"));
    int calls = 0;
    replaceDecoder(source, 0, [&](auto& frame) {
        ++calls;
        (*frame)->best_effort_timestamp = 777;
    });
    const AudioFrame frame = source.decodeAudioPacket(test::packetsOf(source, 0).front());
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(frame.timestamp().value, 777);
}

TEST(DecodeAudioPacket, ThrowsForAFrameWhoseSamplesHaveNoSize) {
    FormatContext source = opened(fileOf("SixteenBitsInWav"));
    replaceDecoder(source, 0, [](auto& frame) { (*frame)->format = AV_SAMPLE_FMT_NONE; });
    EXPECT_THROW((void)source.decodeAudioPacket(test::packetsOf(source, 0).front()), std::runtime_error);
}

// Keeps only the number of channels of a frame, in all fields that the version has.
template <class Frame>
void forgetMask(Frame& frame, int channels) {
    if constexpr (requires { frame.channel_layout; }) {
        frame.channel_layout = 0;
        frame.channels = channels;
    }
    if constexpr (requires { frame.ch_layout; }) {
        frame.ch_layout = {};
        frame.ch_layout.nb_channels = channels;
    }
}

TEST(DecodeAudioPacket, GivesAFrameWithoutAChannelMaskTheUsualOne) {
    constexpr std::uint64_t kMono = 4;
    FormatContext source = opened(fileOf("SixteenBitsInWav"));
    const Packet packet = test::packetsOf(source, 0).front();
    const AudioFrame plain = opened(fileOf("SixteenBitsInWav")).decodeAudioPacket(packet);
    ASSERT_EQ(plain.audioBuffer().channelLayout(), kMono);
    replaceDecoder(source, 0, [](auto& frame) { forgetMask(**frame, 1); });
    const LogCapture log;
    const AudioFrame frame = source.decodeAudioPacket(packet);
    EXPECT_EQ(frame.audioBuffer().channelLayout(), kMono);
    EXPECT_EQ(frame.audioBuffer().numberOfSamples(), plain.audioBuffer().numberOfSamples());
    const auto* decoder = dynamic_cast<const AudioDecoder*>(source.getCodecContext(0).get());
    ASSERT_TRUE(decoder->send(packet).ok);
    EXPECT_EQ(decoder->receive().value().audioBuffer().channelLayout(), kMono);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(DecodeAudioPacket, GivesNothingWhereChannelsHaveNoUsualMaskAndSaysSoOnceForAStream) {
    const auto path = fileOf("SixteenBitsInWav");
    FormatContext source = opened(path);
    int channels = 10;
    replaceDecoder(source, 0, [&channels](auto& frame) { forgetMask(**frame, channels); });
    const std::vector<Packet> packets = test::packetsOf(source, 0);
    const Line line{2, "Sound of " + path.string() + ":0 gives no frames: 10 channels have no channel mask"};
    {
        const LogCapture log;
        for (int i = 0; i < 3; ++i) {
            EXPECT_TRUE(source.decodeAudioPacket(packets.front()).empty());
        }
        EXPECT_THAT(log.lines(), ElementsAre(line));
    }
    channels = 1;
    EXPECT_EQ(source.decodeAudioPacket(packets.front()).audioBuffer().channelLayout(), 4U)
        << "a later frame may have one again";
    // Another source says so too, also one that was moved from.
    FormatContext moved = std::move(source);
    channels = 10;
    const LogCapture log;
    EXPECT_TRUE(moved.decodeAudioPacket(packets.front()).empty());
    EXPECT_THAT(log.lines(), IsEmpty());
    moved.close();
    moved.open("", true, std::chrono::seconds(1));
    replaceDecoder(moved, 0, [&channels](auto& frame) { forgetMask(**frame, channels); });
    EXPECT_TRUE(moved.decodeAudioPacket(packets.front()).empty());
    EXPECT_THAT(log.lines(), ElementsAre(line));
}

TEST(DecodeAudioPacket, GivesSamplesOfItsOwn) {
    FormatContext source = opened(fileOf("FlacInFlac"));
    const std::vector<Packet> packets = test::packetsOf(source, 0);
    const AudioFrame first = source.decodeAudioPacket(packets[0]);
    const auto size = static_cast<std::size_t>(
        first.audioBuffer().getNeededBufferSize(first.audioBuffer().numberOfSamples()));
    const std::uint8_t* plane = first.audioBuffer().getPointersToPlanes().front();
    const std::vector<std::uint8_t> before(plane, plane + size);
    for (const Packet& packet : packets) {
        (void)source.decodeAudioPacket(packet);
    }
    source.close();
    EXPECT_TRUE(std::equal(before.begin(), before.end(), plane));
}

TEST(DecodeAudioPacket, GivesFramesThatEndUpWithoutSamplesAsFramesThatAreNotEmpty) {
    FormatContext source = opened(fileOf("SixteenBitsInWav"));
    Packet packet = test::packetsOf(source, 0).front();
    // Less than half of a sample at 8000 Hz.
    packet.duration = 62;
    const AudioFrame frame = source.decodeAudioPacket(packet);
    EXPECT_FALSE(frame.empty());
    EXPECT_EQ(frame.audioBuffer().numberOfSamples(), 0U);
}

}  // namespace
}  // namespace vidorra
