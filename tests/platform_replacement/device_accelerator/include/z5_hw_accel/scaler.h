#pragma once

#include "z5_hw_accel/nv12_buffer.h"

namespace z5::hw::accel {

/// An accelerator of another make. It writes the flags to the first byte of the destination.
class Scaler {
public:
    explicit Scaler(int device);
    void process(Nv12Buffer<void>&& dst, Nv12Buffer<const void>&& src, unsigned int flags) const;

private:
    int mDevice;
};

}  // namespace z5::hw::accel
