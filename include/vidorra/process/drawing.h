#pragma once

#include "vidorra/core/color.h"
#include "vidorra/core/export.h"
#include "vidorra/core/geometry.h"
#include "vidorra/picture/picture.h"

namespace vidorra {

/// Overwrites a part of a picture with a colour. Nothing is blended: the colour's alpha goes into an alpha
/// plane as it is. Colours of formats other than RGB are computed with the matrix of BT.601, in the full
/// range for a picture of AVCOL_RANGE_JPEG and otherwise in the limited one.
///
///     fillRectangle(screen, Rect{80, 560, 400, 100}, Color("orange"));
///
/// The part of `rect` that lies on the picture is filled, with its position and its size each rounded down to
/// whole chroma samples: 3 by 3 pixels at 1, 1 of YUV420P are 2 by 2 at 0, 0. Nothing happens outside. The
/// picture is marked as modified.
///
/// Formats: gray, planar, semi-planar and packed ones of 8 to 16 bits a sample, little-endian, and NVA12; not
/// packed ones with subsampled chroma, such as YUYV422, nor palettes.
/// Errors: std::runtime_error when the picture is not editable, and for another format.
VIDORRA_API void fillRectangle(Picture& picture, Rect rect, Color color);

/// The whole picture. Of an odd size with subsampled chroma the last row or column thus stays.
VIDORRA_API void fillRectangle(Picture& picture, Color color);

/// A pattern to see line sizes by: byte i of each plane, padding included, becomes i / width modulo 256, as
/// far as the plane's buffer reaches. Does nothing to an empty picture. Neither asks whether the picture is
/// editable nor marks it as modified.
VIDORRA_API void fillWithDebugData(Picture& picture);

}  // namespace vidorra
