#pragma once

#include <memory>
#include <string_view>

#include "vdr_utils/file_descriptor_deleter.h"
#include "vidorra/core/export.h"
#include "vidorra/core/geometry.h"
#include "vidorra/picture/picture.h"

namespace vidorra::z5 {

/// Draws pictures on others with a hardware accelerator, as vidorra::compose() does with the CPU. There is
/// no fallback: call isPictureCompatible() for both pictures and choose.
///
///     UdmaBufPictureAllocator allocator("udmabuf0");
///     Picture screen = allocator.allocate(Size{1920, 1080}, AV_PIX_FMT_NV12, AVCOL_RANGE_MPEG);
///     Picture logo = allocator.allocate(Size{320, 200}, NVA12, AVCOL_RANGE_MPEG);
///     ...
///     const z5::PictureComposer composer("z5-composer");
///     composer.compose(screen, logo, Point{1500, 60}, 1.0, false);
///
/// Owns: the open device. Threads: no lock is held. The accelerator determines whether calls may overlap;
/// with ours they may, if their destinations differ.
class VIDORRA_API PictureComposer {
public:
    /// Opens "/dev/" and `deviceName` for reading and writing. Throws std::system_error with the cause in
    /// std::generic_category() when that fails.
    explicit PictureComposer(std::string_view deviceName);

    /// Whether the accelerator can work on a picture: all of it is DMA memory, at most 4096 by 2160 pixels
    /// with lines of at most 4096 bytes, in NV12 or NVA12 with lines of the same size in all planes.
    [[nodiscard]] static bool isPictureCompatible(const Picture& picture);

    /// Draws `overlay` on `dst`, with its top left corner at `position`, which may be negative. An odd
    /// position is moved up and left to an even one; an odd last row or column of the visible part is not
    /// drawn. What is outside `dst` is not drawn, and when fewer than two rows or columns are visible,
    /// nothing is done.
    ///
    /// `opacity` 1.0 is full; values are clamped to 0.0 to 1.0, and not-a-number counts as 0. `flag`
    /// requests a behaviour that the accelerator defines; ours ignores it.
    ///
    /// What the CPU has written to both pictures is flushed first. `dst` is not marked as modified, since
    /// the CPU did not write it.
    ///
    /// Throws std::invalid_argument, in this order, when `dst` is not editable, when `dst` is not compatible
    /// and when `overlay` is not. Also throws what the accelerator throws.
    void compose(Picture& dst, const Picture& overlay, Point position, double opacity, bool flag) const;

private:
    std::unique_ptr<int, vx::utils::priv::FileDescriptorDeleter> mDevice;
};

}  // namespace vidorra::z5
