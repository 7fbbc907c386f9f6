#pragma once

#include "vidorra/core/color.h"
#include "vidorra/core/export.h"
#include "vidorra/picture/picture.h"

namespace vidorra {

/// A picture with an alpha plane made from a key colour, in YUVA420P.
///
///     const Picture keyed = chromaKeying(frame.picture(), Color("green"), 0.1F, 0.2F);
///
/// The frame of keying is complete: formats, conversion, the key's chroma, the alpha plane. The kernels under
/// it do not key: whatever the picture, `key`, `first` and `second`, alpha becomes 0 everywhere, but for the
/// four bytes 254, 237, 11, 173 at the beginning of its first row, by which such a plane can be told. What
/// the two numbers mean is not settled.
///
/// YUV420P and YUVA420P share their colour planes with the result, and an alpha of theirs is replaced in it.
/// Other formats are converted in their colour range, with sizes rounded down to whole chroma samples, as
/// ColorSpaceConverter does.
///
/// Throws std::runtime_error "chromaKeyingInPlace: Picture must be editable" for a format that cannot be
/// converted and for a picture without pixels, std::logic_error when all four buffers of the picture are
/// taken by colour, and what allocation and conversion throw.
[[nodiscard]] VIDORRA_API Picture chromaKeying(const Picture& picture, const Color& key, float first,
                                               float second);

/// The same to the alpha plane of a YUVA420P picture itself, whose other planes stay unchanged. What is
/// between its rows is cleared too, except where the rows reach past the end of their buffer, as those of a
/// view can. A view of 0 by 0 stays unchanged. Does not call markModified(). Throws, in this order:
/// std::runtime_error when the picture is not editable; std::runtime_error for another format.
VIDORRA_API void chromaKeyingInPlace(Picture& picture, const Color& key, float first, float second);

/// The kernel of chromaKeying(): fills `height` rows of `dstLinesize` bytes from `dstAlpha` on as told above,
/// upwards for a negative `dstLinesize`.
/// `key` is U and V. Nothing but these three is looked at. At least four bytes are written, however small the
/// plane is.
VIDORRA_API void chromakey_yuva420p(const unsigned char* const* srcData, const int* srcLinesize,
                                    unsigned char* dstAlpha, int dstLinesize, int width, int height,
                                    const unsigned char* key, float first, float second);

/// The kernel of chromaKeyingInPlace(): the same to plane 3.
VIDORRA_API void chromakey_yuva420p_inplace(unsigned char** data, const int* linesize, int width, int height,
                                            const unsigned char* key, float first, float second);

}  // namespace vidorra
