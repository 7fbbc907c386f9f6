#pragma once

#include "z5_hw_accel/nv12_buffer.h"

namespace z5::hw::accel {

/// An accelerator of another make. It writes the global alpha to the first byte of the destination.
class Composer {
public:
    explicit Composer(int device);
    void process(Nv12Buffer<void>&& dst, Nv12Buffer<const void>&& overlay, int width, int height,
                 unsigned char alpha, unsigned int flags) const;

private:
    int mDevice;
};

}  // namespace z5::hw::accel
