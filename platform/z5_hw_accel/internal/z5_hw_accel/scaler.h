#pragma once

#include "z5_hw_accel/nv12_buffer.h"

namespace z5::hw::accel {

/// Changes the size of pictures.
///
/// Owns: nothing; the device must stay open while the object is used. Threads: calls may overlap unless one
/// writes pixels that another reads or writes.
class Scaler {
public:
    /// `device` is the file descriptor of the accelerator, open for reading and writing.
    explicit Scaler(int device) noexcept;

    /// Scales all of `src` to all of `dst`, plane by plane, and returns when this is done. Sizes may be odd;
    /// half a chroma sample then counts as a whole one. Shapes may differ. Enlarging interpolates between
    /// neighbours; reducing takes the mean of the samples that coincide, weighted by distance; the same size
    /// makes a copy. The flags have no effect.
    ///
    /// Throws std::invalid_argument when luma or chroma is null, when only one of the buffers has an alpha
    /// plane, when a width or height is below 1, or when a line is shorter than the pixels of a row;
    /// std::bad_alloc.
    void process(Nv12Buffer<void>&& dst, Nv12Buffer<const void>&& src, unsigned int flags) const;

private:
    // Our implementation sends nothing to the device.
    [[maybe_unused]] int mDevice;
};

}  // namespace z5::hw::accel
