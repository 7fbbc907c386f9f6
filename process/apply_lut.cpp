#include "vidorra/process/apply_lut.h"

#include <cstddef>

#include "ffmpeg/pixel_formats.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

namespace vidorra {

void applyLUT(Picture& picture, int component, const std::vector<unsigned char>& table) {
    const AVPixFmtDescriptor* descriptor = ffmpeg_ext::pixelFormatDescriptor(picture.pixelFormat());
    if (descriptor == nullptr) {
        return;
    }
    const AVComponentDescriptor& place = descriptor->comp[component];
    std::ptrdiff_t width = picture.frameSize().width;
    std::ptrdiff_t height = picture.frameSize().height;
    const bool isRgb = (descriptor->flags & AV_PIX_FMT_FLAG_RGB) != 0;
    if (!isRgb && (place.plane == 1 || place.plane == 2)) {
        width >>= descriptor->log2_chroma_w;
        height >>= descriptor->log2_chroma_h;
    }
    // In locals: the compiler cannot know that no byte of a picture belongs to the table or the descriptor.
    const unsigned char* const map = table.data();
    const std::ptrdiff_t step = place.step;
    for (std::ptrdiff_t y = 0; y < height; ++y) {
        unsigned char* const row =
            picture.data()[place.plane] + y * picture.linesize()[place.plane] + place.offset;
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
