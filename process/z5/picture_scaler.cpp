#include "vidorra/process/z5/picture_scaler.h"

#include <stdexcept>

#include "process/z5/device.h"
#include "z5_hw_accel/scaler.h"

namespace vidorra::z5 {
namespace {

// The bits that tell the accelerator `flag`. It defines their meaning, which is not that of
// PictureComposer's bits.
constexpr unsigned kFlagBits = 56;

}  // namespace

PictureScaler::PictureScaler(std::string_view deviceName) : mDevice(openDevice(deviceName)) {}

bool PictureScaler::isPictureCompatible(const Picture& picture) {
    return isCompatible(picture);
}

void PictureScaler::setPictureAllocator(PictureAllocator* allocator) {
    // Deliberate: null stays null, since the accelerator cannot use the default allocator's pictures.
    mAllocator = allocator;
}

void PictureScaler::scaleTo(Picture& dst, const Picture& src, bool flag) {
    if (!dst.editable()) {
        throw std::invalid_argument("z5 hw scaler: destination picture is not editable");
    }
    if (!isPictureCompatible(dst)) {
        throw std::invalid_argument("z5 hw scaler: incompatible destination picture");
    }
    if (!isPictureCompatible(src)) {
        throw std::invalid_argument("z5 hw scaler: incompatible source picture");
    }
    if (dst.pixelFormat() != src.pixelFormat()) {
        throw std::invalid_argument("z5 hw scaler: mismatch source and destination pixel format");
    }
    // Deliberate: the destination is neither flushed, since all of it is overwritten, nor marked as
    // modified, since that mark is for writes by the CPU.
    src.flush();
    ::z5::hw::accel::Scaler(mDevice.get())
        .process(wholeBuffer<void>(dst), wholeBuffer<const void>(src), flag ? kFlagBits : 0);
}

Picture PictureScaler::scale(const Picture& src, Size size, bool flag) {
    if (mAllocator == nullptr) {
        throw std::runtime_error("z5 hw scaler: picture allocator is not specified");
    }
    Picture result =
        mAllocator->allocate({size.width & ~1, size.height & ~1}, src.pixelFormat(), src.colorRange());
    scaleTo(result, src, flag);
    return result;
}

}  // namespace vidorra::z5
