#pragma once

#include "z5_hw_accel/nv12_buffer.h"

namespace z5::hw::accel {

/// Blends pictures.
///
///     Composer(device).process({luma, chroma, nullptr, 1920, 1920, 1080}, {...}, 640, 360, 255, 0);
///
/// Owns: nothing; the device must stay open while the object is used. Threads: calls may overlap unless one
/// writes pixels that another reads or writes.
class Composer {
public:
    /// `device` is the file descriptor of the accelerator, open for reading and writing.
    explicit Composer(int device) noexcept;

    /// Blends the top left `width` by `height` pixels, both even, of `overlay` over those of `dst`, and
    /// returns when this is done. The alpha plane of `overlay`, if it has one, is the opacity of each pixel,
    /// and `alpha` that of the whole; 0 leaves `dst` unchanged, 255 is full. An alpha plane of `dst` stays
    /// unchanged. The flags have no effect.
    ///
    /// Throws std::invalid_argument when luma or chroma is null, when `width` or `height` is odd, below 2 or
    /// larger than one of the buffers, or when a line is shorter than `width`.
    void process(Nv12Buffer<void>&& dst, Nv12Buffer<const void>&& overlay, int width, int height,
                 unsigned char alpha, unsigned int flags) const;

private:
    // Our implementation sends nothing to the device.
    [[maybe_unused]] int mDevice;
};

}  // namespace z5::hw::accel
