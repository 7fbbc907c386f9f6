#include "platform/ffmpeg/scaling.h"

#include <algorithm>
#include <cstdint>
#include <iterator>

#include "platform/ffmpeg/pixel_formats.h"

extern "C" {
#include <libavutil/imgutils.h>
#include <libavutil/opt.h>
#include <libswscale/swscale.h>
}

namespace vidorra::ffmpeg_ext {
namespace {

struct Setting {
    const char* option;
    std::int64_t value;
};

bool has(SwsContext* context, const Setting& setting) {
    std::int64_t value = 0;
    return av_opt_get_int(context, setting.option, 0, &value) >= 0 && value == setting.value;
}

}  // namespace

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
    const Setting settings[] = {{"srcw", srcWidth},  {"srch", srcHeight}, {"src_format", srcFormat},
                                {"dstw", dstWidth},  {"dsth", dstHeight}, {"dst_format", dstFormat},
                                {"sws_flags", flags}};
    // A context that FFmpeg replaces leaves its colour ranges to the next one in some generations.
    if (context != nullptr &&
        !std::all_of(std::begin(settings), std::end(settings),
                     [context](const Setting& setting) { return has(context, setting); })) {
        sws_freeContext(context);
        context = nullptr;
    }
    return sws_getCachedContext(context, srcWidth, srcHeight, srcFormat, dstWidth, dstHeight, dstFormat,
                                flags, nullptr, nullptr, nullptr);
}

}  // namespace vidorra::ffmpeg_ext
