#include "vidorra/process/apply_lut.h"

#include <algorithm>
#include <cstddef>

#include "ffmpeg/pixel_formats.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

namespace vidorra {

void applyLUT(Picture& picture, int component, const std::vector<unsigned char>& table) {
    const AVPixFmtDescriptor* descriptor = ffmpeg_ext::pixelFormatDescriptor(picture.pixelFormat());
    if (picture.empty() || descriptor == nullptr || (descriptor->flags & AV_PIX_FMT_FLAG_BITSTREAM) != 0) {
        return;
    }
    const AVComponentDescriptor& place = descriptor->comp[component];
    const std::ptrdiff_t step = place.step;
    if (step < 1) {
        return;
    }
    // Negative for some big-endian formats, which FFmpeg describes in 16-bit words.
    const std::ptrdiff_t offset = std::max(place.offset, 0);
    std::ptrdiff_t width = picture.frameSize().width;
    std::ptrdiff_t height = picture.frameSize().height;
    const bool isRgb = (descriptor->flags & AV_PIX_FMT_FLAG_RGB) != 0;
    if (!isRgb && (place.plane == 1 || place.plane == 2)) {
        width >>= descriptor->log2_chroma_w;
        height >>= descriptor->log2_chroma_h;
    }
    // Chroma that shares its plane with luma has fewer samples than the picture has columns.
    const std::ptrdiff_t bytes =
        ffmpeg_ext::rowBytes(picture.pixelFormat(), place.plane, picture.frameSize().width);
    width = std::min(width, (bytes - offset + step - 1) / step);
    // Local copies, since the compiler cannot know that no byte of a picture belongs to the table or the
    // descriptor.
    const unsigned char* const map = table.data();
    for (std::ptrdiff_t y = 0; y < height; ++y) {
        unsigned char* const row = picture.data()[place.plane] + y * picture.linesize()[place.plane] + offset;
        if (step == 1) {
            for (std::ptrdiff_t x = 0; x < width; ++x) {
                row[x] = map[row[x]];
            }
            continue;
        }
        for (std::ptrdiff_t x = 0; x < width; ++x) {
            row[x * step] = map[row[x * step]];
        }
    }
}

}  // namespace vidorra
