#include "ffmpeg/encoder_formats.h"

#include <cstring>

#include "ffmpeg/pixel_formats.h"
#include "ffmpeg/versions.h"

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace vidorra::ffmpeg_ext {

AVSampleFormat firstSampleFormat(const AVCodec& codec) {
#if HAVE_SUPPORTED_CONFIG
    const void* list = nullptr;
    int count = 0;
    const int res =
        avcodec_get_supported_config(nullptr, &codec, AV_CODEC_CONFIG_SAMPLE_FORMAT, 0, &list, &count);
    return res >= 0 && list != nullptr && count > 0 ? *static_cast<const AVSampleFormat*>(list)
                                                    : AV_SAMPLE_FMT_NONE;
#else
    return codec.sample_fmts != nullptr ? codec.sample_fmts[0] : AV_SAMPLE_FMT_NONE;
#endif
}

std::optional<std::vector<AVPixelFormat>> encoderPixelFormats(const AVCodec& encoder) {
    const AVPixelFormat* list = nullptr;
#if HAVE_SUPPORTED_CONFIG
    // Without a context, since with one the list depends on its settings.
    const void* configs = nullptr;
    if (avcodec_get_supported_config(nullptr, &encoder, AV_CODEC_CONFIG_PIX_FORMAT, 0, &configs, nullptr) >=
        0) {
        list = static_cast<const AVPixelFormat*>(configs);
    }
#else
    list = encoder.pix_fmts;
#endif
    if (list == nullptr) {
        return std::nullopt;
    }
    std::vector<AVPixelFormat> formats;
    for (; *list != AV_PIX_FMT_NONE; ++list) {
        if (*list != kNva12 || hasNva12()) {
            formats.push_back(*list);
        }
    }
#if MJPEG_LISTS_HALF_ITS_FORMATS
    // It accepts these as well, as later versions declare.
    if (std::strcmp(encoder.name, "mjpeg") == 0) {
        formats.insert(formats.end(), {AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUV422P, AV_PIX_FMT_YUV444P});
    }
#endif
    return formats;
}

}  // namespace vidorra::ffmpeg_ext
