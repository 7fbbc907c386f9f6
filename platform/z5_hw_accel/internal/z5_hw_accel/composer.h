#pragma once

#include "z5_hw_accel/nv12_buffer.h"

namespace z5::hw::accel {

/// Blends pictures.
///
///     Composer(device).process({luma, chroma, nullptr, 1920, 1920, 1080}, {...}, 640, 360, 255, 0);
///
/// Owns: nothing; the device stays open as long as the object is used. Threads: calls may overlap, unless one
/// writes pixels that another one reads or writes.
class Composer {
public:
    /// `device` is the file descriptor of the accelerator, open for reading and writing.
    explicit Composer(int device) noexcept;

    /// Blends the top left part of `overlay` over that of `dst`, `width` by `height` pixels, which are even
    /// numbers, and returns when it is done. The alpha plane of `overlay`, if it has one, says for each pixel
    /// how much of it shows, and `alpha` how much of all of it; 0 leaves `dst` as it is, 255 is full. An
    /// alpha plane of `dst` stays as it is. The flags have no effect.
    ///
    /// Throws std::invalid_argument when luma or chroma is null, when `width` or `height` is odd, below 2 or
    /// beyond one of the buffers, or when a line is shorter than `width`.
    void process(Nv12Buffer<void>&& dst, Nv12Buffer<const void>&& overlay, int width, int height,
                 unsigned char alpha, unsigned int flags) const;

private:
    // Ours works without a word to the device.
    [[maybe_unused]] int mDevice;
};

}  // namespace z5::hw::accel
