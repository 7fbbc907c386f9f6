#pragma once

#include "vidorra/picture/picture.h"

namespace vidorra {

/// Where a part of a picture is in memory. It holds no reference to that memory, which must outlive it.
struct PictureView {
    Size size;
    Picture::Planes data{};
    Picture::Linesizes linesize{};
};

/// The part of a picture inside `rect`. Unless that is the whole picture, its position and size are
/// separately rounded down to whole groups of pixels as given by pixelGroup(), so a width or height can
/// become 0. Throws std::invalid_argument for a part of a picture whose format has no descriptor.
PictureView viewOf(const Picture& picture, const Rect& rect);

}  // namespace vidorra
