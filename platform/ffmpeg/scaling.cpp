#include "platform/ffmpeg/scaling.h"

#include "platform/ffmpeg/pixel_formats.h"

extern "C" {
#include <libavutil/imgutils.h>
#include <libswscale/swscale.h>
}

namespace vidorra::ffmpeg_ext {

SwsContext* cachedScaler(SwsContext* context, int srcWidth, int srcHeight, AVPixelFormat srcFormat,
                         int dstWidth, int dstHeight, AVPixelFormat dstFormat, int flags) {
    const auto isPicture = [](int width, int height, AVPixelFormat format) {
        return isStockFormat(format) && av_image_check_size(static_cast<unsigned>(width),
                                                            static_cast<unsigned>(height), 0, nullptr) >= 0;
    };
    if (!isPicture(srcWidth, srcHeight, srcFormat) || !isPicture(dstWidth, dstHeight, dstFormat)) {
        sws_freeContext(context);
        return nullptr;
    }
    return sws_getCachedContext(context, srcWidth, srcHeight, srcFormat, dstWidth, dstHeight, dstFormat,
                                flags, nullptr, nullptr, nullptr);
}

}  // namespace vidorra::ffmpeg_ext
