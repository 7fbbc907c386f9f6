#pragma once

#include <memory>
#include <string_view>

#include "vdr_utils/file_descriptor_deleter.h"
#include "vidorra/core/export.h"
#include "vidorra/core/geometry.h"
#include "vidorra/picture/picture.h"

namespace vidorra::z5 {

/// Draws pictures on others by means of a hardware accelerator, as vidorra::compose() does by the CPU. There
/// is no fallback: ask isPictureCompatible() for both pictures and choose.
///
///     UdmaBufPictureAllocator allocator("udmabuf0");
///     Picture screen = allocator.allocate(Size{1920, 1080}, AV_PIX_FMT_NV12, AVCOL_RANGE_MPEG);
///     Picture logo = allocator.allocate(Size{320, 200}, NVA12, AVCOL_RANGE_MPEG);
///     ...
///     const z5::PictureComposer composer("z5-composer");
///     composer.compose(screen, logo, Point{1500, 60}, 1.0, false);
///
/// Owns: the open device. Threads: no lock is held; whether calls may overlap is for the accelerator to say,
/// and with ours they may, on destinations of their own.
class VIDORRA_API PictureComposer {
public:
    /// Opens "/dev/" and `deviceName` for reading and writing. Throws std::system_error with the cause in
    /// std::generic_category() when that fails.
    explicit PictureComposer(std::string_view deviceName);

    /// Whether the accelerator can work on a picture: all of it is DMA memory, at most 4096 by 2160 pixels
    /// with lines of at most 4096 bytes, in NV12 or NVA12 with lines of the same size in all planes.
    [[nodiscard]] static bool isPictureCompatible(const Picture& picture);

    /// Draws `overlay` on `dst`, with its top left corner at `position`, which may be negative. An odd
    /// position moves to the even one above and to the left; an odd last row or column of what shows is not
    /// drawn. What does not lie on `dst` does not show, and when less than two rows or columns show, nothing
    /// is done.
    ///
    /// `opacity` is 1.0 for full; values outside of 0.0 to 1.0 are brought there, and not a number is 0.
    /// `flag` asks the accelerator for a behaviour of its own, none with ours.
    ///
    /// What the CPU has written to both pictures is flushed before. `dst` is not marked as modified, since
    /// the CPU did not write it.
    ///
    /// Throws std::invalid_argument, in this order, when `dst` is not editable, when `dst` is not compatible
    /// and when `overlay` is not. What the accelerator throws passes.
    void compose(Picture& dst, const Picture& overlay, Point position, double opacity, bool flag) const;

private:
    std::unique_ptr<int, vx::utils::priv::FileDescriptorDeleter> mDevice;
};

}  // namespace vidorra::z5
