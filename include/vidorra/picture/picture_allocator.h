#pragma once

#include "vidorra/core/export.h"
#include "vidorra/core/ffmpeg_fwd.h"
#include "vidorra/core/geometry.h"
#include "vidorra/picture/picture.h"

namespace vidorra {

/// Supplies the pictures that processing code writes to, so that the caller decides where pixels are: on the
/// heap, in one fixed region, or where a device can reach them.
///
///     scaler.setPictureAllocator(&allocator);
///     renderer.setPictureAllocator(&allocator);
///     Picture picture = allocator.allocate(Size{1920, 1080}, AV_PIX_FMT_NV12, AVCOL_RANGE_MPEG);
///
/// An allocator and its memory must outlive its pictures. Threads: allocate() from any thread; pictures may
/// be released on any thread.
class VIDORRA_API PictureAllocator {
public:
    PictureAllocator(const PictureAllocator&) = delete;
    PictureAllocator& operator=(const PictureAllocator&) = delete;
    virtual ~PictureAllocator();

    /// An editable picture with undefined content. Throws std::bad_alloc when there is no memory, and
    /// FFmpegError for a size or format that FFmpeg refuses; a derived class may throw other exceptions.
    [[nodiscard]] virtual Picture allocate(Size size, AVPixelFormat format, AVColorRange range) = 0;

protected:
    PictureAllocator() = default;
};

}  // namespace vidorra
