#include <gmock/gmock.h>

#include <cstring>

#include "demux/clips.h"
#include "demux/decoders.h"
#include "demux/scripted_decoder.h"
#include "support/log_capture.h"
#include "support/media.h"
#include "vidorra/demux/video_decoder.h"

extern "C" {
#include <libavutil/imgutils.h>
}

// FormatContext::decodeVideoPacket(), and the decoders that getCodecContext() cannot make.
namespace vidorra {
namespace {

using test::fileOf;
using test::firstStream;
using test::LogCapture;
using test::makePacket;
using test::opened;
using test::ScriptedDecoder;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using Line = LogCapture::Line;
using Received = ScriptedDecoder::Received;

std::string pngUrl() {
    return fileOf("PngSequence").string();
}

// The video of an AVI file under a name that no codec has.
std::string fileOfUnknownCodec() {
    std::string content = test::fileContent(fileOf("MotionJpegInAvi"));
    for (std::size_t at = content.find("MJPG"); at != std::string::npos; at = content.find("MJPG", at)) {
        content.replace(at, 4, "Zq7!");
    }
    return test::temporaryFile("unknown.avi", content).string();
}

// Replaces the decoder that the source would make with another, opened for the stream's parameters.
void replaceDecoder(FormatContext& source, std::unique_ptr<DecoderBase> decoder) {
    test::prepareAndOpen(*decoder, *source.trackAtIndex(0)->codecpar);
    source.getCodecContext(0) = std::move(decoder);
}

TEST(DecodeVideoPacket, GivesTheFrameWithItsTime) {
    FormatContext source = opened(pngUrl());
    (void)source.getCodecContext(0);
    const LogCapture log(6);
    for (std::int64_t time : {0, 40000, 80000}) {
        SCOPED_TRACE(time);
        const VideoFrame frame = source.decodeVideoPacket(source.readPacket());
        EXPECT_FALSE(frame.empty());
        EXPECT_EQ(frame.timestamp().value, time);
        EXPECT_EQ(frame.timestamp().timebase, (Timebase{1, 1000000}));
        EXPECT_FALSE(frame.timestamp().isNull);
        EXPECT_EQ(frame.flags(), Frame::NoFlags);
        EXPECT_EQ(frame.picture().frameSize(), (Size{160, 120}));
    }
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(DecodeVideoPacket, MakesTheDecoderAtTheFirstPacket) {
    FormatContext source = opened(pngUrl());
    const LogCapture log(6);
    const Packet packet = source.readPacket();
    EXPECT_THAT(log.lines(), IsEmpty()) << "not by reading";
    EXPECT_FALSE(source.decodeVideoPacket(packet).empty());
    EXPECT_FALSE(source.decodeVideoPacket(source.readPacket()).empty());
    EXPECT_THAT(log.lines(),
                ElementsAre(Line{6, "png opening codec: \"png\""}, Line{6, "png codec \"png\" opened"}));
}

TEST(DecodeVideoPacket, APacketWithoutAFrameYetGivesAnEmptyFrameAndNoLine) {
    FormatContext source = opened(fileOf("H264InMp4").string());
    (void)source.getCodecContext(0);
    const LogCapture log(6);
    Packet packet = source.readPacket();
    while (packet.stream_index != 0) {
        packet = source.readPacket();
    }
    const VideoFrame frame = source.decodeVideoPacket(packet);
    EXPECT_TRUE(frame.empty());
    EXPECT_TRUE(frame.timestamp().isNull);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(DecodeVideoPacket, APacketOfSoundIsRefusedWithAWarning) {
    const std::string url = fileOf("Mpeg2InTransportStream").string();
    FormatContext source = opened(url);
    ASSERT_EQ(firstStream(source, AVMEDIA_TYPE_AUDIO), 1);
    (void)source.getCodecContext(1);
    const LogCapture log(6);
    EXPECT_TRUE(source.decodeVideoPacket(makePacket(100, 0, 1)).empty());
    EXPECT_TRUE(source.decodeVideoPacket(makePacket(100, 0, 1)).empty());
    const std::string text = "decodeVideoPacket(): " + url + ":1 media format \"audio\" is not supported";
    EXPECT_THAT(log.lines(), ElementsAre(Line{2, text}, Line{2, text}));
}

TEST(DecodeVideoPacket, APacketForADecoderOfSubtitlesIsRefusedWithAWarning) {
    FormatContext source = opened(pngUrl());
    auto decoder = std::make_unique<DecoderBase>();
    test::prepareAndOpen(*decoder, *test::makeParameters(AVMEDIA_TYPE_SUBTITLE, AV_CODEC_ID_SUBRIP));
    source.getCodecContext(0) = std::move(decoder);
    const LogCapture log(6);
    EXPECT_TRUE(source.decodeVideoPacket(makePacket(100)).empty());
    EXPECT_THAT(log.lines(),
                ElementsAre(Line{2, pngUrl() + ":0 media format \"subtitle\" is not supported"}));
    source.getCodecContext(0).reset();
}

TEST(DecodeVideoPacket, WithANullDecoderGivesAnEmptyFrameAndNoLine) {
    FormatContext source = opened(pngUrl());
    source.getCodecContext(0).reset();
    const LogCapture log(6);
    EXPECT_TRUE(source.decodeVideoPacket(source.readPacket()).empty());
    EXPECT_THAT(log.lines(), IsEmpty()) << "a null slot counts: no new decoder is made";
}

TEST(DecodeVideoPacket, AnUnknownCodecIsLoggedOnce) {
    FormatContext source = opened(fileOfUnknownCodec());
    const int video = firstStream(source, AVMEDIA_TYPE_VIDEO);
    ASSERT_GE(video, 0);
    const LogCapture log(6);
    int packets = 0;
    for (const Packet& packet : test::readAllPackets(source)) {
        if (packet.stream_index == video) {
            ++packets;
            EXPECT_TRUE(source.decodeVideoPacket(packet).empty());
        }
    }
    EXPECT_EQ(packets, 30);
    EXPECT_THAT(log.lines(), ElementsAre(Line{1, "Codec none not found"}));
    EXPECT_EQ(source.getCodecContext(static_cast<unsigned>(video)), nullptr);
}

// A video codec that this FFmpeg knows by name only.
const AVCodecDescriptor* codecWithoutDecoder() {
    for (const AVCodecDescriptor* codec = nullptr; (codec = avcodec_descriptor_next(codec)) != nullptr;) {
        if (codec->type == AVMEDIA_TYPE_VIDEO && avcodec_find_decoder(codec->id) == nullptr) {
            return codec;
        }
    }
    return nullptr;
}

TEST(DecodeVideoPacket, ACodecWithoutADecoderIsLoggedByItsName) {
    const AVCodecDescriptor* const codec = codecWithoutDecoder();
    ASSERT_NE(codec, nullptr);
    FormatContext source = opened(pngUrl());
    source.trackAtIndex(0)->codecpar->codec_id = codec->id;
    const LogCapture log(6);
    EXPECT_TRUE(source.decodeVideoPacket(source.readPacket()).empty());
    EXPECT_THAT(log.lines(), ElementsAre(Line{1, "Codec " + std::string(codec->name) + " not found"}));
}

TEST(DecodeVideoPacket, ACodecThatCannotBeOpenedIsLoggedOnce) {
    FormatContext source = opened(pngUrl());
    AVCodecParameters& parameters = *source.trackAtIndex(0)->codecpar;
    parameters.codec_id = AV_CODEC_ID_RAWVIDEO;
    parameters.codec_tag = 0;
    parameters.format = AV_PIX_FMT_NONE;
    const LogCapture log(6);
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(source.decodeVideoPacket(source.readPacket()).empty());
    }
    EXPECT_EQ(source.getCodecContext(0), nullptr);
    EXPECT_THAT(log.lines(), ElementsAre(Line{6, "rawvideo opening codec: \"rawvideo\""},
                                         Line{1, "Could not open codec rawvideo: #-22: Invalid argument"}));
}

TEST(DecodeVideoPacket, AnOpenFailureOfSoundLeavesANullSlotToo) {
    FormatContext source = opened(fileOf("Mpeg2InTransportStream").string());
    source.trackAtIndex(1)->codecpar->codec_id = AV_CODEC_ID_NONE;
    const LogCapture log(6);
    EXPECT_EQ(source.getCodecContext(1), nullptr);
    EXPECT_EQ(source.getCodecContext(1), nullptr);
    EXPECT_THAT(log.lines(), ElementsAre(Line{1, "Codec none not found"}));
}

TEST(DecodeVideoPacket, ADamagedPacketIsLoggedAndTheNextOneIsDecoded) {
    FormatContext source = opened(pngUrl());
    (void)source.getCodecContext(0);
    const Packet first = source.readPacket();
    const LogCapture log(6);
    EXPECT_TRUE(source.decodeVideoPacket(makePacket(1000, 0xa5)).empty());
    EXPECT_THAT(
        log.lines(),
        ElementsAre(Line{2, "Could not send video packet from " + pngUrl() +
                                ":0, error: #-1094995529: Invalid data found when processing input"}));
    EXPECT_FALSE(source.decodeVideoPacket(first).empty());
    EXPECT_EQ(log.lines().size(), 1U);
}

TEST(DecodeVideoPacket, AnEmptyPacketIsLoggedAndTheNextOneIsDecoded) {
    FormatContext source = opened(pngUrl());
    (void)source.getCodecContext(0);
    const LogCapture log(6);
    EXPECT_TRUE(source.decodeVideoPacket(Packet()).empty());
    EXPECT_THAT(log.lines(), ElementsAre(Line{1, "png DecoderBase::send: could not encode empty Packet."},
                                         Line{2, "Could not send video packet from " + pngUrl() +
                                                     ":0, error: #-22: Invalid argument"}));
    EXPECT_FALSE(source.decodeVideoPacket(source.readPacket()).empty());
    EXPECT_EQ(log.lines().size(), 2U);
}

TEST(DecodeVideoPacket, ReceivesThroughTheVirtualOperation) {
    FormatContext source = opened(pngUrl());
    int released = 0;
    replaceDecoder(source, std::make_unique<ScriptedDecoder>([&released](const DecoderBase&) {
                       AvPtr<AVFrame> frame = test::foreignFrame(released);
                       frame->best_effort_timestamp = 99;
                       frame->pts = 98;
                       return Received(std::move(frame));
                   }));
    {
        const VideoFrame frame = source.decodeVideoPacket(source.readPacket());
        EXPECT_EQ(frame.timestamp().value, 99);
        EXPECT_EQ(frame.picture().pixelFormat(), AV_PIX_FMT_GRAY8);
        EXPECT_EQ(frame.picture().frameSize(), (Size{32, 16}));
        EXPECT_EQ(released, 0) << "the picture holds the memory";
    }
    EXPECT_EQ(released, 1);
}

TEST(DecodeVideoPacket, AFailureOfTheReceiveIsLoggedAndGivesAnEmptyFrame) {
    FormatContext source = opened(pngUrl());
    replaceDecoder(source, std::make_unique<ScriptedDecoder>([](const DecoderBase&) {
                       return Received(tl::unexpected(AvError::InvalidData));
                   }));
    const LogCapture log(6);
    EXPECT_TRUE(source.decodeVideoPacket(source.readPacket()).empty());
    EXPECT_THAT(log.lines(),
                ElementsAre(Line{2, "Could not decode Video from " + pngUrl() +
                                        ":0: #-1094995529: Invalid data found when processing input"}));
}

TEST(DecodeVideoPacketFull, TheFrameThatMakesRoomIsReturned) {
    FormatContext source = opened(pngUrl());
    int taken = 0;
    // FFmpeg holds one frame and one packet, and takes another packet only after both were received.
    auto scripted = std::make_unique<ScriptedDecoder>([&taken](const DecoderBase& self) {
        Received first = ScriptedDecoder::decoded(self);
        for (; taken > 1; --taken) {
            EXPECT_TRUE(ScriptedDecoder::decoded(self).has_value());
        }
        return first;
    });
    replaceDecoder(source, std::move(scripted));
    taken = test::fill(*source.getCodecContext(0), [&source](int) { return source.readPacket(); });
    ASSERT_GT(taken, 1);
    const std::int64_t time = source.readPacket().pts;
    Packet packet = source.readPacket();
    packet.pts = time;
    const LogCapture log(6);
    EXPECT_EQ(source.decodeVideoPacket(packet).timestamp().value, 0);
    EXPECT_EQ(source.getCodecContext(0)->receiveAvFrame().value()->pts, time) << "the packet was sent";
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(DecodeVideoPacketFull, ADecoderThatStaysFullLosesTheFrameAndThePacketWithALine) {
    FormatContext source = opened(pngUrl());
    int released = 0;
    replaceDecoder(source, std::make_unique<ScriptedDecoder>([&released](const DecoderBase&) {
                       return Received(test::foreignFrame(released));
                   }));
    ASSERT_GT(test::fill(*source.getCodecContext(0), [&source](int) { return source.readPacket(); }), 0);
    const LogCapture log(6);
    EXPECT_TRUE(source.decodeVideoPacket(source.readPacket()).empty());
    EXPECT_EQ(released, 1);
    EXPECT_THAT(log.lines(), ElementsAre(Line{2, "Could not send video packet from " + pngUrl() +
                                                     ":0, error: " + AvError::Again.toString()}));
}

// For a stock FFmpeg: its own format with the number of NVA12 cannot become a picture.
TEST(DecodeVideoPacketForeignFormat, GivesALineAndNeverAPicture) {
    FormatContext source = opened(fileOf("RawVideoInNut").string());
    AVCodecParameters& parameters = *source.trackAtIndex(0)->codecpar;
    parameters.format = NVA12;
    parameters.codec_tag = 0;
    parameters.width = 32;
    parameters.height = 16;
    (void)source.getCodecContext(0);
    const LogCapture log(6);
    for (int i = 1; i <= 3; ++i) {
        SCOPED_TRACE(i);
        EXPECT_TRUE(source.decodeVideoPacket(makePacket(av_image_get_buffer_size(NVA12, 32, 16, 1))).empty());
        const std::vector<Line> lines = log.lines();
        ASSERT_EQ(lines.size(), static_cast<std::size_t>(2 * i));
        EXPECT_EQ(lines[lines.size() - 2].level, 2);
        EXPECT_THAT(lines[lines.size() - 2].text, StartsWith("rawvideo Frame refused"));
        EXPECT_EQ(lines.back(), (Line{2, "Could not decode Video from " + fileOf("RawVideoInNut").string() +
                                             ":0: #-1094995529: Invalid data found when processing input"}));
    }
}

TEST(DecodeVideoPacketForeignFormat, TheLineNamesTheFormatWhoseNumberItHas) {
    VideoDecoder decoder;
    test::prepareAndOpen(decoder, *test::rawVideoParameters(NVA12));
    ASSERT_TRUE(decoder.send(makePacket(av_image_get_buffer_size(NVA12, 32, 16, 1))).ok);
    const LogCapture log(6);
    EXPECT_FALSE(decoder.receive().has_value());
    EXPECT_THAT(log.texts(), ElementsAre(HasSubstr(to_string(NVA12))));
}

}  // namespace
}  // namespace vidorra
