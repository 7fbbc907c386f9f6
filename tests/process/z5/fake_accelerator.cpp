#include "process/z5/fake_accelerator.h"

#include "process/z5/device_pictures.h"
#include "z5_hw_accel/composer.h"
#include "z5_hw_accel/scaler.h"

namespace vidorra::test {

FakeAccelerator& fakeAccelerator() {
    static FakeAccelerator accelerator;
    return accelerator;
}

}  // namespace vidorra::test

// These replace the library's.
namespace z5::hw::accel {

using vidorra::test::FakeAccelerator;
using vidorra::test::fakeAccelerator;

Composer::Composer(int device) noexcept : mDevice(device) {}

void Composer::process(Nv12Buffer<void>&& dst, Nv12Buffer<const void>&& overlay, int width, int height,
                       unsigned char alpha, unsigned int flags) const {
    vidorra::test::events().emplace_back("process");
    fakeAccelerator().compositions.push_back({mDevice, dst, overlay, width, height, alpha, flags});
    if (fakeAccelerator().fails) {
        throw FakeAccelerator::Error();
    }
}

Scaler::Scaler(int device) noexcept : mDevice(device) {}

void Scaler::process(Nv12Buffer<void>&& dst, Nv12Buffer<const void>&& src, unsigned int flags) const {
    vidorra::test::events().emplace_back("process");
    fakeAccelerator().scalings.push_back({mDevice, dst, src, flags});
    if (fakeAccelerator().fails) {
        throw FakeAccelerator::Error();
    }
}

}  // namespace z5::hw::accel
