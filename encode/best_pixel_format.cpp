#include "encode/best_pixel_format.h"

#include <algorithm>
#include <stdexcept>

#include "ffmpeg/encoder_formats.h"
#include "ffmpeg/pixel_formats.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

namespace vidorra {

AVPixelFormat bestPixelFormat(const AVCodec* encoder, AVPixelFormat wanted) {
    if (encoder == nullptr) {
        throw std::logic_error("codec parameter cannot be nullptr");
    }
    const auto formats = ffmpeg_ext::encoderPixelFormats(*encoder);
    if (!formats || formats->empty()) {
        return AV_PIX_FMT_NONE;
    }
    if (std::find(formats->begin(), formats->end(), wanted) != formats->end()) {
        return wanted;
    }
    const AVPixFmtDescriptor* wantedDescriptor = ffmpeg_ext::pixelFormatDescriptor(wanted);
    const auto alpha = [](const AVPixFmtDescriptor& descriptor) {
        return descriptor.flags & AV_PIX_FMT_FLAG_ALPHA;
    };
    const auto wantedAlpha = wantedDescriptor != nullptr ? alpha(*wantedDescriptor) : 0;
    const auto found = std::find_if(formats->begin(), formats->end(), [&](AVPixelFormat format) {
        const AVPixFmtDescriptor* descriptor = ffmpeg_ext::pixelFormatDescriptor(format);
        return descriptor != nullptr && alpha(*descriptor) == wantedAlpha;
    });
    return found != formats->end() ? *found : formats->front();
}

}  // namespace vidorra
