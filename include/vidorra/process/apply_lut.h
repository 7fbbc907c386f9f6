#pragma once

#include <vector>

#include "vidorra/core/export.h"
#include "vidorra/picture/picture.h"

namespace vidorra {

/// Maps one component of a picture through a table, in place: each byte v becomes table[v].
///
///     std::vector<unsigned char> darker(256);
///     for (int v = 0; v < 256; ++v) { darker[v] = static_cast<unsigned char>(v * 3 / 4); }
///     applyLUT(picture, 0, darker);
///
/// `component` is counted as in FFmpeg: 0 is luma, red or grey, then U and V or green and blue, then alpha,
/// if the format has these. The other components stay unchanged, even in the same plane. For subsampled
/// chroma in planes of its own the size is rounded down to whole samples; if chroma shares a plane with
/// luma, as in YUYV422, all samples of a row are mapped. Of samples larger than a byte, one byte is mapped.
/// Two kinds of formats are exceptions: those with several pixels in a byte, such as MONOBLACK, stay
/// unchanged, and the luma of UYYVYY411 cannot be mapped by itself.
///
/// `table` must have 256 entries, and the format must have the component; neither is checked. editable() is
/// not checked either: check it first, and call markModified() afterwards. An empty picture and one without
/// a format stay unchanged.
VIDORRA_API void applyLUT(Picture& picture, int component, const std::vector<unsigned char>& table);

}  // namespace vidorra
