#include "vidorra/encode/encoder_base.h"

#include <gmock/gmock.h>

#include <memory>
#include <type_traits>

#include "encode/plain_encoder.h"
#include "support/log_capture.h"
#include "support/throw_text.h"
#include "vidorra/core/bad_cast.h"
#include "vidorra/core/enum_text.h"
#include "vidorra/core/ffmpeg_error.h"

extern "C" {
#include <libavutil/log.h>
#include <libavutil/opt.h>
}

namespace vidorra {
namespace {

using test::configFor;
using test::LogCapture;
using test::numberedFrame;
using test::PlainEncoder;
using testing::ElementsAre;
using Line = LogCapture::Line;

static_assert(!std::is_polymorphic_v<EncoderBase>);
static_assert(!std::is_copy_constructible_v<EncoderBase> && !std::is_move_constructible_v<EncoderBase>);

// FFmpeg would explain on stderr what tests expect it to refuse.
class Encoder : public testing::Test {
protected:
    Encoder() { av_log_set_level(AV_LOG_QUIET); }
    ~Encoder() override { av_log_set_level(AV_LOG_INFO); }
};

using EncoderChoice = Encoder;

TEST_F(EncoderChoice, ByCodecIdIsThatOfFFmpeg) {
    void* position = nullptr;
    int found = 0;
    while (const AVCodec* codec = av_codec_iterate(&position)) {
        if (av_codec_is_encoder(codec) != 0) {
            EXPECT_EQ(EncoderBase::encoderById(codec->id), avcodec_find_encoder(codec->id));
            objstream::object config;
            config["codec_id"] = std::string(avcodec_get_name(codec->id));
            EXPECT_EQ(EncoderBase::encoderFromParams(config)->id, codec->id) << codec->name;
            EXPECT_EQ(EncoderBase::encoderFromParams(configFor(codec->name)), codec);
            ++found;
        }
    }
    EXPECT_GT(found, 50);
}

TEST_F(EncoderChoice, OfACodecWithoutEncoderFails) {
    EXPECT_THROW_TEXT(std::runtime_error, "Could not find encoder \"none\"",
                      (void)EncoderBase::encoderById(AV_CODEC_ID_NONE));
    EXPECT_THROW_TEXT(std::runtime_error, "Could not find encoder \"vc1\"",
                      (void)EncoderBase::encoderById(AV_CODEC_ID_VC1));
}

TEST_F(EncoderChoice, ByCodecIdWinsOverCodec) {
    objstream::object config = configFor("no such encoder");
    config["codec_id"] = "mpeg4";
    EXPECT_STREQ(EncoderBase::encoderFromParams(config)->name, "mpeg4");
    PlainEncoder encoder(config);
    encoder.openCodec();
    EXPECT_NE(avcodec_is_open(encoder.context()), 0);
}

TEST_F(EncoderChoice, NeedsOneOfTwoKeys) {
    objstream::object config;
    config["width"] = 32;
    const std::string text = "\"codec\" param not found in encoder's config";
    EXPECT_THROW_TEXT(std::runtime_error, text, (void)EncoderBase::encoderFromParams(config));
    EXPECT_THROW_TEXT(std::runtime_error, text, (void)EncoderBase::encoderFromParams(objstream::object()));
    EXPECT_THROW_TEXT(std::runtime_error, text, PlainEncoder{config});
}

TEST_F(EncoderChoice, ByACodecIdThatIsNoScalarIsNone) {
    objstream::object map = configFor("mpeg4");
    map["codec_id"]["mpeg4"] = 1;
    EXPECT_THROW_TEXT(std::runtime_error, "Could not find encoder \"none\"",
                      (void)EncoderBase::encoderFromParams(map));
    objstream::object nothing = configFor("mpeg4");
    static_cast<void>(nothing["codec_id"]);
    EXPECT_THROW_TEXT(std::runtime_error, "Could not find encoder \"none\"",
                      (void)EncoderBase::encoderFromParams(nothing));
}

TEST_F(EncoderChoice, ByAnUnknownCodecIdIsABadCast) {
    objstream::object config;
    config["codec_id"] = "no such codec";
    // Extraction ends at the first blank.
    EXPECT_THROW_TEXT(BadCast, "Unknown codec id no", (void)EncoderBase::encoderFromParams(config));
    config["codec_id"] = 27;
    EXPECT_THROW_TEXT(BadCast, "Unknown codec id 27", (void)EncoderBase::encoderFromParams(config));
}

TEST_F(EncoderChoice, ByAnUnknownNameFails) {
    EXPECT_THROW_TEXT(std::runtime_error, "Could not find encoder \"no such encoder\"",
                      (void)EncoderBase::encoderFromParams(configFor("no such encoder")));
    objstream::object number;
    number["codec"] = 5;
    EXPECT_THROW_TEXT(std::runtime_error, "Could not find encoder \"5\"",
                      (void)EncoderBase::encoderFromParams(number));
}

TEST_F(EncoderChoice, ByANameThatIsNoScalarIsABadCast) {
    objstream::object config;
    config["codec"]["name"] = "mpeg4";
    EXPECT_THROW((void)EncoderBase::encoderFromParams(config), std::bad_cast);
}

TEST_F(Encoder, IsAllocatedAndNotOpenAtFirst) {
    const PlainEncoder encoder(configFor("mpeg4"));
    ASSERT_NE(encoder.codecContext(), nullptr);
    EXPECT_STREQ(encoder.codecContext()->codec->name, "mpeg4");
    EXPECT_EQ(avcodec_is_open(const_cast<AVCodecContext*>(encoder.codecContext())), 0);
    EXPECT_EQ(encoder.logName(), "plain-mpeg4: ");
}

TEST_F(Encoder, SetsOptionsOfTheContextAndOfTheCodec) {
    PlainEncoder encoder(configFor("png"));
    encoder.setOption("b", "12345");
    encoder.setOption("pred", "avg");
    EXPECT_EQ(encoder.context()->bit_rate, 12345);
    std::int64_t value = -1;
    EXPECT_EQ(av_opt_get_int(encoder.context()->priv_data, "pred", 0, &value), 0);
    EXPECT_EQ(value, 3);
}

TEST_F(Encoder, RefusesOptionsWithTheirNamesAndValues) {
    PlainEncoder encoder(configFor("mpeg4"));
    EXPECT_THROW_TEXT(FFmpegError,
                      "param no-such not found. No matching option exists. FFmpeg AV_ERROR: " +
                          AvError::OptionNotFound.toString(),
                      encoder.setOption("no-such", "1"));
    EXPECT_THROW_TEXT(
        FFmpegError,
        "value \"99999\" is out of range for qmax param FFmpeg AV_ERROR: " + AvError::OutOfRange.toString(),
        encoder.setOption("qmax", "99999"));
    EXPECT_THROW_TEXT(
        FFmpegError,
        "value \"x\" is invalid for qmax param FFmpeg AV_ERROR: " + AvError::InvalidArgument.toString(),
        encoder.setOption("qmax", "x"));
    try {
        encoder.setOption("no-such", "1");
        ADD_FAILURE() << "nothing was thrown";
    } catch (const FFmpegError& error) {
        EXPECT_EQ(error.error(), AvError::OptionNotFound);
    }
}

TEST_F(Encoder, OpensAndLogsThat) {
    PlainEncoder encoder(configFor("mpeg4"));
    const LogCapture log(6);
    encoder.openCodec();
    EXPECT_NE(avcodec_is_open(encoder.context()), 0);
    EXPECT_THAT(log.lines(), ElementsAre(Line{6, "plain-mpeg4: opening codec: \"mpeg4\""},
                                         Line{6, "plain-mpeg4: codec \"mpeg4\" opened"}));
}

TEST_F(Encoder, CanBeOpenedAfterAFailure) {
    PlainEncoder encoder(configFor("mpeg4"));
    const AVCodec* codec = encoder.context()->codec;
    encoder.context()->width = 0;
    const LogCapture log(6);
    EXPECT_THROW_TEXT(
        FFmpegError,
        "Could not open encoder \"mpeg4\" FFmpeg AV_ERROR: " + AvError::InvalidArgument.toString(),
        encoder.openCodec());
    EXPECT_THAT(log.texts(), ElementsAre("plain-mpeg4: opening codec: \"mpeg4\""));
    EXPECT_EQ(encoder.context()->codec, codec);
    test::fillContext(*encoder.context());
    encoder.openCodec();
    EXPECT_NE(avcodec_is_open(encoder.context()), 0);
}

TEST_F(Encoder, GivesTheParametersOfItsStream) {
    PlainEncoder encoder(configFor("mpeg4"));
    encoder.setOption("b", "12345");
    encoder.openCodec();
    const std::unique_ptr<AVCodecParameters, void (*)(AVCodecParameters*)> parameters(
        avcodec_parameters_alloc(), [](AVCodecParameters* freed) { avcodec_parameters_free(&freed); });
    EXPECT_TRUE(encoder.fillCodecParameters(*parameters).ok);
    EXPECT_EQ(parameters->codec_id, AV_CODEC_ID_MPEG4);
    EXPECT_EQ(parameters->width, test::kWidth);
    EXPECT_EQ(parameters->height, test::kHeight);
    EXPECT_EQ(parameters->format, AV_PIX_FMT_YUV420P);
    EXPECT_EQ(parameters->bit_rate, 12345);
}

// The packets of FFmpeg's own calls.
std::vector<Packet> encodePlainly(const char* name, int frames) {
    const AVCodec* codec = avcodec_find_encoder_by_name(name);
    const std::unique_ptr<AVCodecContext, void (*)(AVCodecContext*)> context(
        avcodec_alloc_context3(codec), [](AVCodecContext* freed) { avcodec_free_context(&freed); });
    test::fillContext(*context);
    context->max_b_frames = 2;
    std::vector<Packet> packets;
    EXPECT_EQ(avcodec_open2(context.get(), codec, nullptr), 0);
    for (int i = 0; i <= frames; ++i) {
        const AvPtr<AVFrame> frame = numberedFrame(i);
        EXPECT_EQ(avcodec_send_frame(context.get(), i < frames ? frame.get() : nullptr), 0);
        const AvPtr<AVPacket> packet = makeAvPtr<AVPacket>();
        while (avcodec_receive_packet(context.get(), packet.get()) >= 0) {
            packets.emplace_back(packet);
            av_packet_unref(packet.get());
        }
    }
    return packets;
}

TEST_F(Encoder, GivesThePacketsThatFFmpegMakes) {
    const std::vector<Packet> expected = encodePlainly("mpeg4", 10);
    PlainEncoder encoder(configFor("mpeg4"));
    encoder.setOption("bf", "2");
    encoder.openCodec();
    std::vector<Packet> packets;
    const auto receive = [&](AvError end) {
        for (;;) {
            tl::expected<Packet, AvError> packet = encoder.receivePacket();
            if (!packet) {
                EXPECT_EQ(packet.error(), end);
                return;
            }
            packets.push_back(std::move(*packet));
        }
    };
    for (int i = 0; i < 10; ++i) {
        EXPECT_TRUE(encoder.send(*numberedFrame(i)).ok);
        receive(AvError::Again);
    }
    EXPECT_TRUE(encoder.sendEndOfStream().ok);
    receive(AvError::Eof);
    receive(AvError::Eof);

    ASSERT_EQ(packets.size(), 10U);
    ASSERT_EQ(expected.size(), 10U);
    for (std::size_t i = 0; i < packets.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(packets[i].pts, expected[i].pts);
        EXPECT_EQ(packets[i].dts, expected[i].dts);
        EXPECT_EQ(packets[i].flags, expected[i].flags);
        ASSERT_EQ(packets[i].size, expected[i].size);
        EXPECT_EQ(std::memcmp(packets[i].data, expected[i].data, static_cast<std::size_t>(packets[i].size)),
                  0);
        EXPECT_FALSE(packets[i].isNoSignal());
    }
    EXPECT_TRUE(packets[0].isKeyFrame());
}

TEST_F(Encoder, MarksThePacketsOfAnOutage) {
    PlainEncoder encoder(configFor("rawvideo"));
    encoder.openCodec();
    std::string marks;
    for (int i = 0; i < 6; ++i) {
        EXPECT_TRUE(encoder.send(*numberedFrame(i), i == 2 || i == 3).ok);
        const auto packet = encoder.receivePacket();
        ASSERT_TRUE(packet);
        EXPECT_EQ(packet->pts, i);
        marks += packet->isNoSignal() ? "x" : ".";
    }
    EXPECT_EQ(marks, "..xx..");
}

// Puts the mark of each available packet at the position of its time.
void receiveMarks(PlainEncoder& encoder, std::string& marks) {
    while (const auto packet = encoder.receivePacket()) {
        marks.at(static_cast<std::size_t>(packet->pts)) = packet->isNoSignal() ? 'x' : '.';
    }
}

// Packets that the encoder held back are marked by the ledger's state when they come out.
TEST_F(Encoder, MarksDelayedPacketsByTheLatestChange) {
    PlainEncoder encoder(configFor("mpeg4"));
    encoder.setOption("bf", "2");
    encoder.openCodec();
    std::string marks = "????";
    EXPECT_TRUE(encoder.send(*numberedFrame(0), false).ok);
    receiveMarks(encoder, marks);
    EXPECT_TRUE(encoder.send(*numberedFrame(1), true).ok);
    receiveMarks(encoder, marks);
    EXPECT_TRUE(encoder.send(*numberedFrame(2), true).ok);
    EXPECT_EQ(marks, "????") << "two frames are kept back";
    EXPECT_TRUE(encoder.send(*numberedFrame(3), false).ok);
    receiveMarks(encoder, marks);
    EXPECT_TRUE(encoder.sendEndOfStream().ok);
    receiveMarks(encoder, marks);
    // The first frame too: after an outage every time before its end counts.
    EXPECT_EQ(marks, "xxx.");
}

TEST_F(Encoder, DrainsWhatIsLeft) {
    PlainEncoder encoder(configFor("mpeg4"));
    encoder.setOption("bf", "2");
    encoder.openCodec();
    std::string marks = ".....";
    for (int i = 0; i < 5; ++i) {
        EXPECT_TRUE(encoder.send(*numberedFrame(i)).ok);
        receiveMarks(encoder, marks);
    }
    EXPECT_TRUE(encoder.drain());
    const auto packet = encoder.receivePacket();
    ASSERT_FALSE(packet);
    EXPECT_EQ(packet.error(), AvError::Eof);
    EXPECT_TRUE(encoder.drain()) << "a stream that has ended is drained";
}

// FFmpeg does not end the stream while packets are waiting to be received.
TEST_F(Encoder, IsDrainedByASecondCallWhereNothingWasReceived) {
    PlainEncoder encoder(configFor("rawvideo"));
    encoder.openCodec();
    EXPECT_TRUE(encoder.send(*numberedFrame(0)).ok);
    EXPECT_TRUE(encoder.send(*numberedFrame(1)).ok);
    EXPECT_EQ(encoder.send(*numberedFrame(2)).error, AvError::Again);
    EXPECT_EQ(encoder.sendEndOfStream().error, AvError::Again);
    EXPECT_FALSE(encoder.drain());
    EXPECT_FALSE(encoder.receivePacket());
    EXPECT_TRUE(encoder.drain());
}

TEST_F(Encoder, DrainsAfterTheEndOfTheStream) {
    PlainEncoder encoder(configFor("mpeg4"));
    encoder.openCodec();
    EXPECT_TRUE(encoder.send(*numberedFrame(0)).ok);
    EXPECT_TRUE(encoder.sendEndOfStream().ok);
    EXPECT_EQ(encoder.sendEndOfStream().error, AvError::Eof);
    EXPECT_TRUE(encoder.drain());
}

TEST_F(Encoder, ThatIsNotOpenGivesErrors) {
    PlainEncoder encoder(configFor("mpeg4"));
    const auto packet = encoder.receivePacket();
    ASSERT_FALSE(packet);
    EXPECT_EQ(packet.error(), AvError::InvalidArgument);
    EXPECT_EQ(encoder.sendEndOfStream().error, AvError::InvalidArgument);
    EXPECT_FALSE(encoder.drain());
}

}  // namespace
}  // namespace vidorra
