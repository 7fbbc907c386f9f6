#pragma once

#include <iosfwd>
#include <string>

#include "vidorra/core/export.h"
#include "vidorra/core/geometry.h"
#include "vidorra/picture/picture.h"

namespace vidorra {

/// The smallest rectangle that contains all pixels whose alpha is not 0, enlarged to whole chroma samples.
/// The whole picture for a format without alpha; all zero when no pixel is visible, as in an empty picture
/// with alpha.
///
/// Peculiarities: a picture of one row has no visible pixel, and neither has a picture that is visible only
/// in its last row. For alpha with more than 8 bits the first byte decides, for a palette the index.
[[nodiscard]] VIDORRA_API Rect alphaTrimmedRect(const Picture& picture);

/// Whether two pictures are the same.
///
///     if (!comparePictures(expected, picture, 2, false, &std::cerr)) { ... }
///
/// That is, whether they have the same size, format, range (an unspecified range equals any) and, up to
/// `tolerance` in each sample, the same pixels. An empty picture equals no picture. With `skipLastComponent`
/// the alpha of formats with four components is ignored. Subsampled chroma is compared over half the size,
/// rounded down.
///
/// Differences are written to `report`, which may be null, in lines that begin with "....Pictures are
/// different. ". For each component that differs they give the first pixel, the one with the largest
/// difference, and the number of such pixels.
/// Errors: std::runtime_error for formats with samples of other than 8 bits.
[[nodiscard]] VIDORRA_API bool comparePictures(const Picture& left, const Picture& right, unsigned tolerance,
                                               bool skipLastComponent, std::ostream* report);

/// The MD5 of the pixels as 32 lower-case hexadecimal digits, or an empty string for an empty picture. Bytes
/// past the picture's width are ignored.
///
/// The sum covers one component for each plane, and each row from that component's first byte on. For a
/// plane with several components this is the format's first one. So every byte counts in planar formats,
/// NV12, RGB24 and RGBA. In formats that store another component first, the bytes before it in each row are
/// not counted: two in BGR24, one in ARGB and NV21. Subsampled chroma counts with half the size, rounded
/// down. Errors: std::runtime_error when there is no memory.
[[nodiscard]] VIDORRA_API std::string getPlanesMD5(const Picture& picture);

}  // namespace vidorra
