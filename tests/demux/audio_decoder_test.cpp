#include "vidorra/demux/audio_decoder.h"

#include <gmock/gmock.h>

#include <type_traits>

#include "demux/sounds.h"
#include "ffmpeg/channels.h"
#include "support/throw_text.h"
#include "vidorra/core/ffmpeg_error.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
}

namespace vidorra {
namespace {

static_assert(std::is_base_of_v<DecoderBase, AudioDecoder> && sizeof(AudioDecoder) == sizeof(DecoderBase));
static_assert(
    std::is_same_v<decltype(&AudioDecoder::receiveAvFrame), decltype(&DecoderBase::receiveAvFrame)>);

TEST(AudioDecoder, TakesParametersOfSoundOnly) {
    AVCodecParameters* parameters = avcodec_parameters_alloc();
    parameters->codec_type = AVMEDIA_TYPE_AUDIO;
    EXPECT_NO_THROW(AudioDecoder::validateCodecParams(*parameters));
    for (const AVMediaType type : {AVMEDIA_TYPE_UNKNOWN, AVMEDIA_TYPE_VIDEO, AVMEDIA_TYPE_DATA,
                                   AVMEDIA_TYPE_SUBTITLE, AVMEDIA_TYPE_ATTACHMENT}) {
        parameters->codec_type = type;
        // The text says video, whatever the type.
        EXPECT_THROW_TEXT(FFmpegError,
                          "AudioDecoder cannot be used for video FFmpeg AV_ERROR: #-22: Invalid argument",
                          AudioDecoder::validateCodecParams(*parameters));
    }
    avcodec_parameters_free(&parameters);
}

TEST(AudioDecoder, CarriesTheCodeOfTheError) {
    AVCodecParameters* parameters = avcodec_parameters_alloc();
    parameters->codec_type = AVMEDIA_TYPE_VIDEO;
    try {
        AudioDecoder::validateCodecParams(*parameters);
        ADD_FAILURE();
    } catch (const FFmpegError& error) {
        EXPECT_EQ(error.error(), AvError::InvalidArgument);
    }
    avcodec_parameters_free(&parameters);
}

TEST(AudioDecoder, ReceivesTheFrameOfAPacket) {
    FormatContext source = test::opened(test::fileOf("TwentyFourBitsInWav"));
    const auto* decoder = dynamic_cast<const AudioDecoder*>(source.getCodecContext(0).get());
    ASSERT_NE(decoder, nullptr);
    for (const Packet& packet : test::packetsOf(source, 0)) {
        ASSERT_TRUE(decoder->send(packet).ok);
        const auto frame = decoder->receive();
        ASSERT_TRUE(frame.has_value());
        EXPECT_EQ(frame->timestamp().value, packet.pts);
        EXPECT_EQ(frame->timestamp().timebase, Timebase());
        EXPECT_FALSE(frame->timestamp().isNull);
        EXPECT_EQ(frame->flags(), Frame::NoFlags);
        EXPECT_EQ(frame->audioBuffer().sampleFormat(), AV_SAMPLE_FMT_S32);
        // 24 bits and two channels.
        EXPECT_EQ(frame->audioBuffer().numberOfSamples(), static_cast<unsigned long>(packet.size / 6));
    }
}

TEST(AudioDecoder, PassesErrorsOfReceivingOn) {
    FormatContext source = test::opened(test::fileOf("AacInMp4"));
    const auto* decoder = dynamic_cast<const AudioDecoder*>(source.getCodecContext(0).get());
    ASSERT_NE(decoder, nullptr);
    const auto none = decoder->receive();
    ASSERT_FALSE(none.has_value());
    EXPECT_EQ(none.error(), AvError::Again);
    ASSERT_TRUE(decoder->send(AVPacket{}).ok);
    const auto end = decoder->receive();
    ASSERT_FALSE(end.has_value());
    EXPECT_EQ(end.error(), AvError::Eof);
}

TEST(AudioDecoder, ReceivesThroughTheVirtualOperation) {
    struct Failing : AudioDecoder {
        tl::expected<AvPtr<AVFrame>, AvError> receiveAvFrame() const override {
            return tl::unexpected(AvError::Unknown);
        }
    };
    const auto frame = Failing().receive();
    ASSERT_FALSE(frame.has_value());
    EXPECT_EQ(frame.error(), AvError::Unknown);
}

TEST(AudioDecoder, GivesAFrameItsBestEffortTime) {
    const auto frame = makeAvPtr<AVFrame>();
    frame->format = AV_SAMPLE_FMT_S16;
    frame->sample_rate = 44100;
    frame->pts = 1;
    frame->pkt_dts = 2;
    frame->best_effort_timestamp = -3;
    ffmpeg_ext::setChannelMask(*frame, AV_CH_LAYOUT_STEREO);
    const AudioFrame audio = AudioDecoder::toAudioFrame(*frame);
    EXPECT_EQ(audio.debugDescription(), "audio frame 0 samples 44100Hz stereo s16, pts -0.000003");
}

}  // namespace
}  // namespace vidorra
