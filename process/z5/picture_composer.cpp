#include "vidorra/process/z5/picture_composer.h"

#include <cstddef>
#include <cstdint>
#include <stdexcept>

#include "process/z5/device.h"
#include "z5_hw_accel/composer.h"

namespace vidorra::z5 {
namespace {

// The bits that tell the accelerator `flag`. It defines their meaning, which is not that of PictureScaler's
// bits.
constexpr unsigned kFlagBits = 96;

unsigned char alphaOf(double opacity) {
    // Written so that NaN counts as 0, too.
    if (!(opacity >= 0.0)) {
        return 0;
    }
    return opacity > 1.0 ? 255 : static_cast<unsigned char>(opacity * 255.0);
}

}  // namespace

PictureComposer::PictureComposer(std::string_view deviceName) : mDevice(openDevice(deviceName)) {}

bool PictureComposer::isPictureCompatible(const Picture& picture) {
    return isCompatible(picture);
}

void PictureComposer::compose(Picture& dst, const Picture& overlay, Point position, double opacity,
                              bool flag) const {
    if (!dst.editable()) {
        throw std::invalid_argument("z5 hw composer: destination picture is not editable");
    }
    if (!isPictureCompatible(dst)) {
        throw std::invalid_argument("z5 hw composer: incompatible destination picture");
    }
    if (!isPictureCompatible(overlay)) {
        throw std::invalid_argument("z5 hw composer: incompatible overlay picture");
    }

    // Whole chroma samples only, of the position and of what shows.
    const int px = position.x & ~1;
    const int py = position.y & ~1;
    const Rect visible = Rect{0, 0, dst.frameSize().width, dst.frameSize().height}.intersected(
        {px, py, overlay.frameSize().width, overlay.frameSize().height});
    const int width = visible.width & ~1;
    const int height = visible.height & ~1;
    if (width == 0 || height == 0) {
        return;
    }
    const int x = visible.x & ~1;
    const int y = visible.y & ~1;
    const Picture cropped = overlay.crop({x - px, y - py, width, height});

    dst.flush();
    overlay.flush();

    const std::ptrdiff_t stride = dst.linesize()[0];
    const std::ptrdiff_t offset = y * stride + x;
    std::uint8_t* const alphaPlane = dst.data()[3];
    // Deliberate: the destination is not marked as modified, since that mark is for writes by the CPU. Its
    // record covers the rest of the picture, not just the overlay.
    ::z5::hw::accel::Composer(mDevice.get())
        .process({.luma = dst.data()[0] + offset,
                  .chroma = dst.data()[1] + ((y * stride) >> 1) + x,
                  .alpha = alphaPlane != nullptr ? alphaPlane + offset : nullptr,
                  .linesize = dst.linesize()[0],
                  .width = dst.frameSize().width - x,
                  .height = dst.frameSize().height - y},
                 wholeBuffer<const void>(cropped), width, height, alphaOf(opacity), flag ? kFlagBits : 0);
}

}  // namespace vidorra::z5
