#pragma once

#include <cstdint>

extern "C" {
#include <libavutil/pixfmt.h>
}

struct AVPixFmtDescriptor;

/// Drawing on planes by pixel coordinates: internals of FFmpeg's filters that some builds of it export. The
/// names are theirs.
namespace vidorra::ffmpeg_ext {

/// A flag of ff_draw_init: colours have the full range.
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

/// Fills the context for a format whose samples have 8 to 16 bits, little-endian, and lie at equal distances
/// in each plane. Gives 0, or a negative FFmpeg code for any other format, with the context as it was.
int ff_draw_init(FFDrawContext* draw, AVPixelFormat format, unsigned flags);

/// Copies a rectangle plane by plane; positions and sizes are divided by each plane's subsampling, positions
/// rounded down and sizes up. The rectangles lie inside of both pictures and do not overlap.
void ff_copy_rectangle2(const FFDrawContext* draw, std::uint8_t* const dst[], const int dstLinesize[],
                        const std::uint8_t* const src[], const int srcLinesize[], int dstX, int dstY,
                        int srcX, int srcY, int width, int height);

}  // namespace vidorra::ffmpeg_ext
