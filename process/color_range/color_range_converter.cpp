#include "vidorra/process/color_range_converter.h"

#include <cstddef>

#include "process/color_range/range_kernels.h"
#include "vidorra/core/format.h"

namespace vidorra {
namespace {

using Type = ColorRangeConverter::Type;

const char* typeText(Type type) {
    switch (type) {
    case Type::Any:
        return "any";
    case Type::SIMD:
        return "SIMD";
    case Type::Reference:
        return "reference";
    }
    return "unknown";
}

void requireSupported(AVPixelFormat srcFormat, AVColorRange srcRange, AVPixelFormat dstFormat,
                      AVColorRange dstRange, Type type) {
    if (!ColorRangeConverter::isSupported(srcFormat, srcRange, dstFormat, dstRange, type)) {
        throw ColorRangeConverterError(type, srcFormat, srcRange, dstFormat, dstRange);
    }
}

struct Rows {
    unsigned char* dst;
    const unsigned char* src;
};

// One row of a plane in both pictures.
Rows rowsAt(std::ptrdiff_t y, int plane, unsigned char* const* dstData, const int* dstLinesize,
            const unsigned char* const* srcData, const int* srcLinesize) {
    return {dstData[plane] + y * dstLinesize[plane], srcData[plane] + y * srcLinesize[plane]};
}

// Both formats have their luma alike.
void convertLuma(int width, int height, unsigned char* const* dstData, const int* dstLinesize,
                 const unsigned char* const* srcData, const int* srcLinesize) {
    for (int y = 0; y < height; ++y) {
        const Rows rows = rowsAt(y, 0, dstData, dstLinesize, srcData, srcLinesize);
        rangeKernels().convertLuma(rows.dst, rows.src, width);
    }
}

}  // namespace

ColorRangeConverterError::ColorRangeConverterError(ColorRangeConverter::Type type, AVPixelFormat srcFormat,
                                                   AVColorRange srcRange, AVPixelFormat dstFormat,
                                                   AVColorRange dstRange)
    : std::runtime_error(fmt::format(
          "ColorRangeConverterError: Unsupported {} PixelFormat/ColorRange conversion from {}:{} to {}:{}",
          typeText(type), srcFormat, srcRange, dstFormat, dstRange)) {}

bool ColorRangeConverter::isSupported(AVPixelFormat srcFormat, AVColorRange srcRange, AVPixelFormat dstFormat,
                                      AVColorRange dstRange, Type type) {
    // Deliberate: SIMD is refused although the tables run on vectors. Callers that ask for it expect a no.
    return type != Type::SIMD && srcRange == AVCOL_RANGE_MPEG && dstRange == AVCOL_RANGE_JPEG &&
           dstFormat == AV_PIX_FMT_YUV420P &&
           (srcFormat == AV_PIX_FMT_YUV420P || srcFormat == AV_PIX_FMT_NV12);
}

void ColorRangeConverter::convert(int width, int height, AVPixelFormat srcFormat, AVColorRange srcRange,
                                  const unsigned char* const* srcData, const int* srcLinesize,
                                  AVPixelFormat dstFormat, AVColorRange dstRange,
                                  unsigned char* const* dstData, const int* dstLinesize, Type type) {
    requireSupported(srcFormat, srcRange, dstFormat, dstRange, type);
    const auto proc = srcFormat == AV_PIX_FMT_NV12 ? procNv12Lim2Yuv420pFull : procYuv420pLim2Full;
    proc(width, height, srcFormat, srcRange, srcData, srcLinesize, dstFormat, dstRange, dstData, dstLinesize,
         type);
}

void ColorRangeConverter::procYuv420pLim2Full(int width, int height, AVPixelFormat srcFormat,
                                              AVColorRange srcRange, const unsigned char* const* srcData,
                                              const int* srcLinesize, AVPixelFormat dstFormat,
                                              AVColorRange dstRange, unsigned char* const* dstData,
                                              const int* dstLinesize, Type type) {
    requireSupported(srcFormat, srcRange, dstFormat, dstRange, type);
    convertLuma(width, height, dstData, dstLinesize, srcData, srcLinesize);
    const RangeKernels& kernels = rangeKernels();
    for (const int plane : {1, 2}) {
        for (int y = 0; y < height / 2; ++y) {
            const Rows rows = rowsAt(y, plane, dstData, dstLinesize, srcData, srcLinesize);
            kernels.convertChroma(rows.dst, rows.src, width / 2);
        }
    }
}

void ColorRangeConverter::procNv12Lim2Yuv420pFull(int width, int height, AVPixelFormat srcFormat,
                                                  AVColorRange srcRange, const unsigned char* const* srcData,
                                                  const int* srcLinesize, AVPixelFormat dstFormat,
                                                  AVColorRange dstRange, unsigned char* const* dstData,
                                                  const int* dstLinesize, Type type) {
    requireSupported(srcFormat, srcRange, dstFormat, dstRange, type);
    convertLuma(width, height, dstData, dstLinesize, srcData, srcLinesize);
    const RangeKernels& kernels = rangeKernels();
    for (int y = 0; y < height / 2; ++y) {
        const Rows rows = rowsAt(y, 1, dstData, dstLinesize, srcData, srcLinesize);
        unsigned char* v = dstData[2] + static_cast<std::ptrdiff_t>(y) * dstLinesize[2];
        kernels.splitChroma(rows.dst, v, rows.src, width / 2);
    }
}

}  // namespace vidorra
