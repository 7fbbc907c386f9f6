// Blending of planes on the calling thread.

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <optional>

#include "process/alphablend/equations.h"
#include "process/alphablend/kernels.h"
#include "process/alphablend/opacity.h"
#include "vidorra/process/alphablend/blend.h"

namespace vidorra::alphablend {
namespace {

using pixel_format::NV12;
using pixel_format::NVA12;

// Rows between which nothing lies are one long row.
void joinRows(std::ptrdiff_t& rows, std::ptrdiff_t& bytes, int dstLinesize, int srcLinesize) {
    if (rows > 0 && bytes == dstLinesize && bytes == srcLinesize) {
        bytes *= rows;
        rows = 1;
    }
}

// Full opacity: only the source's own alpha counts.
struct BlenderRefNoGlobalAlpha {
    const Kernels* set = &kernels();

    // The equation with an alpha of 255 gives the source itself.
    void blendRow(unsigned char* dst, const unsigned char* src, std::ptrdiff_t count) const {
        std::memcpy(dst, src, static_cast<std::size_t>(count));
    }
    void blendNva12(const RowPair& dst, const SourceRowPair& src, std::ptrdiff_t columns) const {
        set->blendNva12(dst, src, columns);
    }
    [[nodiscard]] unsigned char blendLast(unsigned char s, unsigned char) const { return s; }
};

struct BlenderRefWithGlobalAlpha {
    unsigned char opacity;
    const Kernels* set = &kernels();

    void blendRow(unsigned char* dst, const unsigned char* src, std::ptrdiff_t count) const {
        set->fade(dst, src, count, opacity);
    }
    void blendNva12(const RowPair& dst, const SourceRowPair& src, std::ptrdiff_t columns) const {
        set->fadeNva12(dst, src, columns, opacity);
    }
    // Deliberate: the odd last column is rounded to nearest, all others follow another equation.
    [[nodiscard]] unsigned char blendLast(unsigned char s, unsigned char d) const {
        return blend255(s, d, opacity);
    }
};

// Deliberate: an odd last row of luma stays unchanged, and of the U,V pair that an odd last column covers by
// half, U is blended and V stays.
template <class Blender>
void blendPlanesOfSameSizeImpl(const Planes<NV12, unsigned char*>& dst,
                               const Planes<NV12, const unsigned char*>& src, const Blender& blender) {
    if (dst.width < 1) {
        return;
    }
    // One plane after the other: the hardware follows two streams better than six.
    for (const int plane : {0, 1}) {
        std::ptrdiff_t even = dst.width & ~1;
        std::ptrdiff_t rows = plane == 0 ? dst.height & ~1 : dst.height >> 1;
        if ((dst.width & 1) == 0) {
            joinRows(rows, even, dst.linesize[plane], src.linesize[plane]);
        }
        for (std::ptrdiff_t row = 0; row < rows; ++row) {
            unsigned char* to = dst.data[plane] + row * dst.linesize[plane];
            const unsigned char* from = src.data[plane] + row * src.linesize[plane];
            blender.blendRow(to, from, even);
            if ((dst.width & 1) != 0) {
                to[even] = blender.blendLast(from[even], to[even]);
            }
        }
    }
}

RowPair rowPair(const Planes<NV12, unsigned char*>& planes, std::ptrdiff_t pair) {
    unsigned char* luma = planes.data[0] + 2 * pair * planes.linesize[0];
    return {{luma, luma + planes.linesize[0]}, planes.data[1] + pair * planes.linesize[1]};
}

SourceRowPair rowPair(const Planes<NVA12, const unsigned char*>& planes, std::ptrdiff_t pair) {
    const unsigned char* luma = planes.data[0] + 2 * pair * planes.linesize[0];
    const unsigned char* alpha = planes.data[3] + 2 * pair * planes.linesize[3];
    return {{luma, luma + planes.linesize[0]},
            planes.data[1] + pair * planes.linesize[1],
            {alpha, alpha + planes.linesize[3]}};
}

// Deliberate: an odd last row or column stays as it is.
template <class Blender>
void blendPlanesOfSameSizeImpl(const Planes<NV12, unsigned char*>& dst,
                               const Planes<NVA12, const unsigned char*>& src, const Blender& blender) {
    if (dst.width < 2) {
        return;
    }
    for (std::ptrdiff_t pair = 0; pair < dst.height >> 1; ++pair) {
        blender.blendNva12(rowPair(dst, pair), rowPair(src, pair), dst.width & ~1);
    }
}

// The rows and bytes of a row of the source that lie on the destination, and where they lie in both.
struct Clip {
    const unsigned char* src;
    unsigned char* dst;
    std::ptrdiff_t rows;
    std::ptrdiff_t bytes;
};

// Positions are computed wide, those near the limits of int are far outside.
std::optional<Clip> clip(int bytesPerPixel, unsigned char* dst, int dstLinesize, int dstWidth, int dstHeight,
                         const unsigned char* src, int srcLinesize, int srcWidth, int srcHeight, int x,
                         int y) {
    const std::int64_t firstRow = std::max<std::int64_t>(-std::int64_t{y}, 0);
    const std::int64_t endRow = std::min<std::int64_t>(std::int64_t{dstHeight} - y, srcHeight);
    const std::int64_t firstByte = bytesPerPixel * std::max<std::int64_t>(-std::int64_t{x}, 0);
    const std::int64_t endByte = bytesPerPixel * std::min<std::int64_t>(std::int64_t{dstWidth} - x, srcWidth);
    if (firstRow >= endRow || firstByte >= endByte) {
        return std::nullopt;
    }
    return Clip{src + firstRow * srcLinesize + firstByte,
                dst + (firstRow + y) * dstLinesize + firstByte + std::int64_t{bytesPerPixel} * x,
                endRow - firstRow, endByte - firstByte};
}

// Whether each byte of a pixel is named once.
bool isPermutation(const int* pixelOffsets) {
    unsigned seen = 0;
    for (int i = 0; i < 4; ++i) {
        if (pixelOffsets[i] >= 0 && pixelOffsets[i] < 4) {
            seen |= 1U << pixelOffsets[i];
        }
    }
    return seen == 0xf;
}

// For offsets that name a byte twice or lie outside of the pixel.
void blendRow32(const int* pixelOffsets, unsigned char* dst, const unsigned char* src, std::ptrdiff_t bytes,
                unsigned opacity) {
    for (std::ptrdiff_t i = 0; i < bytes; i += 4) {
        const unsigned alpha = faded(src[i + pixelOffsets[3]], opacity);
        for (int colour = 0; colour < 3; ++colour) {
            const std::ptrdiff_t at = i + pixelOffsets[colour];
            dst[at] = blend255(src[at], dst[at], alpha);
        }
    }
}

void blendRgb24Planes(unsigned char** dst, const int* dstLinesize, int dstWidth, int dstHeight,
                      const unsigned char* const* src, const int* srcLinesize, int srcWidth, int srcHeight,
                      int x, int y, double opacity) {
    const std::optional<Opacity> byte = opacityToByte(opacity);
    if (!byte) {
        return;
    }
    const auto part = clip(3, dst[0], dstLinesize[0], dstWidth, dstHeight, src[0], srcLinesize[0], srcWidth,
                           srcHeight, x, y);
    if (!part) {
        return;
    }
    const Kernels& set = kernels();
    std::ptrdiff_t rows = part->rows;
    std::ptrdiff_t bytes = part->bytes;
    joinRows(rows, bytes, dstLinesize[0], srcLinesize[0]);
    for (std::ptrdiff_t row = 0; row < rows; ++row) {
        unsigned char* to = part->dst + row * dstLinesize[0];
        const unsigned char* from = part->src + row * srcLinesize[0];
        if (byte->value() == 255) {
            std::memcpy(to, from, static_cast<std::size_t>(bytes));
        } else {
            set.blend24({to, from}, bytes, byte->value());
        }
    }
}

}  // namespace

void blend_image_rgb32_ref(int* pixelOffsets, unsigned char* dst, int dstLinesize, int dstWidth,
                           int dstHeight, const unsigned char* src, int srcLinesize, int srcWidth,
                           int srcHeight, int x, int y, unsigned char opacity) {
    const auto part =
        clip(4, dst, dstLinesize, dstWidth, dstHeight, src, srcLinesize, srcWidth, srcHeight, x, y);
    if (!part) {
        return;
    }
    // All colour bytes are treated alike, so that only the place of alpha matters.
    const bool usual = isPermutation(pixelOffsets);
    const Kernels& set = kernels();
    for (std::ptrdiff_t row = 0; row < part->rows; ++row) {
        unsigned char* to = part->dst + row * dstLinesize;
        const unsigned char* from = part->src + row * srcLinesize;
        if (usual) {
            set.blend32({to, from}, part->bytes / 4, pixelOffsets[3], opacity);
        } else {
            blendRow32(pixelOffsets, to, from, part->bytes, opacity);
        }
    }
}

void blendRgba32Impl(unsigned char** dst, const int* dstLinesize, int dstWidth, int dstHeight,
                     const unsigned char* const* src, const int* srcLinesize, int srcWidth, int srcHeight,
                     int x, int y, double opacity) {
    if (const auto byte = opacityToByte(opacity)) {
        int pixelOffsets[] = {0, 1, 2, 3};
        blend_image_rgb32_ref(pixelOffsets, dst[0], dstLinesize[0], dstWidth, dstHeight, src[0],
                              srcLinesize[0], srcWidth, srcHeight, x, y, byte->value());
    }
}

void blendArgb32Impl(unsigned char** dst, const int* dstLinesize, int dstWidth, int dstHeight,
                     const unsigned char* const* src, const int* srcLinesize, int srcWidth, int srcHeight,
                     int x, int y, double opacity) {
    if (const auto byte = opacityToByte(opacity)) {
        int pixelOffsets[] = {1, 2, 3, 0};
        blend_image_rgb32_ref(pixelOffsets, dst[0], dstLinesize[0], dstWidth, dstHeight, src[0],
                              srcLinesize[0], srcWidth, srcHeight, x, y, byte->value());
    }
}

void blendRgb24Impl(unsigned char** dst, const int* dstLinesize, int dstWidth, int dstHeight,
                    const unsigned char* const* src, const int* srcLinesize, int srcWidth, int srcHeight,
                    int x, int y, double opacity) {
    blendRgb24Planes(dst, dstLinesize, dstWidth, dstHeight, src, srcLinesize, srcWidth, srcHeight, x, y,
                     opacity);
}

void blendBgr24Impl(unsigned char** dst, const int* dstLinesize, int dstWidth, int dstHeight,
                    const unsigned char* const* src, const int* srcLinesize, int srcWidth, int srcHeight,
                    int x, int y, double opacity) {
    blendRgb24Planes(dst, dstLinesize, dstWidth, dstHeight, src, srcLinesize, srcWidth, srcHeight, x, y,
                     opacity);
}

void blendPlanesOfSameSize(Planes<NV12, unsigned char*> dst, Planes<NV12, const unsigned char*> src,
                           const Opacity& opacity) {
    if (opacity.value() == 255) {
        blendPlanesOfSameSizeImpl(dst, src, BlenderRefNoGlobalAlpha{});
    } else {
        blendPlanesOfSameSizeImpl(dst, src, BlenderRefWithGlobalAlpha{opacity.value()});
    }
}

void blendPlanesOfSameSize(Planes<NV12, unsigned char*> dst, Planes<NVA12, const unsigned char*> src,
                           const Opacity& opacity) {
    if (opacity.value() == 255) {
        blendPlanesOfSameSizeImpl(dst, src, BlenderRefNoGlobalAlpha{});
    } else {
        blendPlanesOfSameSizeImpl(dst, src, BlenderRefWithGlobalAlpha{opacity.value()});
    }
}

void blendPlanesOfSameSize(Planes<pixel_format::RGBA32, unsigned char*> dst,
                           Planes<pixel_format::RGBA32, const unsigned char*> src, const Opacity& opacity) {
    // Deliberate: not divided by 255 as the others are, so that every opacity but 0 counts as full here.
    blendRgba32Impl(&dst.data, &dst.linesize, dst.width, dst.height, &src.data, &src.linesize, src.width,
                    src.height, 0, 0, opacity.value());
}

void blendPlanesOfSameSize(Planes<pixel_format::ARGB32, unsigned char*> dst,
                           Planes<pixel_format::ARGB32, const unsigned char*> src, const Opacity& opacity) {
    blendArgb32Impl(&dst.data, &dst.linesize, dst.width, dst.height, &src.data, &src.linesize, src.width,
                    src.height, 0, 0, opacity.value() / 255.0);
}

void blendPlanesOfSameSize(Planes<pixel_format::RGB24, unsigned char*> dst,
                           Planes<pixel_format::RGB24, const unsigned char*> src, const Opacity& opacity) {
    blendRgb24Impl(&dst.data, &dst.linesize, dst.width, dst.height, &src.data, &src.linesize, src.width,
                   src.height, 0, 0, opacity.value() / 255.0);
}

void blendPlanesOfSameSize(Planes<pixel_format::BGR24, unsigned char*> dst,
                           Planes<pixel_format::BGR24, const unsigned char*> src, const Opacity& opacity) {
    blendBgr24Impl(&dst.data, &dst.linesize, dst.width, dst.height, &src.data, &src.linesize, src.width,
                   src.height, 0, 0, opacity.value() / 255.0);
}

}  // namespace vidorra::alphablend
