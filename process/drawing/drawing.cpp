#include "vidorra/process/drawing.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <stdexcept>

#include "ffmpeg/pixel_formats.h"
#include "picture/chroma_grid.h"
#include "process/drawing/draw_context.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

namespace vidorra {

void fillRectangle(Picture& picture, Rect rect, Color color) {
    if (!picture.editable()) {
        throw std::runtime_error("fillRectangle: Picture must be editable");
    }
    const Size size = picture.frameSize();
    const Rect area = Rect{0, 0, size.width, size.height}.intersected(rect);
    if (area.width == 0 || area.height == 0) {
        return;
    }
    const FFDrawContext context =
        initDrawContext(picture.pixelFormat(), picture.colorRange() == AVCOL_RANGE_JPEG);
    const FFDrawColor drawColor = initDrawColor(context, color);
    // Deliberate: position and size are rounded separately.
    const Rect whole = ChromaGrid(context.hsub_max, context.vsub_max).down(area);
    ffmpeg_ext::ff_fill_rectangle(&context, &drawColor, picture.data().data(), picture.linesize().data(),
                                  whole.x, whole.y, whole.width, whole.height);
    picture.markModified();
}

void fillRectangle(Picture& picture, Color color) {
    const Size size = picture.frameSize();
    fillRectangle(picture, {0, 0, size.width, size.height}, color);
}

void fillWithDebugData(Picture& picture) {
    if (picture.empty()) {
        return;
    }
    const AVPixFmtDescriptor* descriptor = ffmpeg_ext::pixelFormatDescriptor(picture.pixelFormat());
    const int chromaShift = descriptor != nullptr ? descriptor->log2_chroma_h : 0;
    const std::int64_t width = picture.frameSize().width;
    for (std::size_t plane = 0; plane < picture.data().size(); ++plane) {
        std::uint8_t* data = picture.data()[plane];
        if (data == nullptr) {
            continue;
        }
        const bool isChroma = plane == 1 || plane == 2;
        const std::int64_t rows = picture.frameSize().height >> (isChroma ? chromaShift : 0);
        std::int64_t bytes = rows * picture.linesize()[plane];
        // The last row of a view can end with its last pixel, and a palette has no rows.
        if (const std::optional<std::size_t> available = picture.bytesInBuffer(plane)) {
            bytes = std::min(bytes, static_cast<std::int64_t>(*available));
        }
        // Deliberate: runs of the picture's width, even in narrower planes.
        const std::int64_t run = width > 0 ? width : bytes;
        for (std::int64_t i = 0; i < bytes; i += run) {
            std::memset(data + i, static_cast<int>(i / run % 256),
                        static_cast<std::size_t>(std::min(run, bytes - i)));
        }
    }
}

}  // namespace vidorra
