#pragma once

#include <memory>
#include <string_view>

#include "vdr_utils/file_descriptor_deleter.h"
#include "vidorra/core/export.h"
#include "vidorra/core/geometry.h"
#include "vidorra/picture/picture.h"
#include "vidorra/picture/picture_allocator.h"

namespace vidorra::z5 {

/// Scales pictures with a hardware accelerator, as vidorra::Scaler does with the CPU. There is no fallback:
/// call isPictureCompatible() and choose.
///
///     UdmaBufPictureAllocator allocator("udmabuf0");
///     z5::PictureScaler scaler("z5-scaler");
///     scaler.setPictureAllocator(&allocator);
///     const Picture small = scaler.scale(picture, Size{640, 360}, false);
///
/// Owns: the open device, not the allocator. Threads: no lock is held. The accelerator determines whether
/// calls may overlap; with ours they may, if their destinations differ.
class VIDORRA_API PictureScaler {
public:
    /// Opens "/dev/" and `deviceName` for reading and writing. Throws std::system_error with the cause in
    /// std::generic_category() when that fails.
    explicit PictureScaler(std::string_view deviceName);

    /// As PictureComposer::isPictureCompatible().
    [[nodiscard]] static bool isPictureCompatible(const Picture& picture);

    /// Sets where the pictures of scale() come from; the accelerator must be able to reach the memory. The
    /// allocator must outlive this object and the pictures; null means none.
    void setPictureAllocator(PictureAllocator* allocator);

    /// Scales `src` to fill `dst`, whatever their sizes. `flag` requests a behaviour that the accelerator
    /// defines; ours ignores it. What the CPU has written to `src` is flushed first. `dst` is neither
    /// flushed nor marked as modified, since the accelerator writes all of it.
    ///
    /// Throws std::invalid_argument, in this order, when `dst` is not editable, when `dst` is not
    /// compatible, when `src` is not, and when their formats differ. Also throws what the accelerator
    /// throws.
    void scaleTo(Picture& dst, const Picture& src, bool flag);

    /// `src` in another size, rounded down to even numbers, in the same format and range. Throws
    /// std::runtime_error when no allocator is set, then what the allocator throws, then as scaleTo().
    [[nodiscard]] Picture scale(const Picture& src, Size size, bool flag);

private:
    std::unique_ptr<int, vx::utils::priv::FileDescriptorDeleter> mDevice;
    PictureAllocator* mAllocator = nullptr;
};

}  // namespace vidorra::z5
