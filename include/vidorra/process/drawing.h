#pragma once

#include "vidorra/core/color.h"
#include "vidorra/core/export.h"
#include "vidorra/core/geometry.h"
#include "vidorra/picture/picture.h"

namespace vidorra {

/// Overwrites a part of a picture with a colour. Nothing is blended: the colour's alpha is written into an
/// alpha plane unchanged. In formats other than RGB the colour is computed with the matrix of BT.601, in
/// full range for a picture of AVCOL_RANGE_JPEG and otherwise in limited range.
///
///     fillRectangle(screen, Rect{80, 560, 400, 100}, Color("orange"));
///
/// Fills the part of `rect` that is on the picture, with position and size each rounded down to whole chroma
/// samples: on YUV420P, 3 by 3 pixels at 1, 1 become 2 by 2 at 0, 0. The picture is marked as modified.
///
/// Formats: gray, planar, semi-planar and packed ones of 8 to 16 bits a sample, little-endian, and NVA12;
/// but not packed ones with subsampled chroma, such as YUYV422, and not palettes.
/// Errors: std::runtime_error when the picture is not editable, and for another format.
VIDORRA_API void fillRectangle(Picture& picture, Rect rect, Color color);

/// Fills the whole picture. With subsampled chroma an odd last row or column therefore stays unchanged.
VIDORRA_API void fillRectangle(Picture& picture, Color color);

/// Fills the picture with a pattern that makes line sizes visible: byte i of each plane, including padding,
/// becomes i / width modulo 256, up to the end of the plane's buffer. Does nothing to an empty picture. Does
/// not check that the picture is editable, and does not mark it as modified.
VIDORRA_API void fillWithDebugData(Picture& picture);

}  // namespace vidorra
