#pragma once

#include "vidorra/core/export.h"
#include "vidorra/process/alphablend/planes.h"

/// Blending of one raster, the source, onto another, the destination, in place and with 8-bit integer
/// arithmetic. Colours are straight: nothing is multiplied or divided by alpha beforehand.
///
/// What all functions with a position share: `dst` and `src` are plane pointers with one line size each, in
/// bytes; sizes are in pixels. `x` and `y` place the source's top left pixel in the destination and may be
/// negative; what lies outside the destination does not show. `opacity` 1.0 is opaque, more acts as 1.0;
/// below 1/255, negative or not a number, nothing is drawn. The bytes between rows stay as they are.
///
///     unsigned char* dst[] = {screen.data()[0]};
///     const unsigned char* src[] = {logo.data()[0]};
///     const int dstLinesize[] = {screen.linesize()[0]};
///     const int srcLinesize[] = {logo.linesize()[0]};
///     vidorra::alphablend::blendRgba32(dst, dstLinesize, 1920, 1080,  // where to
///                                      src, srcLinesize, 320, 200,    // what
///                                      1500, 60, 1.0, 1);
///
/// Threads: no state and no locks. Source and destination may not overlap, and two calls at a time may not
/// write the same rows. Errors: the functions with `numThreads` throw what getNumberOfThreads() and the start
/// of a thread throw, the others nothing.
namespace vidorra::alphablend {

/// NV12 onto NV12: two planes each. The rows go in pairs, so that an odd last row stays as it is. With an odd
/// width the last column takes the U of its pair along and leaves the V. A source of even width whose `x` is
/// odd and negative and whose right edge shows is read one byte behind its rows of pairs.
///
/// `numThreads` of 1 starts no thread; a value that is not positive means one thread for each processor. A
/// thread costs some 40 microseconds: below about 960x540 pixels one is fastest.
VIDORRA_API void blendNv12(unsigned char** dst, const int* dstLinesize, int dstWidth, int dstHeight,
                           const unsigned char* const* src, const int* srcLinesize, int srcWidth,
                           int srcHeight, int x, int y, double opacity, int numThreads);

/// NVA12 onto NV12: two planes onto which come four, of which the third may be null. Each pixel has its own
/// alpha, a U,V pair the mean of its four. The rows and the columns go in pairs: an odd last row or column
/// stays as it is. Below full opacity the result darkens: what the source loses to the opacity the
/// destination does not get back.
VIDORRA_API void blendNva12(unsigned char** dst, const int* dstLinesize, int dstWidth, int dstHeight,
                            const unsigned char* const* src, const int* srcLinesize, int srcWidth,
                            int srcHeight, int x, int y, double opacity, int numThreads);

/// RGBA onto RGBA, one plane each, by the alpha of each source pixel. The destination's alpha is neither read
/// nor written. Any opacity from 1/255 up counts as full; blendRgba32Impl() honours it.
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

/// RGBA onto RGBA on the calling thread, honouring the opacity.
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
/// inside a pixel: of the three colour bytes, then of the alpha byte. `opacity` goes from 0 to 255.
VIDORRA_API void blend_image_rgb32_ref(int* pixelOffsets, unsigned char* dst, int dstLinesize, int dstWidth,
                                       int dstHeight, const unsigned char* src, int srcLinesize, int srcWidth,
                                       int srcHeight, int x, int y, unsigned char opacity);

/// A source onto a destination of the same width and height, on the calling thread; this is what each thread
/// does with its rows. Rules as the functions above.
VIDORRA_API void blendPlanesOfSameSize(Planes<pixel_format::NV12, unsigned char*> dst,
                                       Planes<pixel_format::NV12, const unsigned char*> src,
                                       const Opacity& opacity);
VIDORRA_API void blendPlanesOfSameSize(Planes<pixel_format::NV12, unsigned char*> dst,
                                       Planes<pixel_format::NVA12, const unsigned char*> src,
                                       const Opacity& opacity);
/// As blendRgba32(), any opacity above 0 counts as full.
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
