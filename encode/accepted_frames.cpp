#include "encode/accepted_frames.h"

#include <cstdlib>

#include "ffmpeg/pixel_formats.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/frame.h>
#include <libavutil/pixdesc.h>
}

namespace vidorra {

bool encoderAccepts(const AVCodecContext& encoder, const AVFrame& frame) {
    if (frame.format != encoder.pix_fmt || frame.width != encoder.width || frame.height != encoder.height) {
        return false;
    }
    // An FFmpeg without this format uses its number for another one.
    if (encoder.pix_fmt == ffmpeg_ext::kNva12 && !ffmpeg_ext::hasNva12()) {
        return false;
    }
    const AVPixFmtDescriptor* descriptor = ffmpeg_ext::pixelFormatDescriptor(encoder.pix_fmt);
    if (descriptor == nullptr) {
        return false;
    }
    if ((descriptor->flags & AV_PIX_FMT_FLAG_HWACCEL) != 0) {
        return true;
    }
    std::uint8_t* planes[4] = {};
    int linesizes[4] = {};
    if (ffmpeg_ext::fillImageArrays(planes, linesizes, nullptr, encoder.pix_fmt, frame.width, frame.height,
                                    1) < 0) {
        return false;
    }
    for (int i = 0; i < descriptor->nb_components; ++i) {
        const int plane = descriptor->comp[i].plane;
        if (frame.data[plane] == nullptr || std::abs(frame.linesize[plane]) < linesizes[plane]) {
            return false;
        }
    }
    return true;
}

}  // namespace vidorra
