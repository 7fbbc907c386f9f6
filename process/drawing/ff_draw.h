#pragma once

#include <cstdint>

extern "C" {
#include <libavutil/pixfmt.h>
}

struct AVPixFmtDescriptor;

/// Drawing on planes by pixel coordinates. The code is ours. Types and functions have the names of internals
/// of FFmpeg's filters, since some FFmpeg builds export those, which could then replace ours.
namespace vidorra::ffmpeg_ext {

/// Flags of ff_draw_init: blending changes the alpha component too; colours have the full range.
inline constexpr unsigned kDrawProcessAlpha = 1;
inline constexpr unsigned kDrawFullRange = 65536;

/// What drawing needs to know about a pixel format.
struct FFDrawContext {
    const AVPixFmtDescriptor* desc = nullptr;
    AVPixelFormat format = AV_PIX_FMT_NONE;
    /// One more than the index of the last plane.
    unsigned nb_planes = 0;
    /// Bytes from one sample to the next in each plane, 0 where there is no plane.
    int pixelstep[4] = {};
    /// How many times the width and height of each plane are halved.
    int hsub[4] = {};
    int vsub[4] = {};
    int hsub_max = 0;
    int vsub_max = 0;
    bool full_range = false;
    unsigned flags = 0;
};

/// A colour in the samples of a format.
struct FFDrawColor {
    /// Red, green, blue, alpha.
    std::uint8_t rgba[4] = {};
    /// The bytes of one pixel in each plane, in memory order; two-byte samples are little-endian.
    std::uint8_t comp[4][8] = {};
};

/// Fills the context for a format with little-endian samples of 8 to 16 bits at equal distances in each
/// plane, except formats with three or four samples of 16 bits in one plane. Returns 0, or a negative FFmpeg
/// code for any other format, after which the context is unchanged. Formats with J in their name have full
/// range, whatever the flags say.
int ff_draw_init(FFDrawContext* draw, AVPixelFormat format, unsigned flags);

/// Computes the colour's samples. Formats that are not RGB count as YUV with the matrix of BT.601, gray as
/// its luma. A sample of more than 8 bits is the same fraction of the largest sample as its 8-bit value is
/// of 255; bits below a sample's own are set too.
void ff_draw_color(const FFDrawContext* draw, FFDrawColor* color, const std::uint8_t rgba[4]);

/// Overwrites a rectangle inside the picture, including alpha. Positions and sizes are divided by each
/// plane's subsampling as in ff_copy_rectangle2.
void ff_fill_rectangle(const FFDrawContext* draw, const FFDrawColor* color, std::uint8_t* const dst[],
                       const int dstLinesize[], int dstX, int dstY, int width, int height);

/// Blends the colour, by its alpha, through a mask whose corner is at x0, y0; what is outside the picture is
/// skipped. The mask has 8 bits a pixel (l2depth 3), or 1 bit with the highest bit first (l2depth 0); its
/// rows are maskLinesize bytes apart, which may be negative. Subsampled planes use the average coverage;
/// pixels past the mask's edge count as not covered. Without kDrawProcessAlpha the alpha component stays.
/// `endianness` is for masks with larger pixels, which do not occur.
void ff_blend_mask(const FFDrawContext* draw, const FFDrawColor* color, std::uint8_t* const dst[],
                   const int dstLinesize[], int dstWidth, int dstHeight, const std::uint8_t* mask,
                   int maskLinesize, int maskWidth, int maskHeight, int l2depth, unsigned endianness, int x0,
                   int y0);

/// Copies a rectangle plane by plane; positions and sizes are divided by each plane's subsampling, positions
/// rounded down and sizes up. The rectangles must be inside the pictures and must not overlap.
void ff_copy_rectangle2(const FFDrawContext* draw, std::uint8_t* const dst[], const int dstLinesize[],
                        const std::uint8_t* const src[], const int srcLinesize[], int dstX, int dstY,
                        int srcX, int srcY, int width, int height);

}  // namespace vidorra::ffmpeg_ext
