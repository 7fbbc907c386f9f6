#pragma once

#include <stdexcept>

#include "vidorra/core/export.h"
#include "vidorra/core/ffmpeg_fwd.h"

namespace vidorra {

/// Turns pictures of limited range (luma 16 to 235, chroma 16 to 240) into full range (0 to 255), from
/// YUV420P or NV12 to YUV420P, on raw planes. There is no other conversion; ask isSupported().
///
///     if (ColorRangeConverter::isSupported(AV_PIX_FMT_NV12, AVCOL_RANGE_MPEG, AV_PIX_FMT_YUV420P,
///                                          AVCOL_RANGE_JPEG, ColorRangeConverter::Type::Any)) { ... }
///
/// Each sample goes through a table: (v - 16) * 255 / 219 for luma and (v - 16) * 255 / 224 for chroma,
/// rounded to the nearest integer and clamped to 0 to 255. Chroma is anchored at 16 like luma; the neutral
/// 128 stays 128.
///
/// Threads: all calls are free. Nothing is allocated.
class VIDORRA_API ColorRangeConverter {
public:
    /// Which implementation is asked for. There is only the one by tables, which serves Any, Reference and
    /// values that are not listed here; what instructions of the processor it uses is not the caller's to
    /// choose. SIMD is a reserved name and never supported.
    enum class Type { Any = 0, SIMD = 1, Reference = 2 };

    /// Whether convert() will do this.
    [[nodiscard]] static bool isSupported(AVPixelFormat srcFormat, AVColorRange srcRange,
                                          AVPixelFormat dstFormat, AVColorRange dstRange, Type type);

    /// Converts a picture into planes that the caller has allocated; line sizes are bytes from one row to the
    /// next. Only whole chroma samples of the size rounded down are converted: of an odd width or height, the
    /// last chroma column or row of the destination stays as it is, and at a height of 1 there is luma only.
    /// A width or height below 1 writes nothing. YUV420P may be converted in place. Planes must not be null.
    /// Throws ColorRangeConverterError before anything is written when isSupported() says false.
    static void convert(int width, int height, AVPixelFormat srcFormat, AVColorRange srcRange,
                        const unsigned char* const* srcData, const int* srcLinesize, AVPixelFormat dstFormat,
                        AVColorRange dstRange, unsigned char* const* dstData, const int* dstLinesize,
                        Type type);

private:
    static void procYuv420pLim2Full(int width, int height, AVPixelFormat srcFormat, AVColorRange srcRange,
                                    const unsigned char* const* srcData, const int* srcLinesize,
                                    AVPixelFormat dstFormat, AVColorRange dstRange,
                                    unsigned char* const* dstData, const int* dstLinesize, Type type);
    static void procNv12Lim2Yuv420pFull(int width, int height, AVPixelFormat srcFormat, AVColorRange srcRange,
                                        const unsigned char* const* srcData, const int* srcLinesize,
                                        AVPixelFormat dstFormat, AVColorRange dstRange,
                                        unsigned char* const* dstData, const int* dstLinesize, Type type);
};

/// Says that a conversion of formats and colour ranges does not exist:
/// "ColorRangeConverterError: Unsupported any PixelFormat/ColorRange conversion from nv12:pc to yuv420p:pc".
class VIDORRA_API ColorRangeConverterError : public std::runtime_error {
public:
    ColorRangeConverterError(ColorRangeConverter::Type type, AVPixelFormat srcFormat, AVColorRange srcRange,
                             AVPixelFormat dstFormat, AVColorRange dstRange);
};

}  // namespace vidorra
