#pragma once

#include <stdexcept>

#include "vidorra/core/export.h"
#include "vidorra/core/ffmpeg_fwd.h"

namespace vidorra {

/// Turns pictures of limited range (luma 16 to 235, chroma 16 to 240) into full range (0 to 255), from
/// YUV420P or NV12 to YUV420P, on raw planes. There is no other conversion; see isSupported().
///
///     if (ColorRangeConverter::isSupported(AV_PIX_FMT_NV12, AVCOL_RANGE_MPEG, AV_PIX_FMT_YUV420P,
///                                          AVCOL_RANGE_JPEG, ColorRangeConverter::Type::Any)) { ... }
///
/// Each sample goes through a table: (v - 16) * 255 / 219 for luma and (v - 16) * 255 / 224 for chroma,
/// rounded to the nearest integer and clamped to 0 to 255. Chroma is anchored at 16 like luma; the neutral
/// 128 stays 128.
///
/// Threads: thread-safe. Nothing is allocated.
class VIDORRA_API ColorRangeConverter {
public:
    /// The requested implementation. There is only one, based on tables, for Any, Reference and values that
    /// are not listed here; callers cannot choose the processor instructions that it uses. SIMD is reserved
    /// and never supported.
    enum class Type { Any = 0, SIMD = 1, Reference = 2 };

    /// Whether convert() supports this conversion.
    [[nodiscard]] static bool isSupported(AVPixelFormat srcFormat, AVColorRange srcRange,
                                          AVPixelFormat dstFormat, AVColorRange dstRange, Type type);

    /// Converts a picture into planes that the caller has allocated; line sizes are bytes from one row to
    /// the next. Chroma is converted for the size rounded down to whole chroma samples: with an odd width or
    /// height the last chroma column or row of the destination stays unchanged, and with a height of 1 only
    /// luma is written. Nothing is written for a width or height below 1. YUV420P may be converted in place.
    /// Planes must not be null. Throws ColorRangeConverterError when isSupported() is false, before anything
    /// is written.
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

/// A conversion of formats and colour ranges that does not exist:
/// "ColorRangeConverterError: Unsupported any PixelFormat/ColorRange conversion from nv12:pc to yuv420p:pc".
class VIDORRA_API ColorRangeConverterError : public std::runtime_error {
public:
    ColorRangeConverterError(ColorRangeConverter::Type type, AVPixelFormat srcFormat, AVColorRange srcRange,
                             AVPixelFormat dstFormat, AVColorRange dstRange);
};

}  // namespace vidorra
