#include "process/drawing/ff_draw.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>

#include "ffmpeg/pixel_formats.h"

extern "C" {
#include <libavutil/error.h>
#include <libavutil/pixdesc.h>
}

namespace vidorra::ffmpeg_ext {
namespace {

// AV_PIX_FMT_FLAG_PSEUDOPAL, which later versions no longer define.
constexpr std::uint64_t kPretendedPalette = 0x40;
// Any other flag means that a plane does not hold plain samples in byte order.
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

// The colour's components as fractions of the largest sample, in the format's order.
std::array<double, 4> componentsOf(const FFDrawContext& draw, const FFDrawColor& color) {
    const double red = color.rgba[0] / 255.0;
    const double green = color.rgba[1] / 255.0;
    const double blue = color.rgba[2] / 255.0;
    const double alpha = color.rgba[3] / 255.0;
    if ((draw.desc->flags & AV_PIX_FMT_FLAG_RGB) != 0) {
        return {red, green, blue, alpha};
    }
    constexpr double kRed = 0.299;
    constexpr double kGreen = 0.587;
    constexpr double kBlue = 0.114;
    constexpr double kBlueScale = 0.5 / (kBlue - 1.0);
    constexpr double kRedScale = 0.5 / (kRed - 1.0);
    double luma = kRed * red + kGreen * green + kBlue * blue;
    double blueDifference = kBlueScale * kRed * red + kBlueScale * kGreen * green + 0.5 * blue;
    double redDifference = 0.5 * red + kRedScale * kGreen * green + kRedScale * kBlue * blue;
    if (!draw.full_range) {
        luma = luma * 219.0 / 255.0 + 16.0 / 255.0;
        blueDifference *= 224.0 / 255.0;
        redDifference *= 224.0 / 255.0;
    }
    if (draw.desc->nb_components <= 2) {
        return {luma, alpha, 0.0, 0.0};
    }
    const double neutral = draw.full_range ? 0.5 : 128.0 / 255.0;
    return {luma, blueDifference + neutral, redDifference + neutral, alpha};
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
        // Packed formats with subsampled chroma have unequal distances.
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
    result.full_range = (flags & kDrawFullRange) != 0 || withoutImpliedRange(format) != format;
    result.flags = flags;
    *draw = result;
    return 0;
}

void ff_draw_color(const FFDrawContext* draw, FFDrawColor* color, const std::uint8_t rgba[4]) {
    FFDrawColor result;
    std::copy_n(rgba, 4, result.rgba);
    const std::array<double, 4> values = componentsOf(*draw, result);
    for (int i = 0; i < draw->desc->nb_components; ++i) {
        const AVComponentDescriptor& component = draw->desc->comp[i];
        // Deliberate: the range includes the bits below a sample's own, so that they are set too.
        const int largest = (1 << (component.depth + component.shift)) - 1;
        const auto sample = static_cast<unsigned>(std::clamp(values[i] * largest + 0.5, 0.0, largest + 0.0));
        std::uint8_t* bytes = result.comp[component.plane] + component.offset;
        bytes[0] = static_cast<std::uint8_t>(sample);
        if (component.depth > 8) {
            bytes[1] = static_cast<std::uint8_t>(sample >> 8);
        }
    }
    *color = result;
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

void ff_fill_rectangle(const FFDrawContext* draw, const FFDrawColor* color, std::uint8_t* const dst[],
                       const int dstLinesize[], int dstX, int dstY, int width, int height) {
    for (unsigned plane = 0; plane < draw->nb_planes; ++plane) {
        const std::ptrdiff_t step = draw->pixelstep[plane];
        const int hsub = draw->hsub[plane];
        const int vsub = draw->vsub[plane];
        const std::ptrdiff_t stride = dstLinesize[plane];
        const std::ptrdiff_t bytes = ceilShift(width, hsub) * step;
        const int rows = ceilShift(height, vsub);
        if (bytes <= 0 || rows <= 0) {
            continue;
        }
        std::uint8_t* first = dst[plane] + (dstY >> vsub) * stride + (dstX >> hsub) * step;
        std::memcpy(first, color->comp[plane], static_cast<std::size_t>(step));
        // Doubles the written part of the first row until the row is full.
        for (std::ptrdiff_t filled = step; filled < bytes;) {
            const std::ptrdiff_t more = std::min(filled, bytes - filled);
            std::memcpy(first + filled, first, static_cast<std::size_t>(more));
            filled += more;
        }
        for (int row = 1; row < rows; ++row) {
            std::memcpy(first + row * stride, first, static_cast<std::size_t>(bytes));
        }
    }
}

}  // namespace vidorra::ffmpeg_ext
