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
/// `component` counts as FFmpeg does: 0 is luma, red or grey, then U and V or green and blue, then alpha,
/// where the format has these. The others stay as they are, also where they lie in the same plane. Of
/// subsampled chroma, as many samples are mapped as the picture's size has whole ones. Of samples that are
/// larger than a byte, one byte is mapped.
///
/// `table` has 256 entries, and the format has the component: neither is checked. Nor does it matter whether
/// the picture is editable(): ask that before, and call markModified() behind. A picture without pixels or
/// without a format stays as it is.
VIDORRA_API void applyLUT(Picture& picture, int component, const std::vector<unsigned char>& table);

}  // namespace vidorra
