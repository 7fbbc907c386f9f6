#include "vidorra/encode/video_encoder.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

#include "encode/patterns.h"
#include "encode/video_encoders.h"
#include "support/log_capture.h"
#include "support/process.h"
#include "support/throw_text.h"
#include "vidorra/core/bad_cast.h"
#include "vidorra/core/ffmpeg_error.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/log.h>
#include <libavutil/pixdesc.h>
}

// The list of an encoder's formats is deprecated in versions with another way to get it.
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

namespace vidorra {
namespace {

using test::frameAt;
using test::kVideoSize;
using test::LogCapture;
using test::pattern;
using test::plainPicture;
using test::receiveAll;
using test::videoConfig;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Line = LogCapture::Line;

static_assert(std::is_base_of_v<EncoderBase, VideoEncoder>);
static_assert(std::has_virtual_destructor_v<VideoEncoder>);

class Video : public testing::Test {
protected:
    Video() { av_log_set_level(AV_LOG_QUIET); }
    ~Video() override { av_log_set_level(AV_LOG_INFO); }
};

using VideoEncoderConfig = Video;

TEST_F(VideoEncoderConfig, SetsUpTheCodec) {
    objstream::object config = videoConfig("mpeg4");
    config["timebase_num"] = 1001;
    config["timebase_den"] = "30000";
    config["options"]["b"] = 123456;
    config["options"]["g"] = "7";
    config["unknown"] = "ignored";
    const VideoEncoder encoder(config);
    const AVCodecContext& codec = *encoder.codecContext();
    EXPECT_NE(avcodec_is_open(const_cast<AVCodecContext*>(&codec)), 0);
    EXPECT_EQ(codec.width, kVideoSize.width);
    EXPECT_EQ(codec.height, kVideoSize.height);
    EXPECT_EQ(codec.time_base.num, 1001);
    EXPECT_EQ(codec.time_base.den, 30000);
    EXPECT_EQ(codec.pix_fmt, AV_PIX_FMT_YUV420P);
    EXPECT_EQ(codec.color_range, AVCOL_RANGE_JPEG);
    EXPECT_EQ(codec.strict_std_compliance, FF_COMPLIANCE_UNOFFICIAL);
    EXPECT_EQ(codec.bit_rate, 123456);
    EXPECT_EQ(codec.gop_size, 7);
    EXPECT_EQ(encoder.encoderLinesize(), (std::array<std::int32_t, 2>{0, 0}));
}

TEST_F(VideoEncoderConfig, HasDefaults) {
    objstream::object config;
    config["codec"] = "rawvideo";
    config["width"] = 2;
    config["height"] = 2;
    const VideoEncoder encoder(config);
    EXPECT_EQ(encoder.codecContext()->time_base.num, 1);
    EXPECT_EQ(encoder.codecContext()->time_base.den, 1);
    EXPECT_EQ(encoder.codecContext()->pix_fmt, AV_PIX_FMT_YUV420P);
}

TEST_F(VideoEncoderConfig, LogsTheLifeOfTheCodec) {
    const LogCapture log(6);
    const VideoEncoder encoder(videoConfig("mpeg4"));
    EXPECT_THAT(log.lines(), ElementsAre(Line{5, "video-encoder-mpeg4: VideoEncoder: vaapi_device: <empty>"},
                                         Line{6, "video-encoder-mpeg4: opening codec: \"mpeg4\""},
                                         Line{6, "video-encoder-mpeg4: codec \"mpeg4\" opened"}));
}

TEST_F(VideoEncoderConfig, OfAnAudioEncoderIsRefusedBeforeAnyKeyIsRead) {
    objstream::object config = videoConfig("pcm_s16le", "no such format");
    config["width"] = "no number";
    EXPECT_THROW_TEXT(std::runtime_error,
                      "VideoEncoder: Trying to use audio codec \"pcm_s16le\" by video encoder.",
                      VideoEncoder{config});
}

TEST_F(VideoEncoderConfig, OfAnotherEncoderIsRefused) {
    EXPECT_THROW_TEXT(std::runtime_error,
                      "VideoEncoder: Unsupported media type \"3\". Expected AVMediaType::AVMEDIA_TYPE_VIDEO.",
                      VideoEncoder{videoConfig("srt", "no such format")});
}

TEST_F(VideoEncoderConfig, WithoutASizeFailsWhenTheCodecOpens) {
    objstream::object config;
    config["codec"] = "mpeg4";
    EXPECT_THROW_TEXT(
        FFmpegError,
        "Could not open encoder \"mpeg4\" FFmpeg AV_ERROR: " + AvError::InvalidArgument.toString(),
        VideoEncoder{config});
}

TEST_F(VideoEncoderConfig, WithValuesOfAnotherKindIsRefused) {
    struct Row {
        const char* key;
        const char* text;
    };
    for (const Row& row :
         {Row{"width", "w"}, {"height", ""}, {"timebase_num", "1/25"}, {"timebase_den", "25.0"}}) {
        SCOPED_TRACE(row.key);
        objstream::object config = videoConfig("mpeg4");
        config[row.key] = row.text;
        EXPECT_THROW(VideoEncoder{config}, objstream::bad_objstream_cast<std::string>);
    }
    EXPECT_THROW_TEXT(BadCast, "Unknown pixel format yuv42", VideoEncoder{videoConfig("mpeg4", "yuv42")});
    objstream::object number = videoConfig("mpeg4");
    number["pix_fmt"] = 0;
    EXPECT_THROW_TEXT(BadCast, "Unknown pixel format 0", VideoEncoder{number});
}

TEST_F(VideoEncoderConfig, WithKeysThatAreNoScalarsIsRefusedOrUsesDefaults) {
    for (const char* key : {"codec", "filter", "vaapi_device"}) {
        SCOPED_TRACE(key);
        objstream::object config = videoConfig("mpeg4");
        config[key] = objstream::object::array();
        EXPECT_THROW(VideoEncoder{config}, std::bad_cast);
    }
    objstream::object config = videoConfig("mpeg4");
    config["pix_fmt"] = objstream::object::map();
    config["timebase_num"] = objstream::object::array();
    config["options"] = "no map";
    const VideoEncoder encoder(config);
    EXPECT_EQ(encoder.codecContext()->pix_fmt, AV_PIX_FMT_YUV420P);
    EXPECT_EQ(encoder.codecContext()->time_base.num, 1);
}

TEST_F(VideoEncoderConfig, StopsAtAnOptionThatFails) {
    objstream::object config = videoConfig("mpeg4");
    config["options"]["no-such"] = 1;
    const LogCapture log(6);
    EXPECT_THROW_TEXT(FFmpegError,
                      "param no-such not found. No matching option exists. FFmpeg AV_ERROR: " +
                          AvError::OptionNotFound.toString(),
                      VideoEncoder{config});
    EXPECT_THAT(log.lines(), IsEmpty()) << "neither the device nor the codec was looked at";
}

TEST_F(VideoEncoderConfig, PassesAnOptionThatIsNoScalarAsAnEmptyText) {
    objstream::object config = videoConfig("mpeg4");
    config["options"]["qmax"]["x"] = 1;
    EXPECT_THROW_TEXT(
        FFmpegError,
        "value \"\" is invalid for qmax param FFmpeg AV_ERROR: " + AvError::InvalidArgument.toString(),
        VideoEncoder{config});
}

TEST_F(VideoEncoderConfig, OfADeviceThatCannotBeOpenedIsRefused) {
    objstream::object config = videoConfig("mpeg4");
    config["vaapi_device"] = "/nowhere";
    const LogCapture log(6);
    try {
        const VideoEncoder encoder(config);
        ADD_FAILURE() << "nothing was thrown";
    } catch (const FFmpegError& error) {
        EXPECT_THAT(error.what(),
                    testing::StartsWith("Failed to open VAAPI device: /nowhere FFmpeg AV_ERROR: #"));
    }
    EXPECT_THAT(log.texts(), ElementsAre("video-encoder-mpeg4: VideoEncoder: vaapi_device: /nowhere"));
}

TEST_F(VideoEncoderConfig, OfAFilterThatFailsIsRefusedAfterTheCodecIsOpen) {
    objstream::object config = videoConfig("mpeg4");
    config["filter"] = "nosuchfilter";
    const LogCapture log(6);
    try {
        const VideoEncoder encoder(config);
        ADD_FAILURE() << "nothing was thrown";
    } catch (const FFmpegError& error) {
        EXPECT_THAT(error.what(), testing::StartsWith("Cannot parse filter spec"));
    }
    EXPECT_THAT(log.texts(), testing::Contains("video-encoder-mpeg4: codec \"mpeg4\" opened"));
}

// The graph decides whether an empty description is valid.
TEST_F(VideoEncoderConfig, GivesAnEmptyFilterToTheGraph) {
    objstream::object config = videoConfig("mpeg4");
    config["filter"] = "";
    VideoEncoder plain(videoConfig("mpeg4"));
    bool graphTakesIt = true;
    try {
        FilterGraphVideo("", *const_cast<AVCodecContext*>(plain.codecContext()), nullptr, AV_PIX_FMT_YUV420P);
    } catch (const FFmpegError&) {
        graphTakesIt = false;
    }
    bool encoderTakesIt = true;
    try {
        const VideoEncoder encoder(config);
    } catch (const FFmpegError&) {
        encoderTakesIt = false;
    }
    EXPECT_EQ(encoderTakesIt, graphTakesIt);
}

// Whether FFmpeg's own call accepts a frame without a format: in some versions it does.
bool getBufferTakesABlankFrame() {
    const VideoEncoder plain(videoConfig("mpeg4"));
    AVFrame* frame = av_frame_alloc();
    const int res = avcodec_default_get_buffer2(const_cast<AVCodecContext*>(plain.codecContext()), frame, 4);
    av_frame_free(&frame);
    return res >= 0;
}

// The name decides, though the codec was chosen by its id.
TEST_F(VideoEncoderConfig, AsksAnEncoderThatIsNamedOmxForItsLineSizes) {
    const bool taken = getBufferTakesABlankFrame();
    for (const char* name : {"h264_omx", "hevc_omx"}) {
        objstream::object config = videoConfig(name);
        config["codec_id"] = "mpeg4";
        const LogCapture log(6);
        if (taken) {
            EXPECT_NO_THROW(VideoEncoder{config});
        } else {
            EXPECT_THROW_TEXT(std::runtime_error, "Failed to get encoder properties", VideoEncoder{config});
        }
        EXPECT_THAT(log.texts(), testing::Contains("video-encoder-mpeg4: codec \"mpeg4\" opened"));
    }
    objstream::object other = videoConfig("h264_omx2");
    other["codec_id"] = "mpeg4";
    EXPECT_NO_THROW(VideoEncoder{other});
}

class VideoSending : public Video {
protected:
    static std::vector<VideoFrame> frames(int count, AVPixelFormat format = AV_PIX_FMT_YUV420P) {
        std::vector<VideoFrame> result;
        result.reserve(static_cast<std::size_t>(count));
        for (int i = 0; i < count; ++i) {
            result.push_back(
                frameAt(pattern(kVideoSize, format, static_cast<unsigned>(i)).picture, i * 40000));
        }
        return result;
    }
};

TEST_F(VideoSending, OfAnEmptyFrameIsRefusedAndKeepsTheLedger) {
    VideoEncoder encoder(videoConfig("rawvideo"));
    const LogCapture log(5);
    VideoFrame empty;
    empty.setFlags(Frame::NoSignal);
    EXPECT_EQ(encoder.sendFrame(empty).error, AvError::InvalidArgument);
    EXPECT_THAT(
        log.lines(),
        ElementsAre(Line{1, "video-encoder-rawvideo: sendFrame(): could not encode empty VideoFrame."}));
    EXPECT_FALSE(encoder.wasNoSignalAt(Timestamp(Timebase(1, 25), 100)));
}

TEST_F(VideoSending, BringsTimesIntoTheTimeBaseOfTheEncoder) {
    VideoEncoder encoder(videoConfig("rawvideo"));
    const Picture picture = pattern(kVideoSize, AV_PIX_FMT_YUV420P, 0).picture;
    for (const auto& [micro, tick] :
         {std::pair<int, int>{0, 0}, {40000, 1}, {99999, 2}, {100000, 3}, {1000000, 25}}) {
        EXPECT_TRUE(encoder.sendFrame(frameAt(picture, micro)).ok);
        const auto packet = encoder.receivePacket();
        ASSERT_TRUE(packet);
        EXPECT_EQ(packet->pts, tick);
    }
    EXPECT_TRUE(encoder.sendFrame(VideoFrame(picture, Timestamp(Timebase(1, 50), 100), Frame::NoFlags)).ok);
    EXPECT_EQ(encoder.receivePacket()->pts, 50);
}

TEST_F(VideoSending, TakesAFrameWithoutSignalIntoTheLedger) {
    VideoEncoder encoder(videoConfig("rawvideo"));
    const Picture picture = pattern(kVideoSize, AV_PIX_FMT_YUV420P, 0).picture;
    std::string marks;
    for (int i = 0; i < 5; ++i) {
        const auto flags = i == 1   ? Frame::NoSignal
                           : i == 2 ? Frame::NoSignal | Frame::LastFrame
                                    : Frame::LastFrame;
        EXPECT_TRUE(encoder.sendFrame(frameAt(picture, i * 40000, flags)).ok);
        marks += encoder.receivePacket()->isNoSignal() ? "x" : ".";
    }
    EXPECT_EQ(marks, ".xx..");
    EXPECT_TRUE(encoder.wasNoSignalAt(Timestamp(Timebase(1, 25), 2)));
    EXPECT_FALSE(encoder.wasNoSignalAt(Timestamp(Timebase(1, 25), 3)));
}

TEST_F(VideoSending, KeepsTheNoSignalFlagOfAFrameThatIsConverted) {
    VideoEncoder encoder(videoConfig("rawvideo"));
    const Picture picture = pattern(kVideoSize, AV_PIX_FMT_RGB24, 0).picture;
    EXPECT_TRUE(encoder.sendFrame(frameAt(picture, 0, Frame::NoSignal)).ok);
    const auto packet = encoder.receivePacket();
    ASSERT_TRUE(packet);
    EXPECT_TRUE(packet->isNoSignal());
}

TEST_F(VideoSending, ConvertsAnotherFormat) {
    VideoEncoder encoder(videoConfig("rawvideo", "rgb24"));
    const Picture source = pattern(kVideoSize, AV_PIX_FMT_BGR24, 7).picture;
    EXPECT_TRUE(encoder.sendFrame(frameAt(source, 0)).ok);
    const auto packet = encoder.receivePacket();
    ASSERT_TRUE(packet);
    const Picture expected = ColorSpaceConverter::convertTo(source, AV_PIX_FMT_RGB24, AVCOL_RANGE_JPEG);
    ASSERT_EQ(packet->size, kVideoSize.width * kVideoSize.height * 3);
    for (int y = 0; y < kVideoSize.height; ++y) {
        ASSERT_EQ(std::memcmp(packet->data + y * kVideoSize.width * 3,
                              expected.data()[0] + y * expected.linesize()[0],
                              static_cast<std::size_t>(kVideoSize.width) * 3),
                  0)
            << y;
    }
}

TEST_F(VideoSending, OfAPictureThatCannotBeConvertedThrowsAndKeepsTheLedger) {
    VideoEncoder encoder(videoConfig("rawvideo", "yuv420p"));
    // No conversion from limited to full range exists between these two.
    const Picture picture(kVideoSize, NVA12, AVCOL_RANGE_MPEG, 32);
    EXPECT_THROW(static_cast<void>(encoder.sendFrame(frameAt(picture, 0, Frame::NoSignal))),
                 std::runtime_error);
    EXPECT_FALSE(encoder.wasNoSignalAt(Timestamp(Timebase(1, 25), 0)));
}

// Encoders read every picture as one of their own size.
TEST_F(VideoSending, OfAPictureOfAnotherSizeIsRefusedBeforeTheCodec) {
    for (const char* name : {"mpeg4", "mpeg2video", "mjpeg", "ffv1", "rawvideo", "huffyuv", "libx264"}) {
        SCOPED_TRACE(name);
        objstream::object config = videoConfig(name, std::string(name) == "huffyuv" ? "yuv422p" : "yuv420p");
        VideoEncoder encoder(config);
        const AVPixelFormat format = encoder.codecContext()->pix_fmt;
        const LogCapture log(2);
        for (const Size size : {Size{32, 24}, Size{64, 46}, Size{62, 48}, Size{66, 48}, Size{640, 480},
                                Size{2, 2}, Size{33, 17}}) {
            EXPECT_EQ(encoder.sendFrame(frameAt(plainPicture(size, format, 1), 0)).error,
                      AvError::InvalidArgument);
            EXPECT_EQ(encoder.sendFrame(frameAt(plainPicture(size, AV_PIX_FMT_RGBA, 1), 0)).error,
                      AvError::InvalidArgument);
        }
        ASSERT_EQ(log.lines().size(), 14U);
        EXPECT_EQ(log.lines()[0].level, 2);
        EXPECT_THAT(log.texts()[0],
                    HasSubstr("sendFrame(): not of the encoder's size and format: 32x24 yuv4"));
        // It continues with a picture of its own size.
        std::vector<Packet> packets;
        EXPECT_TRUE(encoder.sendFrame(frameAt(plainPicture(kVideoSize, format, 1), 0)).ok);
        EXPECT_TRUE(encoder.sendEndOfStream().ok);
        receiveAll(encoder, packets, AvError::Eof);
        EXPECT_EQ(packets.size(), 1U);
    }
}

// A single pixel has no size in a format with chroma of half the size.
TEST_F(VideoSending, OfAPictureThatVanishesInTheConversionThrows) {
    VideoEncoder encoder(videoConfig("mpeg4"));
    EXPECT_THROW_TEXT(
        std::runtime_error, "Can not fill AVFrame from empty frame",
        static_cast<void>(encoder.sendFrame(frameAt(plainPicture({1, 1}, AV_PIX_FMT_RGBA, 1), 0))));
}

TEST_F(VideoSending, OfAPictureWithoutAPlaneIsRefusedBeforeTheCodec) {
    VideoEncoder encoder(videoConfig("mpeg4"));
    const Picture whole = plainPicture(kVideoSize, AV_PIX_FMT_YUV420P, 1);
    struct Row {
        const char* name;
        bool chroma;
        int linesize;
    };
    const LogCapture log(2);
    for (const Row& row : {Row{"no plane", false, 64}, {"short rows", true, 63}, {"no rows", true, 0}}) {
        SCOPED_TRACE(row.name);
        std::uint8_t* planes[4] = {};
        int linesizes[4] = {row.linesize, 32, 32, 0};
        std::copy_n(whole.data().begin(), row.chroma ? 3 : 2, planes);
        const AvPtr<AVBufferRef> reference = makeAvPtr(av_buffer_alloc(16));
        const MemBuffer memory(reference.get());
        const Picture broken(memory, kVideoSize, planes, linesizes, AV_PIX_FMT_YUV420P, AVCOL_RANGE_JPEG);
        EXPECT_EQ(encoder.sendFrame(frameAt(broken, 0)).error, AvError::InvalidArgument);
    }
    EXPECT_EQ(log.lines().size(), 3U);
}

// Its number means another format to FFmpeg.
TEST_F(VideoSending, OfNva12IsRefusedWhereFFmpegDoesNotKnowIt) {
    if (av_get_pix_fmt("nva12") != AV_PIX_FMT_NONE) {
        return;
    }
    objstream::object config = videoConfig("rawvideo", "nva12");
    VideoEncoder encoder(config);
    const Picture picture(kVideoSize, NVA12, AVCOL_RANGE_JPEG, 32);
    const LogCapture log(2);
    EXPECT_EQ(encoder.sendFrame(frameAt(picture, 0)).error, AvError::InvalidArgument);
    EXPECT_EQ(log.lines().size(), 1U);
}

TEST_F(VideoSending, PassesOnThatPacketsHaveToBeReceivedFirst) {
    VideoEncoder encoder(videoConfig("rawvideo"));
    const std::vector<VideoFrame> all = frames(3);
    EXPECT_TRUE(encoder.sendFrame(all[0]).ok);
    EXPECT_TRUE(encoder.sendFrame(all[1]).ok);
    EXPECT_EQ(encoder.sendFrame(all[2]).error, AvError::Again);
}

TEST_F(VideoSending, KeepsNoReferenceOfAFrameThatWentOut) {
    VideoEncoder encoder(videoConfig("rawvideo"));
    Picture picture = pattern(kVideoSize, AV_PIX_FMT_YUV420P, 0).picture;
    {
        const VideoFrame frame = frameAt(picture, 0);
        EXPECT_TRUE(encoder.sendFrame(frame).ok);
    }
    ASSERT_TRUE(encoder.receivePacket());
    static_cast<void>(encoder.receivePacket());
    EXPECT_TRUE(picture.editable());
}

class VideoFiltering : public VideoSending {
protected:
    static objstream::object configWith(const std::string& filter, const std::string& codec = "rawvideo") {
        objstream::object config = videoConfig(codec);
        config["filter"] = filter;
        return config;
    }
};

TEST_F(VideoFiltering, ChangesThePictures) {
    VideoEncoder encoder(configWith("hflip"));
    const test::Pattern source = pattern(kVideoSize, AV_PIX_FMT_YUV420P, 3);
    EXPECT_TRUE(encoder.sendFrame(frameAt(source.picture, 40000)).ok);
    const auto packet = encoder.receivePacket();
    ASSERT_TRUE(packet);
    EXPECT_EQ(packet->pts, 1);
    for (int y = 0; y < kVideoSize.height; ++y) {
        for (int x = 0; x < kVideoSize.width; ++x) {
            ASSERT_EQ(packet->data[y * kVideoSize.width + x],
                      source.bytes[static_cast<std::size_t>((y + 1) * kVideoSize.width - 1 - x)]);
        }
    }
}

// The rows of such a picture are in reverse order in memory.
TEST_F(VideoFiltering, MayTurnThePicturesUpsideDown) {
    VideoEncoder encoder(configWith("vflip"));
    const test::Pattern source = pattern(kVideoSize, AV_PIX_FMT_YUV420P, 3);
    EXPECT_TRUE(encoder.sendFrame(frameAt(source.picture, 0)).ok);
    const auto packet = encoder.receivePacket();
    ASSERT_TRUE(packet);
    const auto width = static_cast<std::size_t>(kVideoSize.width);
    for (int y = 0; y < kVideoSize.height; ++y) {
        EXPECT_EQ(
            std::memcmp(packet->data + y * kVideoSize.width,
                        &source.bytes[static_cast<std::size_t>(kVideoSize.height - 1 - y) * width], width),
            0)
            << y;
    }
}

TEST_F(VideoFiltering, ThatKeepsAFrameIsASuccessAndMovesTheLedger) {
    VideoEncoder encoder(configWith("reverse"));
    const LogCapture log(5);
    const Picture picture = pattern(kVideoSize, AV_PIX_FMT_YUV420P, 0).picture;
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(encoder.sendFrame(frameAt(picture, i * 40000, Frame::NoSignal)).ok);
    }
    EXPECT_TRUE(encoder.wasNoSignalAt(Timestamp(Timebase(1, 25), 0)));
    const auto packet = encoder.receivePacket();
    ASSERT_FALSE(packet);
    EXPECT_EQ(packet.error(), AvError::Again);
    const Line kept{5, "video-encoder-rawvideo: sendFrame(): no video videoFrame available from filter"};
    EXPECT_THAT(
        log.lines(),
        ElementsAre(Line{5, "video-encoder-rawvideo: No signal frame. Set start PTS to 0.000000 (1/25)"},
                    kept, kept, kept));
}

TEST_F(VideoFiltering, ThatHasEndedEndsTheStream) {
    VideoEncoder encoder(configWith("trim=end_frame=2"));
    const std::vector<VideoFrame> all = frames(4);
    std::vector<Packet> packets;
    for (int i = 0; i < 2; ++i) {
        EXPECT_TRUE(encoder.sendFrame(all[static_cast<std::size_t>(i)]).ok);
        receiveAll(encoder, packets, AvError::Again);
    }
    const LogCapture log(5);
    EXPECT_EQ(encoder.sendFrame(all[2]).error, AvError::Eof);
    receiveAll(encoder, packets, AvError::Eof);
    EXPECT_EQ(packets.size(), 2U);
    EXPECT_EQ(encoder.sendFrame(all[3]).error, AvError::Eof);
    const Line ended{5,
                     "video-encoder-rawvideo: sendFrame(): video filter at EOF: " + AvError::Eof.toString()};
    EXPECT_THAT(log.lines(), ElementsAre(ended, ended));
}

TEST_F(VideoFiltering, ThatFailsIsReturnedAndLogged) {
    VideoEncoder encoder(configWith("hflip"));
    const LogCapture log(5);
    const Picture other = plainPicture({32, 24}, AV_PIX_FMT_YUV420P, 1);
    EXPECT_EQ(encoder.sendFrame(frameAt(other, 40000)).error, AvError::InvalidArgument);
    ASSERT_EQ(log.lines().size(), 2U);
    EXPECT_EQ(log.lines()[1].level, 2);
    EXPECT_EQ(log.lines()[1].text,
              "video-encoder-rawvideo: sendFrame(): could not filter videoFrame: video frame 32x24, yuv420p "
              "(pc), pts "
              "0.040000 (1/25), flags none. Error: " +
                  AvError::InvalidArgument.toString());
}

TEST_F(VideoFiltering, ThatChangesTheSizeIsRefusedBeforeTheCodec) {
    VideoEncoder encoder(configWith("scale=32:24", "mpeg4"));
    const LogCapture log(2);
    EXPECT_EQ(encoder.sendFrame(frames(1)[0]).error, AvError::InvalidArgument);
    EXPECT_EQ(log.lines().size(), 1U);
}

TEST_F(VideoFiltering, ThatScalesMayTakePicturesOfAnotherSize) {
    VideoEncoder encoder(configWith("scale=64:48", "mpeg4"));
    EXPECT_TRUE(encoder.sendFrame(frameAt(plainPicture({32, 24}, AV_PIX_FMT_YUV420P, 1), 0)).ok);
}

// Full-range pixels pass through automatically inserted scalers without being squeezed.
TEST_F(VideoFiltering, KeepsFullRange) {
    for (const char* filter : {"format=nv12", "scale=32:24,scale=64:48", "format=yuv444p,hflip", "null"}) {
        SCOPED_TRACE(filter);
        VideoEncoder encoder(configWith(filter));
        for (const int value : {2, 50, 128, 250}) {
            const Picture picture =
                plainPicture(kVideoSize, AV_PIX_FMT_YUV420P, static_cast<std::uint8_t>(value));
            EXPECT_TRUE(encoder.sendFrame(frameAt(picture, 0)).ok);
            const auto packet = encoder.receivePacket();
            ASSERT_TRUE(packet);
            ASSERT_EQ(packet->size, kVideoSize.width * kVideoSize.height * 3 / 2);
            for (int i = 0; i < packet->size; ++i) {
                ASSERT_NEAR(packet->data[i], value, 1) << i;
            }
        }
    }
}

TEST_F(VideoFiltering, ConvertsPicturesBeforeTheFilter) {
    VideoEncoder encoder(configWith("hflip"));
    EXPECT_TRUE(encoder.sendFrame(frameAt(plainPicture(kVideoSize, AV_PIX_FMT_RGB24, 255), 0)).ok);
    const auto packet = encoder.receivePacket();
    ASSERT_TRUE(packet);
    EXPECT_EQ(packet->data[0], 255);
}

// The format itself, or the first of the same kind of alpha, or the first.
AVPixelFormat firstThatAgrees(const std::vector<AVPixelFormat>& list, AVPixelFormat wanted) {
    const auto hasAlpha = [](AVPixelFormat format) {
        return (av_pix_fmt_desc_get(format)->flags & AV_PIX_FMT_FLAG_ALPHA) != 0;
    };
    if (std::find(list.begin(), list.end(), wanted) != list.end()) {
        return wanted;
    }
    const auto found = std::find_if(
        list.begin(), list.end(), [&](AVPixelFormat format) { return hasAlpha(format) == hasAlpha(wanted); });
    return found != list.end() ? *found : list.front();
}

// The formats of an encoder as the ffmpeg program lists them.
std::vector<AVPixelFormat> listedFormats(const char* encoder) {
    const std::string title = "    Supported pixel formats: ";
    std::vector<AVPixelFormat> formats;
    for (const std::string& line :
         test::lines(test::run({"ffmpeg", "-v", "error", "-h", fmt::format("encoder={}", encoder)}))) {
        if (line.rfind(title, 0) == 0) {
            std::istringstream names(line.substr(title.size()));
            for (std::string name; names >> name;) {
                formats.push_back(av_get_pix_fmt(name.c_str()));
            }
        }
    }
    return formats;
}

TEST_F(Video, ChoosesTheFormatThatTheListOfTheEncoderGives) {
    for (const AVCodecID id :
         {AV_CODEC_ID_PNG, AV_CODEC_ID_FFV1, AV_CODEC_ID_HUFFYUV, AV_CODEC_ID_FFVHUFF, AV_CODEC_ID_UTVIDEO,
          AV_CODEC_ID_MPEG4, AV_CODEC_ID_MPEG2VIDEO, AV_CODEC_ID_H264, AV_CODEC_ID_PRORES, AV_CODEC_ID_DNXHD,
          AV_CODEC_ID_TIFF, AV_CODEC_ID_BMP, AV_CODEC_ID_TARGA, AV_CODEC_ID_GIF, AV_CODEC_ID_QTRLE,
          AV_CODEC_ID_DPX, AV_CODEC_ID_JPEGLS, AV_CODEC_ID_SNOW}) {
        const AVCodec* encoder = avcodec_find_encoder(id);
        ASSERT_NE(encoder, nullptr) << avcodec_get_name(id);
        const char* name = encoder->name;
        const std::vector<AVPixelFormat> formats = listedFormats(name);
        ASSERT_FALSE(formats.empty()) << name;
        for (const AVPixelFormat wanted :
             {AV_PIX_FMT_YUV420P, AV_PIX_FMT_NV12, AV_PIX_FMT_RGBA, AV_PIX_FMT_YUVA420P, AV_PIX_FMT_GRAY8,
              AV_PIX_FMT_RGB24, AV_PIX_FMT_YUV444P}) {
            EXPECT_EQ(VideoEncoder::chooseBestPixelFormat(id, wanted), firstThatAgrees(formats, wanted))
                << name;
        }
    }
}

TEST_F(Video, ChoosesAFormatForWellKnownEncoders) {
    EXPECT_EQ(VideoEncoder::chooseBestPixelFormat(AV_CODEC_ID_MJPEG, AV_PIX_FMT_YUV420P), AV_PIX_FMT_YUV420P);
    EXPECT_EQ(VideoEncoder::chooseBestPixelFormat(AV_CODEC_ID_MJPEG, AV_PIX_FMT_YUVJ444P),
              AV_PIX_FMT_YUVJ444P);
    EXPECT_EQ(VideoEncoder::chooseBestPixelFormat(AV_CODEC_ID_MJPEG, AV_PIX_FMT_RGBA), AV_PIX_FMT_YUVJ420P);
    EXPECT_EQ(VideoEncoder::chooseBestPixelFormat(AV_CODEC_ID_PNG, AV_PIX_FMT_RGBA), AV_PIX_FMT_RGBA);
    EXPECT_EQ(VideoEncoder::chooseBestPixelFormat(AV_CODEC_ID_PNG, AV_PIX_FMT_YUVA420P), AV_PIX_FMT_RGBA);
    EXPECT_EQ(VideoEncoder::chooseBestPixelFormat(AV_CODEC_ID_PNG, AV_PIX_FMT_YUV420P), AV_PIX_FMT_RGB24);
    // A format without a descriptor has no alpha either.
    EXPECT_EQ(VideoEncoder::chooseBestPixelFormat(AV_CODEC_ID_PNG, AV_PIX_FMT_NONE), AV_PIX_FMT_RGB24);
    // Alpha is known of NVA12, whatever its number means to FFmpeg.
    EXPECT_EQ(VideoEncoder::chooseBestPixelFormat(AV_CODEC_ID_PNG, NVA12), AV_PIX_FMT_RGBA);
    EXPECT_EQ(VideoEncoder::chooseBestPixelFormat(AV_CODEC_ID_RAWVIDEO, AV_PIX_FMT_RGBA), AV_PIX_FMT_NONE);
    EXPECT_THROW_TEXT(
        std::runtime_error, "Could not find encoder \"none\"",
        static_cast<void>(VideoEncoder::chooseBestPixelFormat(AV_CODEC_ID_NONE, AV_PIX_FMT_RGBA)));
}

}  // namespace
}  // namespace vidorra
