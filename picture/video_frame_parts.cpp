// The operations of VideoFrame that cut frames.

#include <cstdint>

#include "core/rect_edges.h"
#include "ffmpeg/pixel_formats.h"
#include "picture/chroma_grid.h"
#include "picture/video_frame_rect.h"
#include "vidorra/picture/video_frame.h"

namespace vidorra {

VideoFrame VideoFrame::crop(const Rect& rect) const {
    const Rect visible = rectOf(*this).intersected(rect);
    if (visible.width == 0 || visible.height == 0) {
        return {};
    }
    Rect part{visible.x - mPosition.x, visible.y - mPosition.y, visible.width, visible.height};
    // As in Picture::crop(), which handles formats without a descriptor.
    const ffmpeg_ext::PixelGroup group = ffmpeg_ext::pixelGroup(mPicture.pixelFormat());
    part = ChromaGrid(group.log2Width, group.log2Height).down(part);
    VideoFrame result(mPicture.crop(part), timestamp(), flags());
    result.metadata() = metadata();
    result.setPosition({mPosition.x + part.x, mPosition.y + part.y});
    return result;
}

std::vector<VideoFrame> VideoFrame::subtract(const Rect& rect) const {
    std::vector<VideoFrame> parts;
    const Rect whole = rectOf(*this);
    const Rect hole = whole.intersected(rect);
    if (hole.width == 0 || hole.height == 0) {
        return parts;
    }
    parts.reserve(4);
    const auto add = [&](std::int64_t x, std::int64_t y, std::int64_t width, std::int64_t height) {
        if (width != 0 && height != 0) {
            parts.push_back(crop({static_cast<std::int32_t>(x), static_cast<std::int32_t>(y),
                                  static_cast<std::int32_t>(width), static_cast<std::int32_t>(height)}));
        }
    };
    add(whole.x, whole.y, whole.width, std::int64_t{hole.y} - whole.y);
    add(whole.x, hole.y, std::int64_t{hole.x} - whole.x, hole.height);
    add(right(hole), hole.y, right(whole) - right(hole), hole.height);
    add(whole.x, bottom(hole), whole.width, bottom(whole) - bottom(hole));
    return parts;
}

}  // namespace vidorra
