#include "vidorra/core/av_ptr.h"

extern "C" {
#include <libavcodec/packet.h>
#include <libavutil/buffer.h>
#include <libavutil/frame.h>
}

namespace vidorra {

template <>
AvPtr<AVFrame> makeAvPtr<AVFrame>() {
    return {av_frame_alloc(), [](AVFrame* frame) { av_frame_free(&frame); }};
}

template <>
AvPtr<AVPacket> makeAvPtr<AVPacket>() {
    return {av_packet_alloc(), [](AVPacket* packet) { av_packet_free(&packet); }};
}

template <>
AvPtr<AVBufferRef> makeAvPtr<AVBufferRef>(AVBufferRef* adopted) {
    return {adopted, [](AVBufferRef* ref) { av_buffer_unref(&ref); }};
}

}  // namespace vidorra
