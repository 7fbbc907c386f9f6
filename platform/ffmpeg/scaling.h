#pragma once

extern "C" {
#include <libavutil/pixfmt.h>
}

struct SwsContext;

namespace vidorra::ffmpeg_ext {

/// sws_getCachedContext without filters and parameters: gives `context` back if it was made for the same,
/// else frees it and makes another, which has nothing of it. Null, with `context` freed, for sizes and
/// formats that libswscale does not take. Some of them it would not refuse itself: no format at all, and
/// NVA12, whose number means another format to it.
SwsContext* cachedScaler(SwsContext* context, int srcWidth, int srcHeight, AVPixelFormat srcFormat,
                         int dstWidth, int dstHeight, AVPixelFormat dstFormat, int flags);

}  // namespace vidorra::ffmpeg_ext
