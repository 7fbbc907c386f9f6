#pragma once

#include "vidorra/core/geometry.h"
#include "vidorra/picture/video_frame.h"

namespace vidorra {

/// The area of a frame on the canvas.
inline Rect rectOf(const VideoFrame& frame) {
    const Point position = frame.position();
    const Size size = frame.picture().frameSize();
    return {position.x, position.y, size.width, size.height};
}

}  // namespace vidorra
