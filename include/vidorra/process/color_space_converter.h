#pragma once

#include "vidorra/core/export.h"
#include "vidorra/core/ffmpeg_fwd.h"
#include "vidorra/picture/picture.h"
#include "vidorra/picture/picture_allocator.h"
#include "vidorra/process/scaler.h"

namespace vidorra {

/// Brings pictures into one pixel format and colour range, at their own size: Scaler::scale() with these two
/// fixed, with its results, its empty pictures and its errors.
///
///     ColorSpaceConverter converter(AV_PIX_FMT_NV12, AVCOL_RANGE_MPEG);
///     const Picture converted = converter.convert(frame.picture());
///
/// Threads: an object belongs to one thread at a time; the static operations are safe on any.
class VIDORRA_API ColorSpaceConverter {
public:
    ColorSpaceConverter(AVPixelFormat format, AVColorRange range);

    [[nodiscard]] Picture convert(const Picture& src);

    /// Once, with a scaler that is made for the call. Without an allocator, or with a null one, the default
    /// allocator is used.
    [[nodiscard]] static Picture convertTo(PictureAllocator* allocator, const Picture& src,
                                           AVPixelFormat format, AVColorRange range);
    [[nodiscard]] static Picture convertTo(const Picture& src, AVPixelFormat format, AVColorRange range);

    /// In one of two formats, by src.hasAlpha().
    [[nodiscard]] static Picture convertTo(PictureAllocator* allocator, const Picture& src,
                                           AVPixelFormat formatWithoutAlpha, AVPixelFormat formatWithAlpha,
                                           AVColorRange range);
    [[nodiscard]] static Picture convertTo(const Picture& src, AVPixelFormat formatWithoutAlpha,
                                           AVPixelFormat formatWithAlpha, AVColorRange range);

private:
    AVPixelFormat mFormat;
    AVColorRange mRange;
    Scaler mScaler;
};

}  // namespace vidorra
