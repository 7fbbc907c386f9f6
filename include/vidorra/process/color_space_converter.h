#pragma once

#include "vidorra/core/export.h"
#include "vidorra/core/ffmpeg_fwd.h"
#include "vidorra/picture/picture.h"
#include "vidorra/picture/picture_allocator.h"
#include "vidorra/process/scaler.h"

namespace vidorra {

/// Converts pictures to one pixel format and colour range at their own size: Scaler::scale() with format and
/// range fixed. Results, empty pictures and errors are those of Scaler::scale().
///
///     ColorSpaceConverter converter(AV_PIX_FMT_NV12, AVCOL_RANGE_MPEG);
///     const Picture converted = converter.convert(frame.picture());
///
/// Threads: one at a time for each object; the static functions are thread-safe.
class VIDORRA_API ColorSpaceConverter {
public:
    ColorSpaceConverter(AVPixelFormat format, AVColorRange range);

    [[nodiscard]] Picture convert(const Picture& src);

    /// Converts one picture with a scaler that is made for the call. Without an allocator, or with a null
    /// one, the default allocator is used.
    [[nodiscard]] static Picture convertTo(PictureAllocator* allocator, const Picture& src,
                                           AVPixelFormat format, AVColorRange range);
    [[nodiscard]] static Picture convertTo(const Picture& src, AVPixelFormat format, AVColorRange range);

    /// Converts to one of two formats, depending on src.hasAlpha().
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
