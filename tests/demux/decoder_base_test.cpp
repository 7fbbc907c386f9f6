#include "vidorra/demux/decoder_base.h"

#include <gmock/gmock.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "demux/clips.h"
#include "demux/decoders.h"
#include "demux/quiet_ffmpeg.h"
#include "support/log_capture.h"
#include "support/media.h"
#include "support/throw_text.h"
#include "vidorra/core/ffmpeg_error.h"
#include "vidorra/demux/audio_decoder.h"
#include "vidorra/demux/video_decoder.h"

extern "C" {
#include <libavutil/dict.h>
#include <libavutil/mem.h>
}

namespace vidorra {
namespace {

using test::LogCapture;
using test::makePacket;
using test::makeParameters;
using test::Parameters;
using test::prepareAndOpen;
using test::rawVideoParameters;
using testing::ElementsAre;
using testing::IsEmpty;
using Line = LogCapture::Line;

constexpr int kRawSize = 32 * 16 * 3 / 2;

static_assert(std::has_virtual_destructor_v<DecoderBase>);
static_assert(!std::is_copy_constructible_v<DecoderBase> && !std::is_copy_assignable_v<DecoderBase>);
static_assert(std::is_base_of_v<DecoderBase, VideoDecoder> && sizeof(VideoDecoder) == sizeof(DecoderBase));
static_assert(std::is_base_of_v<DecoderBase, AudioDecoder> && sizeof(AudioDecoder) == sizeof(DecoderBase));

// Its decoder has another name than the codec: "mp3float".
Parameters mp3Parameters() {
    Parameters parameters = makeParameters(AVMEDIA_TYPE_AUDIO, AV_CODEC_ID_MP3);
    parameters->sample_rate = 44100;
    return parameters;
}

// FFmpeg opens no decoder of samples without channels.
Parameters soundWithoutChannels() {
    return makeParameters(AVMEDIA_TYPE_AUDIO, AV_CODEC_ID_PCM_S16LE);
}

// H.264 packets with B-frames; the decoder holds some frames back.
struct Reordered {
    FormatContext source = test::opened(test::fileOf("H264InMp4").string());
    const AVCodecParameters& parameters = *source.trackAtIndex(0)->codecpar;
    std::vector<Packet> packets;

    Reordered() {
        for (Packet& packet : test::readAllPackets(source)) {
            if (packet.stream_index == 0) {
                packets.push_back(std::move(packet));
            }
        }
    }
};

TEST(DecoderBase, ReceiveAvFrameIsTheThirdVirtualSlot) {
    auto method = &DecoderBase::receiveAvFrame;
    std::uintptr_t offset = 0;
    static_assert(sizeof(method) >= sizeof(offset));
    std::memcpy(&offset, &method, sizeof(offset));
    // The lowest bit says "virtual" where the instruction set leaves it free.
    EXPECT_EQ(offset & ~std::uintptr_t{1}, 2 * sizeof(void*));
}

TEST(DecoderBase, HasNoContextAtFirst) {
    const DecoderBase decoder;
    EXPECT_EQ(decoder.codecContext(), nullptr);
}

TEST(DecoderBase, GoesSilentlyWithoutAContext) {
    const LogCapture log(6);
    { const DecoderBase decoder; }
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(DecoderBase, HasNoPrefixWithoutAContext) {
    const DecoderBase decoder;
    EXPECT_THROW_TEXT(std::logic_error, "mCodecContext cannot be nullptr", (void)decoder.logPrefix());
}

TEST(DecoderBase, HasNoInfoWithoutAContext) {
    const DecoderBase decoder;
    EXPECT_THROW_TEXT(std::logic_error, "mCodecContext cannot be nullptr", (void)decoder.codecInfo());
}

TEST(DecoderBase, CannotDecodeWithoutAContext) {
    VideoDecoder decoder;
    const std::string text = "mCodecContext cannot be nullptr";
    EXPECT_THROW_TEXT(std::logic_error, text, (void)decoder.send(static_cast<const AVPacket&>(Packet())));
    EXPECT_THROW_TEXT(std::logic_error, text, (void)decoder.receiveAvFrame());
    EXPECT_THROW_TEXT(std::logic_error, text, (void)decoder.receive());
    EXPECT_THROW_TEXT(std::logic_error, text, (void)decoder.drain());
}

TEST(DecoderBase, CannotBeOpenedWithoutAContext) {
    const LogCapture log(6);
    DecoderBase decoder;
    Dictionary options;
    av_dict_set(options.address(), "key", "value", 0);
    EXPECT_THROW_TEXT(std::logic_error, "mCodecContext cannot be nullptr", decoder.openCodec(options));
    EXPECT_EQ(options.getValue("key"), "value");
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(DecoderBasePrepare, MakesAContextOfTheDefaultDecoderWithTheParameters) {
    DecoderBase decoder;
    const Dictionary options =
        decoder.prepareCodec(std::nullopt, *rawVideoParameters(AV_PIX_FMT_YUV420P, 48, 24));
    EXPECT_EQ(options.get(), nullptr);
    ASSERT_NE(decoder.codecContext(), nullptr);
    EXPECT_EQ(decoder.codecContext()->codec, avcodec_find_decoder(AV_CODEC_ID_RAWVIDEO));
    EXPECT_EQ(decoder.codecContext()->pix_fmt, AV_PIX_FMT_YUV420P);
    EXPECT_EQ(decoder.codecContext()->width, 48);
    EXPECT_EQ(decoder.codecContext()->height, 24);
    EXPECT_EQ(avcodec_is_open(const_cast<AVCodecContext*>(decoder.codecContext())), 0);
    prepareAndOpen(decoder, *rawVideoParameters(AV_PIX_FMT_YUV420P));
}

TEST(DecoderBasePrepare, RefusesACodecWithoutADecoder) {
    const LogCapture log(6);
    DecoderBase decoder;
    EXPECT_THROW_TEXT(
        FFmpegError, "Codec none FFmpeg AV_ERROR: #-1128613112: Decoder not found",
        (void)decoder.prepareCodec(std::nullopt, *makeParameters(AVMEDIA_TYPE_VIDEO, AV_CODEC_ID_NONE)));
    EXPECT_EQ(decoder.codecContext(), nullptr);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(DecoderBasePrepare, TheErrorForACodecWithoutADecoderHasItsCode) {
    DecoderBase decoder;
    try {
        (void)decoder.prepareCodec(std::nullopt, *makeParameters(AVMEDIA_TYPE_VIDEO, AV_CODEC_ID_NONE));
        FAIL() << "nothing was thrown";
    } catch (const FFmpegError& error) {
        EXPECT_EQ(error.error(), AvError::DecoderNotFound);
    }
}

TEST(DecoderBasePrepare, TheChosenCodecComesInPlaceOfTheDefaultOne) {
    DecoderBase decoder;
    const AVCodec* const chosen = avcodec_find_decoder_by_name("mp3");
    ASSERT_NE(chosen, nullptr);
    ASSERT_NE(chosen, avcodec_find_decoder(AV_CODEC_ID_MP3));
    Dictionary options =
        decoder.prepareCodec(DecoderBase::ChosenCodec{chosen, Dictionary()}, *mp3Parameters());
    EXPECT_EQ(decoder.codecContext()->codec, chosen);
    decoder.openCodec(options);
    EXPECT_EQ(decoder.logPrefix(), "mp3");
}

TEST(DecoderBasePrepare, AChosenNullIsNotReplacedByTheDefaultDecoder) {
    DecoderBase decoder;
    EXPECT_THROW_TEXT(FFmpegError, "Codec mp3 FFmpeg AV_ERROR: #-1128613112: Decoder not found",
                      (void)decoder.prepareCodec(DecoderBase::ChosenCodec{}, *mp3Parameters()));
}

TEST(DecoderBasePrepare, GivesTheOptionsOfTheChoice) {
    DecoderBase decoder;
    Dictionary wanted;
    av_dict_set(wanted.address(), "threads", "1", 0);
    av_dict_set(wanted.address(), "unknown", "2", 0);
    Dictionary options = decoder.prepareCodec(
        DecoderBase::ChosenCodec{avcodec_find_decoder(AV_CODEC_ID_MP3), wanted}, *mp3Parameters());
    EXPECT_EQ(av_dict_count(options.get()), 2);
    EXPECT_EQ(options.getValue("threads"), "1");
    EXPECT_EQ(options.getValue("unknown"), "2");
    EXPECT_EQ(av_dict_count(wanted.get()), 2) << "a copy";
    decoder.openCodec(options);
}

TEST(DecoderBasePrepare, ASecondCallReplacesTheContext) {
    DecoderBase decoder;
    prepareAndOpen(decoder, *mp3Parameters());
    prepareAndOpen(decoder, *rawVideoParameters(AV_PIX_FMT_YUV420P));
    EXPECT_EQ(decoder.codecContext()->codec_id, AV_CODEC_ID_RAWVIDEO);
    EXPECT_EQ(decoder.logPrefix(), "rawvideo");
    EXPECT_TRUE(decoder.send(makePacket(kRawSize)).ok);
    EXPECT_TRUE(decoder.receiveAvFrame().has_value());
}

TEST(DecoderBaseOpen, TheLogSaysSoBeforeAndAfterUnderTheNameThatIsKnownThen) {
    DecoderBase decoder;
    Dictionary options = decoder.prepareCodec(std::nullopt, *mp3Parameters());
    const LogCapture log(6);
    decoder.openCodec(options);
    EXPECT_THAT(log.lines(), ElementsAre(Line{6, "mp3 opening codec: \"mp3float\""},
                                         Line{6, "mp3float codec \"mp3float\" opened"}));
}

TEST(DecoderBaseOpen, TheLinesAreOfLevelSix) {
    DecoderBase decoder;
    const LogCapture log(5);
    prepareAndOpen(decoder, *mp3Parameters());
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(DecoderBaseOpen, ConsumesTheOptionsThatTheCodecKnows) {
    DecoderBase decoder;
    Dictionary options = decoder.prepareCodec(std::nullopt, *mp3Parameters());
    av_dict_set(options.address(), "thread_type", "0", 0);
    av_dict_set(options.address(), "unknown", "2", 0);
    decoder.openCodec(options);
    EXPECT_EQ(decoder.codecContext()->thread_type, 0);
    EXPECT_EQ(av_dict_count(options.get()), 1);
    EXPECT_EQ(options.getValue("unknown"), "2");
}

TEST(DecoderBaseOpen, AFailureThrowsWithTheNameOfTheCodec) {
    const test::QuietFfmpeg quiet;
    const LogCapture log;
    DecoderBase decoder;
    Dictionary options = decoder.prepareCodec(std::nullopt, *soundWithoutChannels());
    EXPECT_THROW_TEXT(FFmpegError,
                      "Could not open decoder \"pcm_s16le\" FFmpeg AV_ERROR: #-22: Invalid argument",
                      decoder.openCodec(options));
}

TEST(DecoderBaseOpen, AFailureLeavesTheContextWithItsCodecAndTheRestOfTheOptions) {
    const test::QuietFfmpeg quiet;
    const LogCapture log(6);
    DecoderBase decoder;
    Dictionary options = decoder.prepareCodec(std::nullopt, *soundWithoutChannels());
    av_dict_set(options.address(), "unknown", "2", 0);
    EXPECT_THROW(decoder.openCodec(options), FFmpegError);
    ASSERT_NE(decoder.codecContext(), nullptr);
    EXPECT_EQ(decoder.codecContext()->codec, avcodec_find_decoder(AV_CODEC_ID_PCM_S16LE));
    EXPECT_EQ(options.getValue("unknown"), "2");
    EXPECT_THAT(log.lines(), ElementsAre(Line{6, "pcm_s16le opening codec: \"pcm_s16le\""}));
}

TEST(DecoderBaseInfo, ThePrefixIsTheNameOfTheCodecIdUntilTheCodecIsOpen) {
    DecoderBase decoder;
    Dictionary options = decoder.prepareCodec(std::nullopt, *mp3Parameters());
    EXPECT_EQ(decoder.logPrefix(), "mp3");
    decoder.openCodec(options);
    EXPECT_EQ(decoder.logPrefix(), "mp3float");
}

TEST(DecoderBaseInfo, TheInfoIsTheLineOfFfmpegForADecoder) {
    VideoDecoder decoder;
    prepareAndOpen(decoder, *rawVideoParameters(AV_PIX_FMT_YUV420P, 48, 24));
    std::array<char, 255> expected{};
    avcodec_string(expected.data(), expected.size(), const_cast<AVCodecContext*>(decoder.codecContext()), 0);
    EXPECT_EQ(decoder.codecInfo(), expected.data());
    EXPECT_THAT(decoder.codecInfo(), testing::HasSubstr("Video: rawvideo"));
    EXPECT_THAT(decoder.codecInfo(), testing::HasSubstr("yuv420p"));
    EXPECT_THAT(decoder.codecInfo(), testing::HasSubstr("48x24"));
}

TEST(DecoderBaseInfo, TheInfoEndsAfter254Characters) {
    VideoDecoder decoder;
    prepareAndOpen(decoder, *rawVideoParameters(AV_PIX_FMT_YUV420P, 48, 24));
    auto* context = const_cast<AVCodecContext*>(decoder.codecContext());
    // Separates the parts of the line. FFmpeg frees it.
    context->dump_separator = reinterpret_cast<std::uint8_t*>(av_strdup(std::string(300, '-').c_str()));
    std::array<char, 1000> whole{};
    avcodec_string(whole.data(), whole.size(), context, 0);
    ASSERT_GT(std::strlen(whole.data()), 300U);
    EXPECT_EQ(decoder.codecInfo(), std::string(whole.data(), 254));
}

TEST(DecoderBaseSend, AnEmptyPacketIsRefusedAndLogged) {
    DecoderBase decoder;
    prepareAndOpen(decoder, *mp3Parameters());
    const LogCapture log(6);
    EXPECT_EQ(decoder.send(Packet()).error, AvError::InvalidArgument);
    EXPECT_THAT(log.lines(),
                ElementsAre(Line{1, "mp3float DecoderBase::send: could not encode empty Packet."}));
}

TEST(DecoderBaseSend, APacketOfNegativeSizeIsRefusedAndLogged) {
    DecoderBase decoder;
    prepareAndOpen(decoder, *mp3Parameters());
    Packet packet;
    packet.size = -1;
    const LogCapture log(6);
    EXPECT_EQ(decoder.send(packet).error, AvError::InvalidArgument);
    packet.size = 0;
    EXPECT_THAT(log.lines(),
                ElementsAre(Line{1, "mp3float DecoderBase::send: could not encode empty Packet."}));
}

TEST(DecoderBaseSend, AnEmptyPacketDoesNotReachTheDecoder) {
    DecoderBase decoder;
    prepareAndOpen(decoder, *rawVideoParameters(AV_PIX_FMT_YUV420P));
    const LogCapture log;
    EXPECT_FALSE(decoder.send(Packet()).ok);
    // It would have ended the stream.
    EXPECT_TRUE(decoder.send(makePacket(kRawSize)).ok);
    EXPECT_TRUE(decoder.receiveAvFrame().has_value());
}

TEST(DecoderBaseSend, AnEmptyAvPacketBeginsTheEndOfTheStream) {
    DecoderBase decoder;
    prepareAndOpen(decoder, *rawVideoParameters(AV_PIX_FMT_YUV420P));
    const LogCapture log(6);
    const AVPacket empty{};
    EXPECT_TRUE(decoder.send(empty).ok);
    EXPECT_EQ(decoder.send(static_cast<const AVPacket&>(makePacket(kRawSize))).error, AvError::Eof);
    EXPECT_EQ(decoder.receiveAvFrame().error(), AvError::Eof);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(DecoderBaseSend, GivesTheErrorOfFfmpegWithoutALine) {
    DecoderBase decoder;
    (void)decoder.prepareCodec(std::nullopt, *mp3Parameters());
    const LogCapture log(6);
    EXPECT_EQ(decoder.send(makePacket(kRawSize)).error, AvError::InvalidArgument) << "it is not open";
    EXPECT_THAT(log.lines(), IsEmpty());
    Dictionary options;
    decoder.openCodec(options);
}

TEST(DecoderBaseReceive, WantsMoreInputBeforeTheFirstPacketAndAfterTheLastFrame) {
    DecoderBase decoder;
    prepareAndOpen(decoder, *rawVideoParameters(AV_PIX_FMT_YUV420P));
    EXPECT_EQ(decoder.receiveAvFrame().error(), AvError::Again);
    EXPECT_TRUE(decoder.send(makePacket(kRawSize)).ok);
    EXPECT_TRUE(decoder.receiveAvFrame().has_value());
    EXPECT_EQ(decoder.receiveAvFrame().error(), AvError::Again);
}

TEST(DecoderBaseReceive, GivesTheErrorOfADecoderThatIsNotOpen) {
    DecoderBase decoder;
    Dictionary options = decoder.prepareCodec(std::nullopt, *mp3Parameters());
    EXPECT_EQ(decoder.receiveAvFrame().error(), AvError::InvalidArgument);
    decoder.openCodec(options);
}

TEST(DecoderBaseReceive, AFrameStaysValidWithoutItsDecoder) {
    AvPtr<AVFrame> frame = makeAvPtr<AVFrame>();
    {
        DecoderBase decoder;
        prepareAndOpen(decoder, *rawVideoParameters(AV_PIX_FMT_YUV420P));
        ASSERT_TRUE(decoder.send(makePacket(kRawSize, 77)).ok);
        frame = std::move(decoder.receiveAvFrame().value());
    }
    EXPECT_EQ(frame->data[0][0], 77);
    EXPECT_EQ(frame->data[2][frame->linesize[2] * 7 + 15], 77);
}

TEST(DecoderBaseDrain, ThrowsTheRestAwayAndTakesNewData) {
    const Reordered reordered;
    DecoderBase decoder;
    prepareAndOpen(decoder, reordered.parameters);
    ASSERT_TRUE(decoder.send(reordered.packets.at(0)).ok);
    ASSERT_EQ(decoder.receiveAvFrame().error(), AvError::Again) << "kept back for reordering";
    EXPECT_TRUE(decoder.drain().ok);
    EXPECT_EQ(decoder.receiveAvFrame().error(), AvError::Again) << "neither a frame nor the end";
    std::int64_t first = AV_NOPTS_VALUE;
    for (const Packet& packet : reordered.packets) {
        ASSERT_TRUE(decoder.send(packet).ok);
        const tl::expected<AvPtr<AVFrame>, AvError> frame = decoder.receiveAvFrame();
        if (frame && first == AV_NOPTS_VALUE) {
            first = (*frame)->pts;
        }
    }
    EXPECT_EQ(first, reordered.packets.at(0).pts);
}

TEST(DecoderBaseDrain, SucceedsWhenTheEndOfTheStreamHasBegun) {
    DecoderBase decoder;
    prepareAndOpen(decoder, *rawVideoParameters(AV_PIX_FMT_YUV420P));
    ASSERT_TRUE(decoder.send(AVPacket{}).ok);
    ASSERT_EQ(decoder.receiveAvFrame().error(), AvError::Eof);
    EXPECT_TRUE(decoder.drain().ok);
    EXPECT_TRUE(decoder.send(makePacket(kRawSize)).ok);
    EXPECT_TRUE(decoder.receiveAvFrame().has_value());
}

TEST(DecoderBaseDrain, SucceedsTwiceInARow) {
    DecoderBase decoder;
    prepareAndOpen(decoder, *rawVideoParameters(AV_PIX_FMT_YUV420P));
    EXPECT_TRUE(decoder.drain().ok);
    EXPECT_TRUE(decoder.drain().ok);
}

TEST(DecoderBaseDrain, GivesTheErrorOfWhatCannotBeDecodedAndTakesNewData) {
    const FormatContext source = test::opened(
        test::mediaFile("mono.wav", {"-f", "lavfi", "-i", "sine=r=8000:d=0.1", "-c:a", "pcm_s16le"})
            .string());
    DecoderBase decoder;
    prepareAndOpen(decoder, *source.trackAtIndex(0)->codecpar);
    // Fifty samples, and half of one that the decoder keeps until its stream ends.
    const Packet cut = makePacket(101);
    for (int pass = 0; pass < 3; ++pass) {
        ASSERT_TRUE(decoder.send(cut).ok);
        ASSERT_TRUE(decoder.receiveAvFrame().has_value());
        EXPECT_EQ(decoder.drain().error, AvError::InvalidData);
    }
}

TEST(DecoderBaseDrain, GivesTheErrorOfADecoderThatIsNotOpen) {
    DecoderBase decoder;
    Dictionary options = decoder.prepareCodec(std::nullopt, *mp3Parameters());
    EXPECT_EQ(decoder.drain().error, AvError::InvalidArgument);
    decoder.openCodec(options);
}

TEST(DecoderBaseDestructor, SaysNothingWhenItCanDrain) {
    const Reordered reordered;
    const LogCapture log(6);
    {
        DecoderBase decoder;
        prepareAndOpen(decoder, reordered.parameters);
        ASSERT_TRUE(decoder.send(reordered.packets.at(0)).ok);
    }
    EXPECT_THAT(log.lines(),
                ElementsAre(Line{6, "h264 opening codec: \"h264\""}, Line{6, "h264 codec \"h264\" opened"}));
}

TEST(DecoderBaseDestructor, LogsThatItCouldNotDrain) {
    const LogCapture log(6);
    {
        DecoderBase decoder;
        (void)decoder.prepareCodec(std::nullopt, *mp3Parameters());
    }
    EXPECT_THAT(log.lines(), ElementsAre(Line{1, "mp3 Decoder draining is failed: #-22: Invalid argument"}));
}

TEST(AudioDecoder, RefusesTheParametersOfVideo) {
    EXPECT_THROW_TEXT(FFmpegError,
                      "AudioDecoder cannot be used for video FFmpeg AV_ERROR: #-22: Invalid argument",
                      AudioDecoder::validateCodecParams(*rawVideoParameters(AV_PIX_FMT_YUV420P)));
}

TEST(AudioDecoder, AcceptsTheParametersOfAudio) {
    EXPECT_NO_THROW(AudioDecoder::validateCodecParams(*mp3Parameters()));
}

}  // namespace
}  // namespace vidorra
