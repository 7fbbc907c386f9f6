#include "encode/accepted_frames.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>

#include "vidorra/core/av_ptr.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/frame.h>
}

namespace vidorra {
namespace {

using ContextPtr = std::unique_ptr<AVCodecContext, void (*)(AVCodecContext*)>;

ContextPtr encoderFor(AVPixelFormat format) {
    ContextPtr context(avcodec_alloc_context3(nullptr),
                       [](AVCodecContext* freed) { avcodec_free_context(&freed); });
    context->pix_fmt = format;
    context->width = 64;
    context->height = 48;
    return context;
}

AvPtr<AVFrame> frameOf(AVPixelFormat format, bool inMemory = true) {
    AvPtr<AVFrame> frame = makeAvPtr<AVFrame>();
    frame->format = format;
    frame->width = 64;
    frame->height = 48;
    if (inMemory) {
        EXPECT_GE(av_frame_get_buffer(frame.get(), 0), 0);
    }
    return frame;
}

TEST(AcceptedFrames, AreOfTheSizeAndFormatOfTheEncoder) {
    struct Row {
        const char* name;
        std::function<void(AVFrame&)> change;
        bool accepted;
    };
    for (const Row& row :
         {Row{"as it is", [](AVFrame&) {}, true}, Row{"wider", [](AVFrame& frame) { ++frame.width; }, false},
          Row{"higher", [](AVFrame& frame) { ++frame.height; }, false},
          Row{"another format", [](AVFrame& frame) { frame.format = AV_PIX_FMT_YUVJ420P; }, false},
          Row{"no V", [](AVFrame& frame) { frame.data[2] = nullptr; }, false},
          Row{"short rows of U", [](AVFrame& frame) { frame.linesize[1] = 31; }, false},
          Row{"shortest rows of U", [](AVFrame& frame) { frame.linesize[1] = 32; }, true},
          // As the filter "vflip" makes them.
          Row{"rows upwards", [](AVFrame& frame) { frame.linesize[0] *= -1; }, true},
          Row{"short rows upwards", [](AVFrame& frame) { frame.linesize[0] = -63; }, false}}) {
        SCOPED_TRACE(row.name);
        const ContextPtr encoder = encoderFor(AV_PIX_FMT_YUV420P);
        const AvPtr<AVFrame> frame = frameOf(AV_PIX_FMT_YUV420P);
        row.change(*frame);
        EXPECT_EQ(encoderAccepts(*encoder, *frame), row.accepted);
    }
}

TEST(AcceptedFrames, OfADeviceHaveNoPlanesToLookAt) {
    const ContextPtr encoder = encoderFor(AV_PIX_FMT_VAAPI);
    const AvPtr<AVFrame> frame = frameOf(AV_PIX_FMT_VAAPI, false);
    EXPECT_TRUE(encoderAccepts(*encoder, *frame));
    frame->height = 46;
    EXPECT_FALSE(encoderAccepts(*encoder, *frame));
    EXPECT_FALSE(encoderAccepts(*encoder, *frameOf(AV_PIX_FMT_NV12)));
}

TEST(AcceptedFrames, AreNoneWithoutAFormat) {
    EXPECT_FALSE(encoderAccepts(*encoderFor(AV_PIX_FMT_NONE), *frameOf(AV_PIX_FMT_NONE, false)));
}

}  // namespace
}  // namespace vidorra
