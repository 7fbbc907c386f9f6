#include "vidorra/core/av_ptr.h"

#include "ffmpeg/owners.h"

extern "C" {
#include <libavcodec/packet.h>
#include <libavutil/frame.h>
}

namespace vidorra {

template <>
AvPtr<AVFrame> makeAvPtr<AVFrame>() {
    return ffmpeg_ext::adopt(av_frame_alloc());
}

template <>
AvPtr<AVPacket> makeAvPtr<AVPacket>() {
    return ffmpeg_ext::adopt(av_packet_alloc());
}

template <>
AvPtr<AVBufferRef> makeAvPtr<AVBufferRef>(AVBufferRef* adopted) {
    return ffmpeg_ext::adopt(adopted);
}

}  // namespace vidorra
