#include "platform/ffmpeg/drawing.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "platform/ffmpeg/pixel_formats.h"

extern "C" {
#include <libavutil/error.h>
#include <libavutil/pixdesc.h>
}

namespace vidorra::ffmpeg_ext {
namespace {

// AV_PIX_FMT_FLAG_PSEUDOPAL, which later generations no longer define.
constexpr std::uint64_t kPretendedPalette = 0x40;
// Others mean that a plane does not hold plain samples in the order of its bytes.
constexpr std::uint64_t kDrawableFlags =
    AV_PIX_FMT_FLAG_PLANAR | AV_PIX_FMT_FLAG_RGB | AV_PIX_FMT_FLAG_ALPHA | kPretendedPalette;

// Samples are written as one or two whole bytes, at most four of them in a pixel.
bool isDrawable(const AVComponentDescriptor& component) {
    const bool wholeBytes = component.shift == 0 || (component.shift + component.depth) % 8 == 0;
    const bool wide = component.step >= 8 || (component.step == 6 && component.depth == 16);
    return component.depth >= 8 && component.depth <= 16 && wholeBytes && !wide;
}

int ceilShift(int value, int shift) {
    return -(-value >> shift);
}

}  // namespace

int ff_draw_init(FFDrawContext* draw, AVPixelFormat format, unsigned flags) {
    const AVPixFmtDescriptor* desc = pixelFormatDescriptor(format);
    if (desc == nullptr || desc->name == nullptr) {
        return AVERROR(EINVAL);
    }
    if ((desc->flags & ~kDrawableFlags) != 0) {
        return AVERROR(ENOSYS);
    }
    FFDrawContext result;
    for (int i = 0; i < desc->nb_components; ++i) {
        const AVComponentDescriptor& component = desc->comp[i];
        int& step = result.pixelstep[component.plane];
        // Unequal distances are those of packed formats with subsampled chroma.
        if (!isDrawable(component) || (step != 0 && step != component.step)) {
            return AVERROR(ENOSYS);
        }
        step = component.step;
        result.nb_planes = std::max(result.nb_planes, static_cast<unsigned>(component.plane) + 1);
    }
    result.desc = desc;
    result.format = format;
    result.hsub[1] = result.hsub[2] = result.hsub_max = desc->log2_chroma_w;
    result.vsub[1] = result.vsub[2] = result.vsub_max = desc->log2_chroma_h;
    result.full_range = (flags & kDrawFullRange) != 0;
    result.flags = flags;
    *draw = result;
    return 0;
}

void ff_copy_rectangle2(const FFDrawContext* draw, std::uint8_t* const dst[], const int dstLinesize[],
                        const std::uint8_t* const src[], const int srcLinesize[], int dstX, int dstY,
                        int srcX, int srcY, int width, int height) {
    for (unsigned plane = 0; plane < draw->nb_planes; ++plane) {
        const std::ptrdiff_t step = draw->pixelstep[plane];
        if (step == 0) {
            continue;
        }
        const int hsub = draw->hsub[plane];
        const int vsub = draw->vsub[plane];
        const std::ptrdiff_t toStride = dstLinesize[plane];
        const std::ptrdiff_t fromStride = srcLinesize[plane];
        std::uint8_t* to = dst[plane] + (dstY >> vsub) * toStride + (dstX >> hsub) * step;
        const std::uint8_t* from = src[plane] + (srcY >> vsub) * fromStride + (srcX >> hsub) * step;
        const auto bytes = static_cast<std::size_t>(ceilShift(width, hsub) * step);
        const int rows = ceilShift(height, vsub);
        for (int row = 0; row < rows; ++row) {
            std::memcpy(to + row * toStride, from + row * fromStride, bytes);
        }
    }
}

}  // namespace vidorra::ffmpeg_ext
