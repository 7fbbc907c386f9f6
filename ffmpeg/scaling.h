#pragma once

extern "C" {
#include <libavutil/pixfmt.h>
}

struct SwsContext;

namespace vidorra::ffmpeg_ext {

/// What a context of libswscale is made for.
struct ScalerParameters {
    int srcWidth;
    int srcHeight;
    AVPixelFormat srcFormat;
    int dstWidth;
    int dstHeight;
    AVPixelFormat dstFormat;
    int flags;
};

/// sws_getCachedContext: gives `context` back if it was made for the same, else frees it and makes another,
/// which has nothing of it. Null, with `context` freed, for sizes and formats that libswscale does not take.
/// Some of them it would not refuse itself: no format at all, and NVA12, whose number means another format to
/// it.
SwsContext* cachedScaler(SwsContext* context, const ScalerParameters& parameters);

/// Frees a context that was made for something else, and gives null then, where sws_getCachedContext would
/// hand its colour ranges on to the next one. In generations that do not, it is given back as it is.
SwsContext* dropOtherScaler(SwsContext* context, const ScalerParameters& parameters);

}  // namespace vidorra::ffmpeg_ext
