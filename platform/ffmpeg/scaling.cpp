#include "platform/ffmpeg/scaling.h"

#include "platform/ffmpeg/pixel_formats.h"

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
    const auto& [srcWidth, srcHeight, srcFormat, dstWidth, dstHeight, dstFormat, flags] = parameters;
    if (!isPicture(srcWidth, srcHeight, srcFormat) || !isPicture(dstWidth, dstHeight, dstFormat)) {
        sws_freeContext(context);
        return nullptr;
    }
    return sws_getCachedContext(dropOtherScaler(context, parameters), srcWidth, srcHeight, srcFormat,
                                dstWidth, dstHeight, dstFormat, flags, nullptr, nullptr, nullptr);
}

}  // namespace vidorra::ffmpeg_ext
