// How the video encoder calls FFmpeg, what it copies, and how it handles results that FFmpeg rarely returns.
#include <gmock/gmock.h>

#include <array>
#include <cstring>
#include <memory>

#include "demux/large_allocations.h"
#include "encode/encoder_calls.h"
#include "encode/patterns.h"
#include "encode/video_encoders.h"
#include "support/log_capture.h"
#include "support/throw_text.h"
#include "vidorra/core/ffmpeg_error.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavfilter/avfilter.h>
#include <libavutil/frame.h>
#include <libavutil/hwcontext.h>
#include <libavutil/opt.h>
#include <libavutil/timecode.h>
}

namespace vidorra {
namespace {

using test::encoderCalls;
using test::frameAt;
using test::kVideoSize;
using test::LargeAllocations;
using test::LogCapture;
using test::pattern;
using test::plainPicture;
using test::videoConfig;
using testing::ElementsAre;

constexpr auto kPlaneSize = static_cast<std::size_t>(kVideoSize.width) * kVideoSize.height;

// Receives what the library would send to the codec.
class CodecInput : public testing::Test {
protected:
    AvRes send(VideoEncoder& encoder, const VideoFrame& frame) {
        const auto replaced =
            encoderCalls().avcodecSendFrame.replace([this, &encoder](void* context, const void* given) {
                EXPECT_EQ(context, encoder.codecContext());
                ++mCalls;
                mFrame = makeAvPtr<AVFrame>();
                return given != nullptr ? av_frame_ref(mFrame.get(), static_cast<const AVFrame*>(given)) : 0;
            });
        return encoder.sendFrame(frame);
    }

    int mCalls = 0;
    AvPtr<AVFrame> mFrame = makeAvPtr<AVFrame>();
};

TEST_F(CodecInput, RefersToTheBytesOfThePicture) {
    VideoEncoder encoder(videoConfig("mpeg4"));
    const Picture picture = pattern(kVideoSize, AV_PIX_FMT_YUV420P, 0).picture;
    EXPECT_TRUE(send(encoder, frameAt(picture, 80000)).ok);
    EXPECT_EQ(mCalls, 1);
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(mFrame->data[i], picture.data()[i]);
        EXPECT_EQ(mFrame->linesize[i], picture.linesize()[i]);
    }
    EXPECT_EQ(mFrame->pts, 2);
    EXPECT_EQ(mFrame->width, kVideoSize.width);
    EXPECT_EQ(mFrame->height, kVideoSize.height);
    EXPECT_EQ(mFrame->format, AV_PIX_FMT_YUV420P);
    EXPECT_EQ(mFrame->color_range, AVCOL_RANGE_JPEG);
    EXPECT_EQ(mFrame->pict_type, AV_PICTURE_TYPE_NONE) << "nothing asks for key frames";
}

TEST_F(CodecInput, OfAPictureInItsFormatAllocatesNoPlane) {
    VideoEncoder encoder(videoConfig("mpeg4"));
    const VideoFrame frame = frameAt(pattern(kVideoSize, AV_PIX_FMT_YUV420P, 0).picture, 0);
    const VideoFrame other = frameAt(pattern(kVideoSize, AV_PIX_FMT_NV12, 0).picture, 0);
    {
        const LargeAllocations allocations(kPlaneSize / 4);
        EXPECT_TRUE(send(encoder, frame).ok);
        EXPECT_EQ(allocations.count(), 0U);
    }
    const LargeAllocations allocations(kPlaneSize / 4);
    EXPECT_TRUE(send(encoder, other).ok);
    EXPECT_GT(allocations.count(), 0U) << "a picture in another format is converted";
}

TEST_F(CodecInput, HasTheTimecodeOfAFrameInItsFormatOnly) {
    VideoEncoder encoder(videoConfig("mpeg4"));
    const SMPTE12Timecode timecode(1, 2, 3, 4, false, Timebase(1, 25));
    VideoFrame frame = frameAt(plainPicture(kVideoSize, AV_PIX_FMT_YUV420P, 1), 0);
    frame.addSideData(timecode);
    EXPECT_TRUE(send(encoder, frame).ok);
    const AVFrameSideData* sent = av_frame_get_side_data(mFrame.get(), AV_FRAME_DATA_S12M_TIMECODE);
    ASSERT_NE(sent, nullptr);
    std::uint32_t words[2];
    std::memcpy(words, sent->data, sizeof(words));
    EXPECT_EQ(words[0], 1U);
    EXPECT_EQ(words[1], timecode.toBinaryCodedDecimal());
    // As FFmpeg reads it.
    std::array<char, AV_TIMECODE_STR_SIZE> text{};
    EXPECT_STREQ(av_timecode_make_smpte_tc_string(text.data(), words[1], 0), "01:02:03:04");

    VideoFrame converted = frameAt(plainPicture(kVideoSize, AV_PIX_FMT_RGB24, 1), 0);
    converted.addSideData(timecode);
    EXPECT_TRUE(send(encoder, converted).ok);
    EXPECT_EQ(mCalls, 2);
    EXPECT_EQ(mFrame->nb_side_data, 0);
}

TEST_F(CodecInput, LeavesTheFrameOfTheCallerAlone) {
    VideoEncoder encoder(videoConfig("mpeg4"));
    VideoFrame frame = frameAt(plainPicture(kVideoSize, AV_PIX_FMT_YUV420P, 1), 40000);
    EXPECT_TRUE(send(encoder, frame).ok);
    EXPECT_EQ(frame.timestamp().value, 40000);
    EXPECT_EQ(frame.timestamp().timebase, Timebase());
}

TEST_F(CodecInput, IsNoneWhileAFilterKeepsTheFrame) {
    objstream::object config = videoConfig("mpeg4");
    config["filter"] = "reverse";
    VideoEncoder encoder(config);
    const Picture picture = plainPicture(kVideoSize, AV_PIX_FMT_YUV420P, 1);
    EXPECT_TRUE(send(encoder, frameAt(picture, 0, Frame::NoSignal)).ok);
    EXPECT_EQ(mCalls, 0);
    EXPECT_TRUE(encoder.wasNoSignalAt(Timestamp(Timebase(1, 25), 0)));
}

TEST_F(CodecInput, IsNoneForAPictureOfAnotherSize) {
    VideoEncoder encoder(videoConfig("mpeg4"));
    const LogCapture log;
    EXPECT_EQ(send(encoder, frameAt(plainPicture({32, 24}, AV_PIX_FMT_YUV420P, 1), 0)).error,
              AvError::InvalidArgument);
    EXPECT_EQ(mCalls, 0);
}

TEST_F(CodecInput, IsNoneOnceTheCodecRanOutOfMemory) {
    VideoEncoder encoder(videoConfig("mpeg4"));
    int calls = 0;
    const auto replaced = encoderCalls().avcodecSendFrame.replace([&calls](void*, const void*) {
        ++calls;
        return AvError::OutOfMemory.code();
    });
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(encoder.sendFrame(frameAt(plainPicture(kVideoSize, AV_PIX_FMT_YUV420P, 1), i)).error,
                  AvError::OutOfMemory);
    }
    EXPECT_EQ(calls, 1);
}

TEST_F(CodecInput, GivesTheResultOfTheCodec) {
    VideoEncoder encoder(videoConfig("mpeg4"));
    const auto replaced = encoderCalls().avcodecSendFrame.replace(
        [](void*, const void*) { return AvError::OutOfMemory.code(); });
    EXPECT_EQ(encoder.sendFrame(frameAt(plainPicture(kVideoSize, AV_PIX_FMT_YUV420P, 1), 0)).error,
              AvError::OutOfMemory);
}

// Replaces the call that FFmpeg builds with OMX encoders have.
int giveLinesizes(AVCodecContext* context, AVFrame* frame, int flags) {
    EXPECT_NE(avcodec_is_open(context), 0);
    EXPECT_EQ(flags, 4);
    EXPECT_EQ(frame->buf[0], nullptr);
    EXPECT_EQ(frame->data[0], nullptr);
    EXPECT_EQ(frame->linesize[0], 0);
    frame->linesize[0] = 2048;
    frame->linesize[1] = 1024;
    frame->linesize[2] = 512;
    return 0;
}

// Puts another call for buffers into every codec context.
auto replaceGetBuffer(int (*getBuffer)(AVCodecContext*, AVFrame*, int)) {
    return encoderCalls().avcodecAllocContext3.replace([getBuffer](const void* codec) {
        void* context = encoderCalls().avcodecAllocContext3.real(codec);
        static_cast<AVCodecContext*>(context)->get_buffer2 = getBuffer;
        return context;
    });
}

TEST(OmxEncoder, GivesItsLineSizes) {
    const auto alloc = replaceGetBuffer(giveLinesizes);
    objstream::object config = videoConfig("h264_omx");
    config["codec_id"] = "mpeg4";
    EXPECT_EQ(VideoEncoder(config).encoderLinesize(), (std::array<std::int32_t, 2>{2048, 1024}));
    config["codec"] = "hevc_omx";
    EXPECT_EQ(VideoEncoder(config).encoderLinesize(), (std::array<std::int32_t, 2>{2048, 1024}));
    config["codec"] = "mpeg4";
    EXPECT_EQ(VideoEncoder(config).encoderLinesize(), (std::array<std::int32_t, 2>{0, 0}));
}

TEST(OmxEncoder, IsAskedForThemBeforeTheFilterIsRead) {
    const auto alloc = replaceGetBuffer([](AVCodecContext*, AVFrame*, int) { return AVERROR(EINVAL); });
    objstream::object config = videoConfig("h264_omx");
    config["codec_id"] = "mpeg4";
    config["filter"] = objstream::object::map();
    EXPECT_THROW_TEXT(std::runtime_error, "Failed to get encoder properties", VideoEncoder{config});
}

TEST(OmxEncoder, MayHaveNoCallForThem) {
    const auto alloc = replaceGetBuffer(nullptr);
    objstream::object config = videoConfig("h264_omx");
    config["codec_id"] = "rawvideo";
    EXPECT_EQ(VideoEncoder(config).encoderLinesize(), (std::array<std::int32_t, 2>{0, 0}));
}

// A device without hardware: FFmpeg allocates its objects and does not initialise them.
class Vaapi : public testing::Test {
protected:
    Vaapi() { mConfig["vaapi_device"] = "/dev/dri/renderD128"; }

    static int createDevice(void** device, int type, const char* name, void* options, int flags) {
        EXPECT_EQ(type, AV_HWDEVICE_TYPE_VAAPI);
        EXPECT_STREQ(name, "/dev/dri/renderD128");
        EXPECT_EQ(options, nullptr);
        EXPECT_EQ(flags, 0);
        *device = av_hwdevice_ctx_alloc(AV_HWDEVICE_TYPE_VAAPI);
        return *device != nullptr ? 0 : AvError::OutOfMemory.code();
    }

    objstream::object mConfig = videoConfig("rawvideo", "yuv420p");
    Vaapi(const Vaapi&) = delete;
    Vaapi& operator=(const Vaapi&) = delete;
};

TEST_F(Vaapi, IsGivenToTheCodec) {
    const auto create = encoderCalls().avHwdeviceCtxCreate.replace(createDevice);
    const auto init = encoderCalls().avHwframeCtxInit.replace([](void* reference) {
        const auto& frames =
            *reinterpret_cast<AVHWFramesContext*>(static_cast<AVBufferRef*>(reference)->data);
        EXPECT_EQ(frames.format, AV_PIX_FMT_VAAPI);
        EXPECT_EQ(frames.sw_format, AV_PIX_FMT_NV12);
        EXPECT_EQ(frames.width, kVideoSize.width);
        EXPECT_EQ(frames.height, kVideoSize.height);
        EXPECT_EQ(frames.initial_pool_size, 0);
        return 0;
    });
    const LogCapture log(5);
    VideoEncoder encoder(mConfig);
    EXPECT_EQ(encoder.codecContext()->pix_fmt, AV_PIX_FMT_VAAPI);
    ASSERT_NE(encoder.codecContext()->hw_frames_ctx, nullptr);
    EXPECT_THAT(log.texts(),
                ElementsAre("video-encoder-rawvideo: VideoEncoder: vaapi_device: /dev/dri/renderD128"));
    // Pictures in memory do not reach it without a filter that uploads them.
    EXPECT_EQ(encoder.sendFrame(frameAt(plainPicture(kVideoSize, AV_PIX_FMT_YUV420P, 1), 0)).error,
              AvError::InvalidArgument);
}

// The graph's input pictures are in memory, and the filters upload them.
TEST_F(Vaapi, IsGivenToTheFilterWithTheFormatInMemory) {
    const void* device = nullptr;
    const auto create = encoderCalls().avHwdeviceCtxCreate.replace(
        [&device](void** created, int type, const char* name, void* options, int flags) {
            const int result = createDevice(created, type, name, options, flags);
            device = static_cast<const AVBufferRef*>(*created)->data;
            return result;
        });
    const auto init = encoderCalls().avHwframeCtxInit.replace([](void*) { return 0; });
    int configured = 0;
    const auto config = encoderCalls().avfilterGraphConfig.replace([&](void* given, void* log) {
        EXPECT_EQ(log, nullptr);
        ++configured;
        const auto& graph = *static_cast<AVFilterGraph*>(given);
        for (unsigned i = 0; i < graph.nb_filters; ++i) {
            AVFilterContext* filter = graph.filters[i];
            EXPECT_NE(filter->hw_device_ctx, nullptr) << filter->name;
            if (filter->hw_device_ctx != nullptr) {
                EXPECT_EQ(filter->hw_device_ctx->data, device) << filter->name;
            }
            if (std::strcmp(filter->name, "in") == 0) {
                AVPixelFormat format = AV_PIX_FMT_NONE;
                EXPECT_GE(av_opt_get_pixel_fmt(filter, "pix_fmt", AV_OPT_SEARCH_CHILDREN, &format), 0);
                EXPECT_EQ(format, AV_PIX_FMT_YUV444P);
            }
        }
        return 0;
    });
    mConfig["pix_fmt"] = "yuv444p";
    mConfig["filter"] = "format=nv12,hwupload";
    const VideoEncoder encoder(mConfig);
    EXPECT_EQ(configured, 1);
    EXPECT_EQ(encoder.codecContext()->pix_fmt, AV_PIX_FMT_VAAPI);
}

TEST_F(Vaapi, ThatFailsToOpenIsNamed) {
    const auto create = encoderCalls().avHwdeviceCtxCreate.replace(
        [](void**, int, const char*, void*, int) { return AvError::OutOfMemory.code(); });
    EXPECT_THROW_TEXT(FFmpegError,
                      "Failed to open VAAPI device: /dev/dri/renderD128 FFmpeg AV_ERROR: " +
                          AvError::OutOfMemory.toString(),
                      VideoEncoder{mConfig});
}

TEST_F(Vaapi, WithoutFramesFails) {
    const auto create = encoderCalls().avHwdeviceCtxCreate.replace(createDevice);
    const auto alloc = encoderCalls().avHwframeCtxAlloc.replace([](void*) { return nullptr; });
    EXPECT_THROW_TEXT(std::runtime_error, "Failed to create VAAPI frame context", VideoEncoder{mConfig});
}

TEST_F(Vaapi, WhoseFramesFailIsNamed) {
    const auto create = encoderCalls().avHwdeviceCtxCreate.replace(createDevice);
    const auto init =
        encoderCalls().avHwframeCtxInit.replace([](void*) { return AvError::InvalidArgument.code(); });
    EXPECT_THROW_TEXT(
        FFmpegError,
        "Failed to initialize VAAPI frame context, device: /dev/dri/renderD128 FFmpeg AV_ERROR: " +
            AvError::InvalidArgument.toString(),
        VideoEncoder{mConfig});
}

}  // namespace
}  // namespace vidorra
