#pragma once

extern "C" {
#include <libavutil/pixfmt.h>
}

struct SwsContext;

namespace vidorra::ffmpeg_ext {

/// The parameters of a libswscale context.
struct ScalerParameters {
    int srcWidth;
    int srcHeight;
    AVPixelFormat srcFormat;
    int dstWidth;
    int dstHeight;
    AVPixelFormat dstFormat;
    int flags;
};

/// sws_getCachedContext: returns `context` if it was made for the same parameters, otherwise frees it and
/// makes a new one, which inherits nothing. Returns null, with `context` freed, for sizes and formats that
/// libswscale does not take, including two that it would not refuse itself: no format at all, and NVA12,
/// whose number libswscale uses for another format.
SwsContext* cachedScaler(SwsContext* context, const ScalerParameters& parameters);

/// Frees a context that was made for other parameters and returns null, if this version's
/// sws_getCachedContext would pass its colour ranges on to the next context. With other versions it returns
/// `context` unchanged.
SwsContext* dropOtherScaler(SwsContext* context, const ScalerParameters& parameters);

}  // namespace vidorra::ffmpeg_ext
