#include <stdexcept>

#include "z5_hw_accel/composer.h"
#include "z5_hw_accel/scaler.h"

namespace z5::hw::accel {

Composer::Composer(int device) : mDevice(device) {}

void Composer::process(Nv12Buffer<void>&& dst, Nv12Buffer<const void>&& overlay, int width, int height,
                       unsigned char alpha, unsigned int flags) const {
    if (mDevice < 0 || overlay.alpha == nullptr || dst.alpha != nullptr || width != 16 || height != 16 ||
        flags != 96) {
        throw std::logic_error("this is not what was to be composed");
    }
    *static_cast<unsigned char*>(dst.luma) = alpha;
}

Scaler::Scaler(int device) : mDevice(device) {}

void Scaler::process(Nv12Buffer<void>&& dst, Nv12Buffer<const void>&& src, unsigned int flags) const {
    if (mDevice < 0 || src.width != 64 || dst.width != 32) {
        throw std::logic_error("this is not what was to be scaled");
    }
    *static_cast<unsigned char*>(dst.luma) = static_cast<unsigned char>(flags);
}

}  // namespace z5::hw::accel
