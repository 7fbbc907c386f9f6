#pragma once

#include "vidorra/picture/picture.h"

namespace vidorra {

/// Where a part of a picture is in memory. It holds no reference to that memory, which must outlive it.
struct PictureView {
    Size size;
    Picture::Planes data{};
    Picture::Linesizes linesize{};
};

/// The part of a picture that is inside of `rect`. Unless that is all of the picture, its position and size
/// are rounded down, each by itself, to whole groups of pixels as pixelGroup() gives them. A width or height
/// can then be 0. Throws std::invalid_argument for a part of a picture whose format has no descriptor.
PictureView viewOf(const Picture& picture, const Rect& rect);

}  // namespace vidorra
