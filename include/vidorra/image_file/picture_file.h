#pragma once

#include <string>

#include "vidorra/core/export.h"
#include "vidorra/core/ffmpeg_fwd.h"
#include "vidorra/core/geometry.h"
#include "vidorra/picture/picture.h"

/// Pictures from files and into files.
///
///     const vidorra::Picture picture = vidorra::loadPicture("logo.png", AV_PIX_FMT_RGBA, AVCOL_RANGE_JPEG);
///     vidorra::savePicture(picture, "copy.png", AV_CODEC_ID_NONE);
namespace vidorra {

/// The picture of an image file, or of the first packet of any source that FFmpeg opens. With a `format` it
/// is converted to that and to `range`; with AV_PIX_FMT_NONE it keeps the decoder's format and range, and
/// `range` is ignored. Empty for a format that libswscale cannot make, NVA12 among them.
///
/// One packet is read: an animated image gives its first picture, and a video whose first packet does not
/// give a picture at once gives an error. Threads: all calls are free, as for the other operations here.
/// Errors: std::runtime_error with the file's name when it cannot be opened or gives no picture, the errors
/// of FormatContext and of ColorSpaceConverter::convertTo() besides.
[[nodiscard]] VIDORRA_API Picture loadPicture(const std::string& filename, AVPixelFormat format,
                                              AVColorRange range);

/// A picture from a file of planar 4:2:0 samples without any header: all of the luma, then U, then V. Sizes
/// are even and at least 2 by 2. Rows follow each other without a gap, in memory too.
/// Errors: std::invalid_argument for another size, and for a file whose length does not fit the size; one
/// that cannot be opened counts as empty. std::runtime_error with the file's name when reading it fails.
[[nodiscard]] VIDORRA_API Picture loadPictureFromYUV420PFile(const std::string& filename, const Size& size,
                                                             AVColorRange range);

/// Writes a picture into a file, encoded as one packet without a container, which is what image files are:
/// PNG, JPEG, BMP, TIFF and others. With AV_CODEC_ID_NONE the name's extension chooses the codec, otherwise
/// it does not matter.
///
/// The picture is converted to the pixel format of the codec that is nearest by
/// VideoEncoder::chooseBestPixelFormat(); one that the codec takes unchanged is not copied. Codecs that need
/// more than one frame to begin, such as WebP where FFmpeg encodes it as an animation, and H.264, fail.
/// Errors: std::runtime_error for an extension that nothing is known for, for a codec without encoder, for a
/// file that cannot be created or written, and when no packet comes out; a file without content stays behind
/// in the last case. BadCast with the file's name for a picture without pixels. FFmpegError and the errors of
/// ColorSpaceConverter::convertTo() besides.
VIDORRA_API void savePicture(Picture picture, const std::string& filename, AVCodecID codec);

}  // namespace vidorra
