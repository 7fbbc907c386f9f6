#pragma once

#include "vidorra/core/export.h"
#include "vidorra/process/alphablend/planes.h"

/// Blending of one raster, the source, onto another, the destination, in place and with 8-bit integer
/// arithmetic. Colours are straight: they are not premultiplied by alpha.
///
/// For all functions with a position: `dst` and `src` are plane pointers with one line size each, in bytes;
/// sizes are in pixels. `x` and `y` place the source's top left pixel in the destination and may be
/// negative; what is outside the destination is not drawn. `opacity` 1.0 is opaque, and greater values act
/// as 1.0; nothing is drawn below 1/255 or if it is not a number. The bytes between rows stay unchanged.
///
///     unsigned char* dst[] = {screen.data()[0]};
///     const unsigned char* src[] = {logo.data()[0]};
///     const int dstLinesize[] = {screen.linesize()[0]};
///     const int srcLinesize[] = {logo.linesize()[0]};
///     vidorra::alphablend::blendRgba32(dst, dstLinesize, 1920, 1080,  // where to
///                                      src, srcLinesize, 320, 200,    // what
///                                      1500, 60, 1.0, 1);
///
/// Threads: no state and no locks. Source and destination must not overlap, and concurrent calls must not
/// write the same rows. Errors: the functions with `numThreads` throw what getNumberOfThreads() and the
/// start of a thread throw; the others throw nothing.
namespace vidorra::alphablend {

/// NV12 onto NV12: two planes each. Rows are drawn in pairs, so an odd last row stays unchanged. With an odd
/// width the last column draws the U of its pair but not the V. A source of even width whose `x` is odd and
/// negative and whose right edge shows is read one byte past the end of its rows of pairs.
///
/// `numThreads` of 1 starts no thread; a value that is not positive means one thread for each processor. A
/// thread costs about 40 microseconds: below about 960x540 pixels one thread is fastest.
VIDORRA_API void blendNv12(unsigned char** dst, const int* dstLinesize, int dstWidth, int dstHeight,
                           const unsigned char* const* src, const int* srcLinesize, int srcWidth,
                           int srcHeight, int x, int y, double opacity, int numThreads);

/// NVA12 onto NV12: four source planes, the third of which may be null, onto two. Each pixel has its own
/// alpha; a U,V pair has the mean of its four pixels' alpha. Rows and columns are drawn in pairs, so an odd
/// last row or column stays unchanged. Below full opacity the result darkens: the share that the source
/// loses is not given back to the destination.
VIDORRA_API void blendNva12(unsigned char** dst, const int* dstLinesize, int dstWidth, int dstHeight,
                            const unsigned char* const* src, const int* srcLinesize, int srcWidth,
                            int srcHeight, int x, int y, double opacity, int numThreads);

/// RGBA onto RGBA, one plane each, by the alpha of each source pixel. The destination's alpha is neither
/// read nor written. Any opacity from 1/255 up counts as full; blendRgba32Impl() applies it.
VIDORRA_API void blendRgba32(unsigned char** dst, const int* dstLinesize, int dstWidth, int dstHeight,
                             const unsigned char* const* src, const int* srcLinesize, int srcWidth,
                             int srcHeight, int x, int y, double opacity, int numThreads);

/// ARGB onto ARGB, one plane each, by the alpha of each source pixel and the opacity. The destination's alpha
/// is neither read nor written.
VIDORRA_API void blendArgb32(unsigned char** dst, const int* dstLinesize, int dstWidth, int dstHeight,
                             const unsigned char* const* src, const int* srcLinesize, int srcWidth,
                             int srcHeight, int x, int y, double opacity, int numThreads);

/// RGB24 onto RGB24, one plane each.
VIDORRA_API void blendRgb24(unsigned char** dst, const int* dstLinesize, int dstWidth, int dstHeight,
                            const unsigned char* const* src, const int* srcLinesize, int srcWidth,
                            int srcHeight, int x, int y, double opacity, int numThreads);

/// BGR24 onto BGR24, one plane each.
VIDORRA_API void blendBgr24(unsigned char** dst, const int* dstLinesize, int dstWidth, int dstHeight,
                            const unsigned char* const* src, const int* srcLinesize, int srcWidth,
                            int srcHeight, int x, int y, double opacity, int numThreads);

/// RGBA onto RGBA on the calling thread, with the opacity applied.
VIDORRA_API void blendRgba32Impl(unsigned char** dst, const int* dstLinesize, int dstWidth, int dstHeight,
                                 const unsigned char* const* src, const int* srcLinesize, int srcWidth,
                                 int srcHeight, int x, int y, double opacity);

/// ARGB onto ARGB on the calling thread.
VIDORRA_API void blendArgb32Impl(unsigned char** dst, const int* dstLinesize, int dstWidth, int dstHeight,
                                 const unsigned char* const* src, const int* srcLinesize, int srcWidth,
                                 int srcHeight, int x, int y, double opacity);

/// RGB24 onto RGB24 on the calling thread.
VIDORRA_API void blendRgb24Impl(unsigned char** dst, const int* dstLinesize, int dstWidth, int dstHeight,
                                const unsigned char* const* src, const int* srcLinesize, int srcWidth,
                                int srcHeight, int x, int y, double opacity);

/// BGR24 onto BGR24 on the calling thread.
VIDORRA_API void blendBgr24Impl(unsigned char** dst, const int* dstLinesize, int dstWidth, int dstHeight,
                                const unsigned char* const* src, const int* srcLinesize, int srcWidth,
                                int srcHeight, int x, int y, double opacity);

/// One raster of 32-bit pixels onto another on the calling thread. `pixelOffsets` are four byte positions
/// inside a pixel: those of the three colour bytes, then that of the alpha byte. `opacity` is 0 to 255.
VIDORRA_API void blend_image_rgb32_ref(int* pixelOffsets, unsigned char* dst, int dstLinesize, int dstWidth,
                                       int dstHeight, const unsigned char* src, int srcLinesize, int srcWidth,
                                       int srcHeight, int x, int y, unsigned char opacity);

/// A source onto a destination of the same width and height, on the calling thread. Each thread does this
/// with its rows. Formats and rows are handled as in the functions above.
VIDORRA_API void blendPlanesOfSameSize(Planes<pixel_format::NV12, unsigned char*> dst,
                                       Planes<pixel_format::NV12, const unsigned char*> src,
                                       const Opacity& opacity);
VIDORRA_API void blendPlanesOfSameSize(Planes<pixel_format::NV12, unsigned char*> dst,
                                       Planes<pixel_format::NVA12, const unsigned char*> src,
                                       const Opacity& opacity);
/// As in blendRgba32(), any opacity above 0 counts as full.
VIDORRA_API void blendPlanesOfSameSize(Planes<pixel_format::RGBA32, unsigned char*> dst,
                                       Planes<pixel_format::RGBA32, const unsigned char*> src,
                                       const Opacity& opacity);
VIDORRA_API void blendPlanesOfSameSize(Planes<pixel_format::ARGB32, unsigned char*> dst,
                                       Planes<pixel_format::ARGB32, const unsigned char*> src,
                                       const Opacity& opacity);
VIDORRA_API void blendPlanesOfSameSize(Planes<pixel_format::RGB24, unsigned char*> dst,
                                       Planes<pixel_format::RGB24, const unsigned char*> src,
                                       const Opacity& opacity);
VIDORRA_API void blendPlanesOfSameSize(Planes<pixel_format::BGR24, unsigned char*> dst,
                                       Planes<pixel_format::BGR24, const unsigned char*> src,
                                       const Opacity& opacity);

}  // namespace vidorra::alphablend
