#pragma once

#include <cstddef>
#include <cstdint>

extern "C" {
#include <libavutil/pixfmt.h>
}

struct AVFrame;
struct AVPixFmtDescriptor;

/// FFmpeg's questions about pixel formats, with the format NVA12 among them. A build of FFmpeg for devices
/// has that format; in a distribution's its number belongs to another one, which thus has no place in the
/// library and is unknown here. Nothing else of the project asks FFmpeg about a pixel format.
namespace vidorra::ffmpeg_ext {

/// NV12 with a full-resolution alpha plane in plane 3; plane 2 is absent.
inline constexpr auto kNva12 = static_cast<AVPixelFormat>(193);

/// Whether this FFmpeg has the format itself, so that its codecs and filters may be given such pictures.
bool hasNva12();

/// Null for a value that is no format.
const AVPixFmtDescriptor* pixelFormatDescriptor(AVPixelFormat format);

/// Null for a value that is no format.
const char* pixelFormatName(AVPixelFormat format);

/// AV_PIX_FMT_NONE for an unknown name.
AVPixelFormat pixelFormatFromName(const char* name);

/// What a format that means full range by its name (YUVJ420P and its kin) is called without that; any other
/// is given back.
AVPixelFormat withoutImpliedRange(AVPixelFormat format);

/// Bytes from one pixel to the next in each plane, 0 where there is no plane or no such format.
void fillMaxPixelSteps(int steps[4], AVPixelFormat format);

/// The smallest group of pixels that begins and ends with whole bytes in every plane, as powers of two: the
/// pixels of one chroma sample, or those that share a byte. A single pixel for a value that is no format.
struct PixelGroup {
    int log2Width = 0;
    int log2Height = 0;
};
PixelGroup pixelGroup(AVPixelFormat format);

/// Bytes of the first `pixels` pixels of a row, rounded up to whole groups; 0 for a palette, and where there
/// is no plane or no such format.
std::ptrdiff_t rowBytes(AVPixelFormat format, int plane, int pixels);

/// av_image_fill_arrays: lays the planes of a picture out behind `source`, which may be null. Gives the size
/// in bytes or a negative FFmpeg code.
int fillImageArrays(std::uint8_t* data[4], int linesize[4], const std::uint8_t* source, AVPixelFormat format,
                    int width, int height, int align);

/// av_image_get_buffer_size: the size in bytes of a picture, or a negative FFmpeg code.
int imageBufferSize(AVPixelFormat format, int width, int height, int align);

/// av_image_copy. A palette or an alpha plane is copied where both sides have one.
void copyImage(std::uint8_t* const destination[4], const int destinationLinesize[4],
               const std::uint8_t* const source[4], const int sourceLinesize[4], AVPixelFormat format,
               int width, int height);

/// Whether a value is a format, and means the same to FFmpeg.
bool isStockFormat(AVPixelFormat format);

/// Whether a frame made by FFmpeg has the number of NVA12 but is in the format to which FFmpeg gave that
/// number.
bool isForeignNva12(const AVFrame& frame);

}  // namespace vidorra::ffmpeg_ext
