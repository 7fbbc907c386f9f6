#pragma once

#include <cstdint>
#include <string_view>

#include "udmabuf/udmabuf.h"
#include "vidorra/core/export.h"
#include "vidorra/core/ffmpeg_fwd.h"
#include "vidorra/core/geometry.h"
#include "vidorra/picture/best_fit_picture_allocator.h"
#include "vidorra/picture/picture.h"
#include "vidorra/picture/picture_allocator.h"

namespace vidorra {

/// Places pictures in the memory of a udmabuf device, where the hardware composer and scaler can reach them.
/// The pictures start on a page boundary, isBufferDMA() is true for them, and Picture::flush() makes their
/// pixels visible to the device.
///
///     UdmaBufPictureAllocator allocator("udmabuf0");
///     Picture picture = allocator.allocate(Size{1920, 1080}, AV_PIX_FMT_NV12, AVCOL_RANGE_MPEG);
///
/// Owns: the mapping of the device's memory, so it must outlive its pictures. Threads: as
/// BestFitPictureAllocator.
class VIDORRA_API UdmaBufPictureAllocator : public PictureAllocator {
public:
    /// Places pictures in an existing device buffer, which must outlive the allocator.
    class VIDORRA_API Allocator : public BestFitPictureAllocator {
    public:
        /// Line sizes are multiples of 32 bytes, blocks are whole pages. Throws as BestFitPictureAllocator.
        explicit Allocator(UdmaBuf& buffer);
        ~Allocator() override;

        void flush(std::uint8_t* data, int size) override;

    private:
        UdmaBuf& mBuffer;
    };

    /// Opens and maps a device by its name, such as "udmabuf0", for access through the CPU's cache. Throws
    /// what UdmaBuf throws. A device of less than one page is not an error, but each allocation from it
    /// fails.
    explicit UdmaBufPictureAllocator(std::string_view device);
    ~UdmaBufPictureAllocator() override;

    /// As BestFitPictureAllocator::allocate().
    [[nodiscard]] Picture allocate(Size size, AVPixelFormat format, AVColorRange range) override;

private:
    // The allocator is destroyed before the memory that it points into.
    UdmaBuf mBuffer;
    Allocator mAllocator;
};

}  // namespace vidorra
