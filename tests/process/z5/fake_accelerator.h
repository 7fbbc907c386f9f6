#pragma once

#include <stdexcept>
#include <vector>

#include "z5_hw_accel/nv12_buffer.h"

namespace vidorra::test {

/// A program that links this has an accelerator that records its calls and adds "process" to events().
struct FakeAccelerator {
    struct Composition {
        int device;
        ::z5::hw::accel::Nv12Buffer<void> dst;
        ::z5::hw::accel::Nv12Buffer<const void> overlay;
        int width;
        int height;
        unsigned char alpha;
        unsigned flags;
    };
    struct Scaling {
        int device;
        ::z5::hw::accel::Nv12Buffer<void> dst;
        ::z5::hw::accel::Nv12Buffer<const void> src;
        unsigned flags;
    };
    /// What it throws when it is told to fail.
    struct Error : std::runtime_error {
        Error() : std::runtime_error("the accelerator failed") {}
    };

    std::vector<Composition> compositions;
    std::vector<Scaling> scalings;
    bool fails = false;
};

FakeAccelerator& fakeAccelerator();

}  // namespace vidorra::test
