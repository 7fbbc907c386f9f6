#pragma once

#include <cstddef>
#include <cstdint>

extern "C" {
#include <libavutil/pixfmt.h>
}

struct AVFrame;
struct AVPixFmtDescriptor;

/// FFmpeg's functions about pixel formats, extended with the format NVA12. FFmpeg builds for devices have
/// that format. A distribution's build uses its number for another format, which the library therefore
/// treats as unknown. Nothing else in the project asks FFmpeg about a pixel format.
namespace vidorra::ffmpeg_ext {

/// NV12 with a full-resolution alpha plane in plane 3; plane 2 is absent.
inline constexpr auto kNva12 = static_cast<AVPixelFormat>(193);

/// Whether this FFmpeg has the format itself, so that its codecs and filters can take such pictures.
bool hasNva12();

/// Null for a value that is no format.
const AVPixFmtDescriptor* pixelFormatDescriptor(AVPixelFormat format);

/// Null for a value that is no format.
const char* pixelFormatName(AVPixelFormat format);

/// AV_PIX_FMT_NONE for an unknown name.
AVPixelFormat pixelFormatFromName(const char* name);

/// The plain counterpart of a format whose name implies full range (such as YUVJ420P); any other format
/// unchanged.
AVPixelFormat withoutImpliedRange(AVPixelFormat format);

/// Bytes from one pixel to the next in each plane; 0 if there is no such plane or format.
void fillMaxPixelSteps(int steps[4], AVPixelFormat format);

/// The smallest group of pixels that begins and ends with whole bytes in every plane, as powers of two: the
/// pixels of one chroma sample, or those that share a byte. A single pixel for a value that is not a format.
struct PixelGroup {
    int log2Width = 0;
    int log2Height = 0;
};
PixelGroup pixelGroup(AVPixelFormat format);

/// Bytes of the first `pixels` pixels of a row, rounded up to whole groups; 0 for a palette, and if there is
/// no such plane or format.
std::ptrdiff_t rowBytes(AVPixelFormat format, int plane, int pixels);

/// av_image_fill_arrays: lays out the planes of a picture from `source` on, which may be null. Returns the
/// size in bytes or a negative FFmpeg code.
int fillImageArrays(std::uint8_t* data[4], int linesize[4], const std::uint8_t* source, AVPixelFormat format,
                    int width, int height, int align);

/// av_image_get_buffer_size: the size in bytes of a picture, or a negative FFmpeg code.
int imageBufferSize(AVPixelFormat format, int width, int height, int align);

/// av_image_copy. A palette or an alpha plane is copied if both sides have one.
void copyImage(std::uint8_t* const destination[4], const int destinationLinesize[4],
               const std::uint8_t* const source[4], const int sourceLinesize[4], AVPixelFormat format,
               int width, int height);

/// Whether a value is a format that FFmpeg knows by the same number.
bool isStockFormat(AVPixelFormat format);

/// Whether a frame made by FFmpeg has the number of NVA12 but is in another format, for which this FFmpeg
/// uses that number.
bool isForeignNva12(const AVFrame& frame);

}  // namespace vidorra::ffmpeg_ext
