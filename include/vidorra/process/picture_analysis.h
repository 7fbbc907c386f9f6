#pragma once

#include <iosfwd>
#include <string>

#include "vidorra/core/export.h"
#include "vidorra/core/geometry.h"
#include "vidorra/picture/picture.h"

namespace vidorra {

/// The smallest rectangle with all pixels whose alpha is not 0, grown outwards to whole chroma samples. All
/// of the picture for a format without alpha, all zero when no pixel is visible, as in an empty picture with
/// alpha.
///
/// Peculiarities: a picture of one row has no visible pixel, one that is visible in its last row only has
/// none either. Of an alpha with more than 8 bits the first byte decides, of a palette the index.
[[nodiscard]] VIDORRA_API Rect alphaTrimmedRect(const Picture& picture);

/// Whether two pictures are the same.
///
///     if (!comparePictures(expected, picture, 2, false, &std::cerr)) { ... }
///
/// That is, whether they have the same size, format, range (an unspecified one equals any) and, up to
/// `tolerance` in each sample, the same pixels. Empty pictures equal nothing. With `skipLastComponent` the
/// alpha of formats with four components is not looked at. Subsampled chroma is compared over half the size
/// rounded down.
///
/// What differs is written to `report`, which may be null, in lines that begin with "....Pictures are
/// different. ": of each component that differs the first pixel, the one with the largest difference, and how
/// many there are.
/// Errors: std::runtime_error for formats with samples of other than 8 bits.
[[nodiscard]] VIDORRA_API bool comparePictures(const Picture& left, const Picture& right, unsigned tolerance,
                                               bool skipLastComponent, std::ostream* report);

/// The MD5 of the pixels as 32 lower-case hexadecimal digits, or an empty string for an empty picture. What
/// lies in a row behind the picture's width takes no part.
///
/// The sum goes over as many components as there are planes, each with the bytes of its row from its own
/// first one on: a plane of two components, or pixels in one plane, counts by the component that stands first
/// in the format. So every byte counts in planar formats, NV12, RGB24 and RGBA, but of each row not the bytes
/// in front of that component where it is not the first: two in BGR24, one in ARGB and NV21. Subsampled
/// chroma counts with half the size rounded down. Errors: std::runtime_error when there is no memory.
[[nodiscard]] VIDORRA_API std::string getPlanesMD5(const Picture& picture);

}  // namespace vidorra
