#include "ffmpeg/frame_duration.h"

#include "ffmpeg/versions.h"

extern "C" {
#include <libavutil/frame.h>
}

namespace vidorra::ffmpeg_ext {

std::int64_t frameDuration(const AVFrame& frame) {
#if HAVE_FRAME_DURATION
    return frame.duration;
#else
    return frame.pkt_duration;
#endif
}

void setFrameDuration(AVFrame& frame, std::int64_t duration) {
#if HAVE_FRAME_DURATION
    frame.duration = duration;
#else
    frame.pkt_duration = duration;
#endif
}

}  // namespace vidorra::ffmpeg_ext
