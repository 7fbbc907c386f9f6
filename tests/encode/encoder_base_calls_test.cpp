// How encoders call FFmpeg, and how they handle results that FFmpeg rarely returns.
#include <gmock/gmock.h>

#include <memory>

#include "encode/encoder_calls.h"
#include "encode/plain_encoder.h"
#include "support/log_capture.h"
#include "support/throw_text.h"
#include "vidorra/core/ffmpeg_error.h"

namespace vidorra {
namespace {

using test::configFor;
using test::encoderCalls;
using test::LogCapture;
using test::PlainEncoder;
using testing::IsEmpty;

TEST(EncoderCalls, WithoutAContextFailConstruction) {
    const auto alloc = encoderCalls().avcodecAllocContext3.replace([](const void*) { return nullptr; });
    EXPECT_THROW_TEXT(std::runtime_error, "Could not alloc AVCodecContext for plain \"mpeg4\"",
                      PlainEncoder(configFor("mpeg4")));
}

TEST(EncoderCalls, SearchTheCodecForOptionsToo) {
    PlainEncoder encoder(configFor("mpeg4"));
    int calls = 0;
    const auto set =
        encoderCalls().avOptSet.replace([&](void* object, const char* name, const char* value, int flags) {
            EXPECT_EQ(object, encoder.codecContext());
            EXPECT_STREQ(name, "some option");
            EXPECT_STREQ(value, "some value");
            EXPECT_EQ(flags, 1);
            ++calls;
            return 1;
        });
    encoder.setOption("some option", "some value");
    EXPECT_EQ(calls, 1);
}

TEST(EncoderCalls, ThatFailToSetAnOptionOtherwiseAreNotExplained) {
    PlainEncoder encoder(configFor("mpeg4"));
    const auto set = encoderCalls().avOptSet.replace(
        [](void*, const char*, const char*, int) { return AvError::OutOfMemory.code(); });
    EXPECT_THROW_TEXT(
        FFmpegError, "AvCodecContext::av_opt_set() error FFmpeg AV_ERROR: " + AvError::OutOfMemory.toString(),
        encoder.setOption("b", "1"));
}

TEST(EncoderCalls, ThatFailToGiveParametersAreReturned) {
    const PlainEncoder encoder(configFor("mpeg4"));
    const auto fill = encoderCalls().avcodecParametersFromContext.replace([&](void*, const void* context) {
        EXPECT_EQ(context, encoder.codecContext());
        return AvError::OutOfMemory.code();
    });
    const std::unique_ptr<AVCodecParameters, void (*)(AVCodecParameters*)> parameters(
        avcodec_parameters_alloc(), [](AVCodecParameters* freed) { avcodec_parameters_free(&freed); });
    EXPECT_EQ(encoder.fillCodecParameters(*parameters).error, AvError::OutOfMemory);
}

class OpenEncoder : public testing::Test {
protected:
    OpenEncoder() { mEncoder.openCodec(); }

    PlainEncoder mEncoder{configFor("mpeg4")};
};

TEST_F(OpenEncoder, ReturnsAFailureToReceiveAndLogsNothing) {
    const LogCapture log(6);
    const auto receive =
        encoderCalls().avcodecReceivePacket.replace([](void*, void*) { return AvError::InvalidData.code(); });
    const auto packet = mEncoder.receivePacket();
    ASSERT_FALSE(packet);
    EXPECT_EQ(packet.error(), AvError::InvalidData);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(OpenEncoder, ReturnsAnErrorWhereThereIsNoPacket) {
    const auto alloc = encoderCalls().avPacketAlloc.replace([] { return nullptr; });
    const auto packet = mEncoder.receivePacket();
    ASSERT_FALSE(packet);
    EXPECT_EQ(packet.error(), AvError::OutOfMemory);
    EXPECT_FALSE(mEncoder.drain());
}

// A packet without a time is judged like one with that count.
TEST_F(OpenEncoder, JudgesAPacketWithoutATimeByItsCount) {
    mEncoder.pushNoSignalState(false, Timestamp(Timebase(1, 25), 0));
    const auto receive = encoderCalls().avcodecReceivePacket.replace([](void*, void* packet) {
        static_cast<AVPacket*>(packet)->pts = AV_NOPTS_VALUE;
        return av_new_packet(static_cast<AVPacket*>(packet), 4);
    });
    const auto packet = mEncoder.receivePacket();
    ASSERT_TRUE(packet);
    EXPECT_TRUE(packet->isNoSignal());
    EXPECT_EQ(packet->size, 4);
}

TEST_F(OpenEncoder, EndsTheStreamWithAnEmptyFrame) {
    int calls = 0;
    const auto send = encoderCalls().avcodecSendFrame.replace([&](void* context, const void* frame) {
        EXPECT_EQ(context, mEncoder.codecContext());
        EXPECT_EQ(frame, nullptr);
        ++calls;
        return AvError::OutOfMemory.code();
    });
    EXPECT_EQ(mEncoder.sendEndOfStream().error, AvError::OutOfMemory);
    EXPECT_EQ(calls, 1);
}

// Codecs crash when they are used on.
TEST_F(OpenEncoder, GivesUpACodecThatRanOutOfMemoryWithAFrame) {
    int calls = 0;
    const auto send = encoderCalls().avcodecSendFrame.replace([&calls](void*, const void*) {
        ++calls;
        return AvError::OutOfMemory.code();
    });
    const auto receive = encoderCalls().avcodecReceivePacket.replace(
        [&calls](void*, void*) { return ++calls < 4 ? 0 : AvError::Eof.code(); });
    EXPECT_EQ(mEncoder.sendEndOfStream().error, AvError::OutOfMemory);
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(mEncoder.sendEndOfStream().error, AvError::OutOfMemory);
    EXPECT_EQ(mEncoder.receivePacket().error(), AvError::OutOfMemory);
    EXPECT_FALSE(mEncoder.drain());
    EXPECT_EQ(calls, 1);
}

TEST_F(OpenEncoder, GivesUpACodecThatRanOutOfMemoryWithAPacket) {
    int calls = 0;
    const auto receive = encoderCalls().avcodecReceivePacket.replace([&calls](void*, void*) {
        ++calls;
        return AvError::OutOfMemory.code();
    });
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(mEncoder.receivePacket().error(), AvError::OutOfMemory);
    }
    EXPECT_EQ(mEncoder.sendEndOfStream().error, AvError::OutOfMemory);
    EXPECT_EQ(calls, 1);
}

TEST_F(OpenEncoder, GoesOnAfterAnotherError) {
    for (const AvError error : {AvError::InvalidData, AvError::Again}) {
        const auto receive =
            encoderCalls().avcodecReceivePacket.replace([&](void*, void*) { return error.code(); });
        EXPECT_EQ(mEncoder.receivePacket().error(), error);
    }
    EXPECT_TRUE(mEncoder.sendEndOfStream().ok);
}

TEST_F(OpenEncoder, DrainsWhateverItsEndSays) {
    const auto send = encoderCalls().avcodecSendFrame.replace(
        [](void*, const void*) { return AvError::OutOfMemory.code(); });
    int calls = 0;
    const auto receive = encoderCalls().avcodecReceivePacket.replace(
        [&calls](void*, void*) { return ++calls < 4 ? 0 : AvError::Eof.code(); });
    mEncoder.pushNoSignalState(true, Timestamp());
    EXPECT_TRUE(mEncoder.drain());
    EXPECT_EQ(calls, 4);
}

TEST_F(OpenEncoder, IsNotDrainedAfterAnotherError) {
    for (const AvError error : {AvError::Again, AvError::InvalidData}) {
        const auto receive =
            encoderCalls().avcodecReceivePacket.replace([&](void*, void*) { return error.code(); });
        EXPECT_FALSE(mEncoder.drain());
    }
}

}  // namespace
}  // namespace vidorra
