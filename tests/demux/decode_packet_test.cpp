#include "demux/decode_packet.h"

#include <gmock/gmock.h>

#include "demux/decoders.h"
#include "demux/scripted_decoder.h"
#include "support/log_capture.h"
#include "vidorra/demux/audio_decoder.h"

namespace vidorra {
namespace {

using test::fill;
using test::foreignFrame;
using test::LogCapture;
using test::makePacket;
using test::Parameters;
using test::prepareAndOpen;
using test::rawVideoParameters;
using test::ScriptedDecoder;
using testing::ElementsAre;
using testing::IsEmpty;
using Line = LogCapture::Line;
using Received = ScriptedDecoder::Received;

constexpr int kRawSize = 32 * 16;
const std::string kUrl = "some/url";

Packet grayPicture(std::int64_t pts) {
    Packet packet = makePacket(kRawSize, static_cast<std::uint8_t>(pts));
    packet.stream_index = 7;
    packet.pts = pts;
    return packet;
}

Parameters video() {
    return rawVideoParameters(AV_PIX_FMT_GRAY8);
}

Parameters sound() {
    Parameters parameters = test::makeParameters(AVMEDIA_TYPE_AUDIO, AV_CODEC_ID_MP3);
    parameters->sample_rate = 44100;
    return parameters;
}

// The times of all frames that FFmpeg still gives.
std::vector<std::int64_t> restOf(const DecoderBase& decoder) {
    EXPECT_TRUE(decoder.send(AVPacket{}).ok);
    std::vector<std::int64_t> result;
    for (;;) {
        const Received frame = ScriptedDecoder::decoded(decoder);
        if (!frame) {
            EXPECT_EQ(frame.error(), AvError::Eof);
            return result;
        }
        result.push_back((*frame)->pts);
    }
}

TEST(DecodePacket, GivesTheFrameOfThePacket) {
    ScriptedDecoder decoder(ScriptedDecoder::decoded);
    prepareAndOpen(decoder, *video());
    const LogCapture log(6);
    const Received frame = decodePacket(kUrl, decoder, grayPicture(5));
    ASSERT_TRUE(frame.has_value());
    EXPECT_EQ((*frame)->pts, 5);
    EXPECT_EQ(decoder.received, 1) << "through the virtual operation";
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(DecodePacket, MoreInputWantedIsReturnedWithoutALine) {
    ScriptedDecoder decoder([](const DecoderBase&) { return Received(tl::unexpected(AvError::Again)); });
    prepareAndOpen(decoder, *video());
    const LogCapture log(6);
    EXPECT_EQ(decodePacket(kUrl, decoder, grayPicture(0)).error(), AvError::Again);
    EXPECT_EQ(decoder.received, 1);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(DecodePacket, AnErrorOfTheReceiveIsADecodeFailure) {
    ScriptedDecoder decoder(
        [](const DecoderBase&) { return Received(tl::unexpected(AvError::InvalidData)); });
    prepareAndOpen(decoder, *video());
    const LogCapture log(6);
    EXPECT_EQ(decodePacket(kUrl, decoder, grayPicture(0)).error(), AvError::InvalidData);
    EXPECT_THAT(log.lines(),
                ElementsAre(Line{2,
                                 "Could not decode Video from some/url:7: #-1094995529: Invalid data found "
                                 "when processing input"}));
}

TEST(DecodePacket, TheEndOfTheStreamIsADecodeFailure) {
    ScriptedDecoder decoder([](const DecoderBase&) { return Received(tl::unexpected(AvError::Eof)); });
    prepareAndOpen(decoder, *video());
    const LogCapture log(6);
    EXPECT_EQ(decodePacket(kUrl, decoder, grayPicture(0)).error(), AvError::Eof);
    EXPECT_THAT(log.lines(),
                ElementsAre(Line{2, "Could not decode Video from some/url:7: #-541478725: End of file"}));
}

TEST(DecodePacket, ADecodeFailureOfSoundIsCalledAudio) {
    ScriptedDecoder decoder(
        [](const DecoderBase&) { return Received(tl::unexpected(AvError::InvalidData)); });
    prepareAndOpen(decoder, *sound());
    const LogCapture log(6);
    // The smallest whole frame: a header and silence.
    std::string frame(417, '\0');
    frame.replace(0, 4, "\xff\xfb\x90\x64");
    EXPECT_EQ(decodePacket(kUrl, decoder, makePacket(frame, 1)).error(), AvError::InvalidData);
    EXPECT_THAT(log.lines(),
                ElementsAre(Line{2,
                                 "Could not decode Audio from some/url:1: #-1094995529: Invalid data found "
                                 "when processing input"}));
}

TEST(DecodePacket, ARefusedPacketIsASendFailureAndNothingIsReceived) {
    ScriptedDecoder decoder(ScriptedDecoder::decoded);
    prepareAndOpen(decoder, *video());
    ASSERT_TRUE(decoder.send(AVPacket{}).ok);
    const LogCapture log(6);
    EXPECT_EQ(decodePacket(kUrl, decoder, grayPicture(0)).error(), AvError::Eof);
    EXPECT_EQ(decoder.received, 0);
    EXPECT_THAT(
        log.lines(),
        ElementsAre(Line{2, "Could not send video packet from some/url:7, error: #-541478725: End of file"}));
}

TEST(DecodePacket, ASendFailureOfSoundIsCalledAudio) {
    ScriptedDecoder decoder(ScriptedDecoder::decoded);
    prepareAndOpen(decoder, *sound());
    ASSERT_TRUE(decoder.send(AVPacket{}).ok);
    const LogCapture log(6);
    EXPECT_EQ(decodePacket(kUrl, decoder, makePacket(100, 0, 3)).error(), AvError::Eof);
    EXPECT_THAT(
        log.lines(),
        ElementsAre(Line{2, "Could not send audio packet from some/url:3, error: #-541478725: End of file"}));
}

TEST(DecodePacket, AnEmptyPacketIsASendFailureAfterTheLineOfSend) {
    ScriptedDecoder decoder(ScriptedDecoder::decoded);
    prepareAndOpen(decoder, *video());
    Packet empty;
    empty.stream_index = 7;
    const LogCapture log(6);
    EXPECT_EQ(decodePacket(kUrl, decoder, empty).error(), AvError::InvalidArgument);
    EXPECT_EQ(decoder.received, 0);
    EXPECT_THAT(
        log.lines(),
        ElementsAre(Line{1, "rawvideo DecoderBase::send: could not encode empty Packet."},
                    Line{2, "Could not send video packet from some/url:7, error: #-22: Invalid argument"}));
}

TEST(DecodePacketFull, TheFrameMakesRoomAndThePacketIsSentAgain) {
    int taken = 0;
    // FFmpeg holds one frame and one packet, and takes another packet only after both were received.
    ScriptedDecoder decoder([&taken](const DecoderBase& self) {
        Received first = ScriptedDecoder::decoded(self);
        for (int i = 1; i < taken; ++i) {
            EXPECT_TRUE(ScriptedDecoder::decoded(self).has_value());
        }
        return first;
    });
    prepareAndOpen(decoder, *video());
    taken = fill(decoder, grayPicture);
    ASSERT_GT(taken, 0);
    const LogCapture log(6);
    const Received frame = decodePacket(kUrl, decoder, grayPicture(50));
    ASSERT_TRUE(frame.has_value());
    EXPECT_EQ((*frame)->pts, 0);
    EXPECT_EQ(decoder.received, 1) << "one frame for one packet";
    EXPECT_THAT(restOf(decoder), ElementsAre(50)) << "the packet was sent";
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(DecodePacketFull, NoFrameIsASendFailureWithTheErrorOfTheReceive) {
    for (AvError error : {AvError::InvalidData, AvError::Eof, AvError::Again}) {
        SCOPED_TRACE(error.toString());
        ScriptedDecoder decoder([error](const DecoderBase&) { return Received(tl::unexpected(error)); });
        prepareAndOpen(decoder, *video());
        ASSERT_GT(fill(decoder, grayPicture), 0);
        const LogCapture log(6);
        EXPECT_EQ(decodePacket(kUrl, decoder, grayPicture(99)).error(), error);
        EXPECT_EQ(decoder.received, 1);
        EXPECT_THAT(log.lines(), ElementsAre(Line{2, "Could not send video packet from some/url:7, error: " +
                                                         error.toString()}));
    }
}

TEST(DecodePacketFull, ASecondRefusalIsASendFailureAndTheFrameIsReleased) {
    int released = 0;
    ScriptedDecoder decoder([&released](const DecoderBase&) { return Received(foreignFrame(released)); });
    prepareAndOpen(decoder, *video());
    ASSERT_GT(fill(decoder, grayPicture), 0);
    const LogCapture log(6);
    // The frame does not come from FFmpeg, so there is still no room.
    EXPECT_EQ(decodePacket(kUrl, decoder, grayPicture(99)).error(), AvError::Again);
    EXPECT_EQ(decoder.received, 1);
    EXPECT_EQ(released, 1);
    EXPECT_THAT(log.lines(), ElementsAre(Line{2, "Could not send video packet from some/url:7, error: " +
                                                     AvError::Again.toString()}));
}

TEST(DecodePacketFull, AnotherErrorOfTheSecondSendIsASendFailureAndTheFrameIsReleased) {
    int released = 0;
    ScriptedDecoder decoder([&released](const DecoderBase& self) {
        while (ScriptedDecoder::decoded(self)) {
        }
        // The stream is ending: no more packets are accepted.
        EXPECT_TRUE(self.send(AVPacket{}).ok);
        return Received(foreignFrame(released));
    });
    prepareAndOpen(decoder, *video());
    ASSERT_GT(fill(decoder, grayPicture), 0);
    const LogCapture log(6);
    EXPECT_EQ(decodePacket(kUrl, decoder, grayPicture(99)).error(), AvError::Eof);
    EXPECT_EQ(released, 1);
    EXPECT_THAT(
        log.lines(),
        ElementsAre(Line{2, "Could not send video packet from some/url:7, error: #-541478725: End of file"}));
}

}  // namespace
}  // namespace vidorra
