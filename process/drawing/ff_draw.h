#pragma once

#include <cstdint>

extern "C" {
#include <libavutil/pixfmt.h>
}

struct AVPixFmtDescriptor;

/// Drawing on planes by pixel coordinates. The code is ours. Types and functions have the names of internals
/// of FFmpeg's filters, since some builds of FFmpeg export those, and could then serve in place of ours.
namespace vidorra::ffmpeg_ext {

/// Flags of ff_draw_init: blending changes the alpha component too; colours have the full range.
inline constexpr unsigned kDrawProcessAlpha = 1;
inline constexpr unsigned kDrawFullRange = 65536;

/// What drawing has to know about a pixel format.
struct FFDrawContext {
    const AVPixFmtDescriptor* desc = nullptr;
    AVPixelFormat format = AV_PIX_FMT_NONE;
    /// One more than the index of the last plane.
    unsigned nb_planes = 0;
    /// Bytes from one sample to the next in each plane, 0 where there is no plane.
    int pixelstep[4] = {};
    /// Of each plane, how many times its width and height are halved.
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
    /// Of each plane the bytes of one pixel as they stand in memory, samples of two bytes little-endian.
    std::uint8_t comp[4][8] = {};
};

/// Fills the context for a format whose samples have 8 to 16 bits, little-endian, and lie at equal distances
/// in each plane; pixels of three or four samples of 16 bits in one plane are left out. Gives 0, or a
/// negative FFmpeg code for any other format, with the context as it was. The formats with J in their name
/// have the full range whatever the flags say.
int ff_draw_init(FFDrawContext* draw, AVPixelFormat format, unsigned flags);

/// Computes the colour's samples. Formats that are not RGB are taken as YUV by the matrix of BT.601, gray as
/// its luma. A sample of more than 8 bits is the fraction of the largest one that its 8-bit value would be of
/// 255; bits below a sample's own take part.
void ff_draw_color(const FFDrawContext* draw, FFDrawColor* color, const std::uint8_t rgba[4]);

/// Overwrites a rectangle that lies inside of the picture, alpha too. Positions and sizes are divided by each
/// plane's subsampling as for ff_copy_rectangle2.
void ff_fill_rectangle(const FFDrawContext* draw, const FFDrawColor* color, std::uint8_t* const dst[],
                       const int dstLinesize[], int dstX, int dstY, int width, int height);

/// Blends the colour, by its alpha, through a mask whose corner comes to x0, y0; what lies outside of the
/// picture is left out. The mask has 8 bits a pixel (l2depth 3) or 1, the highest bit first (l2depth 0); its
/// rows are maskLinesize bytes apart, which may be negative. Subsampled planes take the average coverage,
/// where the pixels beyond the mask's edge count as not covered. Without kDrawProcessAlpha the alpha
/// component stays. `endianness` is that of masks with larger pixels, which do not occur.
void ff_blend_mask(const FFDrawContext* draw, const FFDrawColor* color, std::uint8_t* const dst[],
                   const int dstLinesize[], int dstWidth, int dstHeight, const std::uint8_t* mask,
                   int maskLinesize, int maskWidth, int maskHeight, int l2depth, unsigned endianness, int x0,
                   int y0);

/// Copies a rectangle plane by plane; positions and sizes are divided by each plane's subsampling, positions
/// rounded down and sizes up. The rectangles lie inside of both pictures and do not overlap.
void ff_copy_rectangle2(const FFDrawContext* draw, std::uint8_t* const dst[], const int dstLinesize[],
                        const std::uint8_t* const src[], const int srcLinesize[], int dstX, int dstY,
                        int srcX, int srcY, int width, int height);

}  // namespace vidorra::ffmpeg_ext
