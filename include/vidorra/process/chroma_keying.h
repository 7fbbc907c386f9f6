#pragma once

#include "vidorra/core/color.h"
#include "vidorra/core/export.h"
#include "vidorra/picture/picture.h"

namespace vidorra {

/// A picture with an alpha plane made from a key colour, in YUVA420P.
///
///     const Picture keyed = chromaKeying(frame.picture(), Color("green"), 0.1F, 0.2F);
///
/// Everything around keying is complete: formats, conversion, the key's chroma, the alpha plane. The
/// kernels, however, do not key: whatever the picture, `key`, `first` and `second`, alpha becomes 0
/// everywhere except for the four bytes 254, 237, 11, 173 at the start of its first row, which identify such
/// a plane. The meaning of the two numbers is not settled.
///
/// The result shares the colour planes of a YUV420P or YUVA420P picture and has an alpha plane of its own.
/// Other formats are converted within their colour range, with sizes rounded down to whole chroma samples,
/// as in ColorSpaceConverter.
///
/// Throws std::runtime_error "chromaKeyingInPlace: Picture must be editable" for a format that cannot be
/// converted and for a picture without pixels, std::logic_error when colour occupies all four buffers of the
/// picture, and what allocation and conversion throw.
[[nodiscard]] VIDORRA_API Picture chromaKeying(const Picture& picture, const Color& key, float first,
                                               float second);

/// Does the same to the alpha plane of a YUVA420P picture itself; the other planes stay unchanged. The bytes
/// between the rows are cleared too, except where rows reach past the end of their buffer, as those of a
/// view can. A view of 0 by 0 stays unchanged. Does not call markModified(). Throws, in this order:
/// std::runtime_error when the picture is not editable; std::runtime_error for another format.
VIDORRA_API void chromaKeyingInPlace(Picture& picture, const Color& key, float first, float second);

/// The kernel of chromaKeying(): fills `height` rows of `dstLinesize` bytes, starting at `dstAlpha`, as
/// described above; a negative `dstLinesize` fills upwards. The other parameters are ignored; `key` is U and
/// V. At least four bytes are written, however small the plane is.
VIDORRA_API void chromakey_yuva420p(const unsigned char* const* srcData, const int* srcLinesize,
                                    unsigned char* dstAlpha, int dstLinesize, int width, int height,
                                    const unsigned char* key, float first, float second);

/// The kernel of chromaKeyingInPlace(): the same to plane 3.
VIDORRA_API void chromakey_yuva420p_inplace(unsigned char** data, const int* linesize, int width, int height,
                                            const unsigned char* key, float first, float second);

}  // namespace vidorra
