#include "vidorra/demux/video_decoder.h"

#include "core/log.h"
#include "platform/ffmpeg/pixel_formats.h"

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace vidorra {
namespace {

int withoutImpliedRange(int format) {
    switch (format) {
    case AV_PIX_FMT_YUVJ420P:
        return AV_PIX_FMT_YUV420P;
    case AV_PIX_FMT_YUVJ422P:
        return AV_PIX_FMT_YUV422P;
    case AV_PIX_FMT_YUVJ444P:
        return AV_PIX_FMT_YUV444P;
    case AV_PIX_FMT_YUVJ440P:
        return AV_PIX_FMT_YUV440P;
    case AV_PIX_FMT_YUVJ411P:
        return AV_PIX_FMT_YUV411P;
    default:
        return format;
    }
}

}  // namespace

VideoDecoder::~VideoDecoder() = default;

tl::expected<AvPtr<AVFrame>, AvError> VideoDecoder::receiveAvFrame() const {
    tl::expected<AvPtr<AVFrame>, AvError> received = DecoderBase::receiveAvFrame();
    if (!received) {
        return received;
    }
    AVFrame& frame = **received;
    if (ffmpeg_ext::isForeignNva12(frame)) {
        logger::log(kLogWarning, prefix())
            << "Frame refused: FFmpeg gives its pixel format the number of " << to_string(NVA12);
        return tl::unexpected(AvError::InvalidData);
    }
    frame.format = withoutImpliedRange(frame.format);
    if (frame.color_range == AVCOL_RANGE_UNSPECIFIED) {
        frame.color_range = codecContext()->color_range;
    }
    return received;
}

tl::expected<VideoFrame, AvError> VideoDecoder::receive() const {
    return receiveAvFrame().map([](const AvPtr<AVFrame>& frame) { return toVideoFrame(*frame); });
}

VideoFrame VideoDecoder::toVideoFrame(AVFrame& frame) {
    return {Picture(&frame), Timestamp(Timebase(), frame.best_effort_timestamp), Frame::NoFlags};
}

}  // namespace vidorra
