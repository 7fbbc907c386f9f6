#include "picture/picture_view.h"

#include <cstddef>
#include <stdexcept>

#include "ffmpeg/pixel_formats.h"
#include "picture/chroma_grid.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

namespace vidorra {
namespace {

// AV_PIX_FMT_FLAG_PAL and the flag of formats with a pseudo palette, which later versions no longer define.
constexpr int kPaletteFlags = 0x42;

void movePlane(std::uint8_t*& plane, std::ptrdiff_t distance) {
    if (plane != nullptr) {
        plane += distance;
    }
}

}  // namespace

PictureView viewOf(const Picture& picture, const Rect& rect) {
    const Rect whole{0, 0, picture.frameSize().width, picture.frameSize().height};
    Rect part = rect.intersected(whole);
    PictureView view{picture.frameSize(), picture.data(), picture.linesize()};
    if (part == whole) {
        return view;
    }
    const AVPixFmtDescriptor* descriptor = ffmpeg_ext::pixelFormatDescriptor(picture.pixelFormat());
    if (descriptor == nullptr) {
        throw std::invalid_argument("Picture::crop: the pixel format has no descriptor");
    }
    // Rounded down to whole groups of pixels; the view can be smaller than requested.
    const ffmpeg_ext::PixelGroup group = ffmpeg_ext::pixelGroup(picture.pixelFormat());
    part = ChromaGrid(group.log2Width, group.log2Height).down(part);
    const auto move = [&](int plane, int rows) {
        const auto index = static_cast<std::size_t>(plane);
        movePlane(view.data[index], ffmpeg_ext::rowBytes(picture.pixelFormat(), plane, part.x) +
                                        std::ptrdiff_t{rows} * view.linesize[index]);
    };
    move(0, part.y);
    if ((descriptor->flags & kPaletteFlags) == 0) {
        move(1, part.y >> group.log2Height);
        move(2, part.y >> group.log2Height);
    }
    // Plane 3 is an alpha plane of full resolution.
    move(3, part.y);
    view.size = {part.width, part.height};
    return view;
}

}  // namespace vidorra
