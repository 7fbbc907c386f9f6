#include "vidorra/demux/video_decoder.h"

#include <gmock/gmock.h>

#include <cstdint>
#include <limits>

#include "demux/clips.h"
#include "demux/decoders.h"
#include "support/log_capture.h"

extern "C" {
#include <libavutil/imgutils.h>
#include <libavutil/pixdesc.h>
}

namespace vidorra {
namespace {

using test::LogCapture;
using test::makePacket;
using test::Parameters;
using test::prepareAndOpen;
using test::rawVideoParameters;
using testing::ElementsAre;
using testing::StartsWith;

constexpr int kWidth = 32;
constexpr int kHeight = 16;

// A packet with one picture of a format in uncompressed form.
Packet rawPicture(AVPixelFormat format, std::int64_t pts = 0) {
    Packet packet = makePacket(av_image_get_buffer_size(format, kWidth, kHeight, 1));
    for (int i = 0; i < packet.size; ++i) {
        packet.data[i] = static_cast<std::uint8_t>(i * 7);
    }
    packet.pts = pts;
    return packet;
}

struct Formats {
    AVPixelFormat decoded;
    AVPixelFormat delivered;
};

class VideoDecoderFormats : public testing::TestWithParam<Formats> {};

TEST_P(VideoDecoderFormats, TheFormatOfFullRangeByNameBecomesThePlainOne) {
    VideoDecoder decoder;
    prepareAndOpen(decoder, *rawVideoParameters(GetParam().decoded));
    ASSERT_TRUE(decoder.send(rawPicture(GetParam().decoded)).ok);
    const tl::expected<AvPtr<AVFrame>, AvError> frame = decoder.receiveAvFrame();
    ASSERT_TRUE(frame.has_value());
    EXPECT_EQ((*frame)->format, GetParam().delivered);
}

TEST_P(VideoDecoderFormats, TheFormatOfTheVideoFrameIsThePlainOne) {
    VideoDecoder decoder;
    prepareAndOpen(decoder, *rawVideoParameters(GetParam().decoded));
    ASSERT_TRUE(decoder.send(rawPicture(GetParam().decoded)).ok);
    const tl::expected<VideoFrame, AvError> frame = decoder.receive();
    ASSERT_TRUE(frame.has_value());
    EXPECT_EQ(frame->picture().pixelFormat(), GetParam().delivered);
}

INSTANTIATE_TEST_SUITE_P(, VideoDecoderFormats,
                         testing::Values(Formats{AV_PIX_FMT_YUVJ420P, AV_PIX_FMT_YUV420P},
                                         Formats{AV_PIX_FMT_YUVJ422P, AV_PIX_FMT_YUV422P},
                                         Formats{AV_PIX_FMT_YUVJ444P, AV_PIX_FMT_YUV444P},
                                         Formats{AV_PIX_FMT_YUVJ440P, AV_PIX_FMT_YUV440P},
                                         Formats{AV_PIX_FMT_YUVJ411P, AV_PIX_FMT_YUV411P},
                                         Formats{AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUV420P},
                                         Formats{AV_PIX_FMT_NV12, AV_PIX_FMT_NV12},
                                         Formats{AV_PIX_FMT_RGB24, AV_PIX_FMT_RGB24},
                                         Formats{AV_PIX_FMT_YUV420P10LE, AV_PIX_FMT_YUV420P10LE}),
                         [](const auto& row) { return std::string(av_get_pix_fmt_name(row.param.decoded)); });

TEST(VideoDecoder, TheBaseOperationMendsNothing) {
    DecoderBase decoder;
    prepareAndOpen(decoder, *rawVideoParameters(AV_PIX_FMT_YUVJ420P));
    ASSERT_TRUE(decoder.send(rawPicture(AV_PIX_FMT_YUVJ420P)).ok);
    EXPECT_EQ(decoder.receiveAvFrame().value()->format, AV_PIX_FMT_YUVJ420P);
}

TEST(VideoDecoder, MendsThroughTheBaseClassToo) {
    VideoDecoder decoder;
    const DecoderBase& base = decoder;
    prepareAndOpen(decoder, *rawVideoParameters(AV_PIX_FMT_YUVJ420P));
    ASSERT_TRUE(base.send(rawPicture(AV_PIX_FMT_YUVJ420P)).ok);
    EXPECT_EQ(base.receiveAvFrame().value()->format, AV_PIX_FMT_YUV420P);
}

struct Ranges {
    AVColorRange codec;
    AVColorRange delivered;
};

class VideoDecoderRanges : public testing::TestWithParam<Ranges> {};

TEST_P(VideoDecoderRanges, AFrameHasTheRangeOfItsCodec) {
    const Parameters parameters = rawVideoParameters(AV_PIX_FMT_YUV420P);
    parameters->color_range = GetParam().codec;
    VideoDecoder decoder;
    prepareAndOpen(decoder, *parameters);
    ASSERT_TRUE(decoder.send(rawPicture(AV_PIX_FMT_YUV420P)).ok);
    EXPECT_EQ(decoder.receive().value().picture().colorRange(), GetParam().delivered);
}

INSTANTIATE_TEST_SUITE_P(, VideoDecoderRanges,
                         testing::Values(Ranges{AVCOL_RANGE_UNSPECIFIED, AVCOL_RANGE_UNSPECIFIED},
                                         Ranges{AVCOL_RANGE_MPEG, AVCOL_RANGE_MPEG},
                                         Ranges{AVCOL_RANGE_JPEG, AVCOL_RANGE_JPEG}),
                         [](const auto& row) { return std::string(av_color_range_name(row.param.codec)); });

TEST(VideoDecoder, AJpegPictureHasThePlainFormatInFullRange) {
    FormatContext source = test::opened(test::fileOf("MotionJpegInAvi").string());
    VideoDecoder decoder;
    prepareAndOpen(decoder, *source.trackAtIndex(0)->codecpar);
    ASSERT_TRUE(decoder.send(source.readPacket()).ok);
    const VideoFrame frame = decoder.receive().value();
    EXPECT_EQ(frame.picture().pixelFormat(), AV_PIX_FMT_YUV420P);
    EXPECT_EQ(frame.picture().colorRange(), AVCOL_RANGE_JPEG);
}

TEST(VideoDecoder, AFrameHasItsTimeInMicrosecondsAndNoFlags) {
    VideoDecoder decoder;
    prepareAndOpen(decoder, *rawVideoParameters(AV_PIX_FMT_YUV420P));
    ASSERT_TRUE(decoder.send(rawPicture(AV_PIX_FMT_YUV420P, 1234567)).ok);
    const VideoFrame frame = decoder.receive().value();
    EXPECT_EQ(frame.timestamp().value, 1234567);
    EXPECT_EQ(frame.timestamp().timebase, (Timebase{1, 1000000}));
    EXPECT_FALSE(frame.timestamp().isNull);
    EXPECT_EQ(frame.flags(), Frame::NoFlags);
    EXPECT_EQ(frame.position(), (Point{0, 0}));
    EXPECT_EQ(frame.picture().frameSize(), (Size{kWidth, kHeight}));
}

TEST(VideoDecoder, AFrameWithoutATimeHasFfmpegsUnsetTimeAndNoNullMark) {
    VideoDecoder decoder;
    prepareAndOpen(decoder, *rawVideoParameters(AV_PIX_FMT_YUV420P));
    ASSERT_TRUE(decoder.send(rawPicture(AV_PIX_FMT_YUV420P, AV_NOPTS_VALUE)).ok);
    const VideoFrame frame = decoder.receive().value();
    EXPECT_EQ(frame.timestamp().value, std::numeric_limits<std::int64_t>::min());
    EXPECT_FALSE(frame.timestamp().isNull);
}

// Marks the frames that come through it.
class MarkingDecoder : public VideoDecoder {
public:
    tl::expected<AvPtr<AVFrame>, AvError> receiveAvFrame() const override {
        if (failure) {
            return tl::unexpected(*failure);
        }
        return VideoDecoder::receiveAvFrame().map([](AvPtr<AVFrame> frame) {
            frame->best_effort_timestamp = 42;
            frame->pts = 43;
            return frame;
        });
    }

    std::optional<AvError> failure;
};

TEST(VideoDecoder, ReceiveGoesThroughTheVirtualOperationAndTakesTheBestEffortTime) {
    MarkingDecoder decoder;
    prepareAndOpen(decoder, *rawVideoParameters(AV_PIX_FMT_YUV420P));
    ASSERT_TRUE(decoder.send(rawPicture(AV_PIX_FMT_YUV420P, 7)).ok);
    EXPECT_EQ(decoder.receive().value().timestamp().value, 42);
}

TEST(VideoDecoder, ReceivePassesAnErrorOn) {
    MarkingDecoder decoder;
    prepareAndOpen(decoder, *rawVideoParameters(AV_PIX_FMT_YUV420P));
    decoder.failure = AvError::InvalidData;
    EXPECT_EQ(decoder.receive().error(), AvError::InvalidData);
}

TEST(VideoDecoder, WantsMoreInputBeforeTheFirstPacket) {
    VideoDecoder decoder;
    prepareAndOpen(decoder, *rawVideoParameters(AV_PIX_FMT_YUV420P));
    EXPECT_EQ(decoder.receive().error(), AvError::Again);
    EXPECT_EQ(decoder.receiveAvFrame().error(), AvError::Again);
}

// A stock FFmpeg has a format of its own under the number of NVA12.
Parameters foreignParameters() {
    const AVPixFmtDescriptor* descriptor = av_pix_fmt_desc_get(NVA12);
    EXPECT_NE(descriptor, nullptr);
    EXPECT_STRNE(descriptor->name, "nva12");
    return rawVideoParameters(NVA12);
}

TEST(VideoDecoder, AFrameOfFfmpegsOwnFormatUnderTheNumberOfNva12IsRefused) {
    VideoDecoder decoder;
    prepareAndOpen(decoder, *foreignParameters());
    ASSERT_TRUE(decoder.send(rawPicture(NVA12)).ok);
    const LogCapture log(6);
    EXPECT_EQ(decoder.receive().error(), AvError::InvalidData);
    EXPECT_THAT(log.texts(), ElementsAre(StartsWith("rawvideo Frame refused")));
}

TEST(VideoDecoder, GoesOnBehindARefusedFrame) {
    VideoDecoder decoder;
    prepareAndOpen(decoder, *foreignParameters());
    const LogCapture log(6);
    for (int i = 0; i < 3; ++i) {
        SCOPED_TRACE(i);
        ASSERT_TRUE(decoder.send(rawPicture(NVA12)).ok);
        EXPECT_EQ(decoder.receiveAvFrame().error(), AvError::InvalidData);
        EXPECT_EQ(decoder.receiveAvFrame().error(), AvError::Again);
    }
    EXPECT_EQ(log.lines().size(), 3U);
}

}  // namespace
}  // namespace vidorra
