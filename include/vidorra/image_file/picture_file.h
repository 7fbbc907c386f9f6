#pragma once

#include <string>

#include "vidorra/core/export.h"
#include "vidorra/core/ffmpeg_fwd.h"
#include "vidorra/core/geometry.h"
#include "vidorra/picture/picture.h"

/// Loads pictures from files and saves them.
///
///     const vidorra::Picture picture = vidorra::loadPicture("logo.png", AV_PIX_FMT_RGBA, AVCOL_RANGE_JPEG);
///     vidorra::savePicture(picture, "copy.png", AV_CODEC_ID_NONE);
namespace vidorra {

/// The picture of an image file, or of the first packet of any source that FFmpeg opens. The picture is
/// converted to `format` and `range`; with AV_PIX_FMT_NONE it keeps the decoder's format and range, and
/// `range` is ignored. Empty for a format that libswscale cannot make, such as NVA12, and when libswscale
/// finds no memory.
///
/// Only one packet is read: an animated image gives its first picture, and a video whose first packet gives
/// no picture is an error. Threads: thread-safe, like the other functions here.
/// Errors: std::runtime_error with the file's name when it cannot be opened or gives no picture; also the
/// errors of FormatContext and of ColorSpaceConverter::convertTo().
[[nodiscard]] VIDORRA_API Picture loadPicture(const std::string& filename, AVPixelFormat format,
                                              AVColorRange range);

/// A picture from a file of planar 4:2:0 samples without a header: all of the luma, then U, then V. Width
/// and height must be even and at least 2. Rows have no gaps between them, neither in the file nor in
/// memory.
/// Errors: std::invalid_argument for another size, and for a file whose length does not fit the size; a file
/// that cannot be opened counts as empty. std::runtime_error with the file's name when reading it fails.
[[nodiscard]] VIDORRA_API Picture loadPictureFromYUV420PFile(const std::string& filename, const Size& size,
                                                             AVColorRange range);

/// Encodes a picture as one packet and writes that into a file without a container, which makes an image
/// file: PNG, JPEG, BMP, TIFF and others. With AV_CODEC_ID_NONE the extension of the name chooses the codec;
/// otherwise the extension is ignored.
///
/// The picture is converted to the codec's pixel format that VideoEncoder::chooseBestPixelFormat() chooses;
/// a picture that the codec accepts unchanged is not copied. Saving fails with codecs that need more than
/// one frame before they give a packet, such as H.264, and WebP where FFmpeg encodes it as an animation.
/// Errors: std::runtime_error for an unknown extension, for a codec without an encoder, for a file that
/// cannot be created or written, and when no packet comes out; in the last case an empty file is left.
/// BadCast with the file's name for a picture without pixels. Also FFmpegError and the errors of
/// ColorSpaceConverter::convertTo().
VIDORRA_API void savePicture(Picture picture, const std::string& filename, AVCodecID codec);

}  // namespace vidorra
