#pragma once

#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "objstream/object.h"
#include "vidorra/encode/encoder_base.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/frame.h>
}

namespace vidorra::test {

inline constexpr int kWidth = 32;
inline constexpr int kHeight = 16;

/// A configuration that chooses an encoder by name.
inline objstream::object configFor(const std::string& encoder) {
    objstream::object config;
    config["codec"] = encoder;
    return config;
}

/// A gray picture whose brightness tells its number.
inline AvPtr<AVFrame> numberedFrame(int number) {
    AvPtr<AVFrame> frame = makeAvPtr<AVFrame>();
    frame->format = AV_PIX_FMT_YUV420P;
    frame->width = kWidth;
    frame->height = kHeight;
    frame->pts = number;
    if (av_frame_get_buffer(frame.get(), 0) < 0) {
        throw std::bad_alloc();
    }
    for (int plane = 0; plane < 3; ++plane) {
        const int rows = plane == 0 ? kHeight : kHeight / 2;
        std::memset(frame->data[plane], 16 + 5 * number + plane,
                    static_cast<std::size_t>(frame->linesize[plane]) * static_cast<std::size_t>(rows));
    }
    return frame;
}

/// What every encoder needs before it is opened.
inline void fillContext(AVCodecContext& context) {
    context.width = kWidth;
    context.height = kHeight;
    context.time_base = AVRational{1, 25};
    context.pix_fmt = AV_PIX_FMT_YUV420P;
}

/// A minimal derived encoder: frames are sent to FFmpeg unchanged.
class PlainEncoder : public EncoderBase {
public:
    explicit PlainEncoder(const objstream::object& config) : EncoderBase(config, "plain") {
        fillContext(*context());
    }

    using EncoderBase::context;
    using EncoderBase::logName;

    AvRes send(const AVFrame& frame, bool noSignal = false) {
        pushNoSignalState(noSignal, Timestamp(context()->time_base, frame.pts));
        return avcodec_send_frame(context(), &frame);
    }
};

}  // namespace vidorra::test
