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

// AV_PIX_FMT_FLAG_PAL and the flag of formats with a pretended palette, which later generations no longer
// define.
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
    const int chromaX = descriptor->log2_chroma_w;
    const int chromaY = descriptor->log2_chroma_h;
    part = ChromaGrid(chromaX, chromaY).down(part);
    int steps[4] = {};
    ffmpeg_ext::fillMaxPixelSteps(steps, picture.pixelFormat());

    const std::ptrdiff_t x = part.x;
    const std::ptrdiff_t y = part.y;
    movePlane(view.data[0], x * steps[0] + y * view.linesize[0]);
    if ((descriptor->flags & kPaletteFlags) == 0) {
        for (std::size_t plane : {1, 2}) {
            movePlane(view.data[plane],
                      ((x * steps[plane]) >> chromaX) + (y >> chromaY) * view.linesize[plane]);
        }
    }
    // Plane 3 is an alpha plane of full resolution.
    movePlane(view.data[3], x * steps[3] + y * view.linesize[3]);
    view.size = {part.width, part.height};
    return view;
}

}  // namespace vidorra
