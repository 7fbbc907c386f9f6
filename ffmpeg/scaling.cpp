#include "ffmpeg/scaling.h"

#include "ffmpeg/owners.h"
#include "ffmpeg/pixel_formats.h"
#include "ffmpeg/versions.h"

extern "C" {
#include <libavutil/imgutils.h>
#include <libswscale/swscale.h>
}

namespace vidorra::ffmpeg_ext {

SwsContext* cachedScaler(SwsContext* context, const ScalerParameters& parameters) {
    const auto isPicture = [](int width, int height, AVPixelFormat format) {
        return isStockFormat(format) && av_image_check_size(static_cast<unsigned>(width),
                                                            static_cast<unsigned>(height), 0, nullptr) >= 0;
    };
    Owner<SwsContext> owner = adopt(context);
    const auto& [srcWidth, srcHeight, srcFormat, dstWidth, dstHeight, dstFormat, flags] = parameters;
    if (!isPicture(srcWidth, srcHeight, srcFormat) || !isPicture(dstWidth, dstHeight, dstFormat)) {
        return nullptr;
    }
    return sws_getCachedContext(dropOtherScaler(owner.release(), parameters), srcWidth, srcHeight, srcFormat,
                                dstWidth, dstHeight, dstFormat, flags, nullptr, nullptr, nullptr);
}

SwsContext* dropOtherScaler(SwsContext* context, const ScalerParameters& parameters) {
#if SCALER_HANDS_ITS_RANGES_ON
    if (context != nullptr &&
        (context->src_w != parameters.srcWidth || context->src_h != parameters.srcHeight ||
         context->src_format != parameters.srcFormat || context->dst_w != parameters.dstWidth ||
         context->dst_h != parameters.dstHeight || context->dst_format != parameters.dstFormat ||
         context->flags != static_cast<unsigned>(parameters.flags))) {
        release(context);
        return nullptr;
    }
#else
    static_cast<void>(parameters);
#endif
    return context;
}

}  // namespace vidorra::ffmpeg_ext
