#pragma once

#include <cstddef>

#include "vidorra/core/export.h"
#include "vidorra/core/geometry.h"
#include "vidorra/process/alphablend/planes.h"

namespace vidorra::alphablend {

/// How many threads a blend uses, including the calling one: between 1 and `Threads`, which is 8. A
/// `requested` that is not positive means one for each processor.
///
/// The environment variable VDR_ALPHABLEND_NUM_THREADS, read at each call, overrides `requested`. Text after
/// its number is ignored. Throws std::invalid_argument with "stoi" when the variable is empty or does not
/// start with a number, and std::out_of_range with "stoi" when the number does not fit an int.
template <std::size_t Threads>
[[nodiscard]] unsigned long getNumberOfThreads(int requested);

/// Blends the part of `src` that shows when its top left corner is at `position`, on up to `Threads`
/// threads. Each thread takes an even number of rows, at least 4. The calling thread takes the topmost rows,
/// and then rows that the others have not begun. The threads are started for this call and have ended when
/// it returns. Null plane pointers stay null. `numThreads` is the request for getNumberOfThreads(), which
/// throws before anything is drawn.
///
/// At an odd position of semi-planar rasters the offset of the U,V pairs is rounded to whole pairs: down for
/// an offset into the destination, up for one into the source.
///
///     using namespace vidorra::alphablend;
///     const Planes<pixel_format::RGB24, unsigned char*> dst{1920, 1080, bytes, 5760};
///     const Planes<pixel_format::RGB24, const unsigned char*> src{320, 200, overlayBytes, 960};
///     blendPlanesMultithreaded<8>(dst, src, Point{1500, 60}, Opacity(255), 2);
///
/// Throws std::system_error when a thread cannot be started; some rows may then be blended.
template <std::size_t Threads, class Format1, class Pointer1, class Format2, class Pointer2>
void blendPlanesMultithreaded(Planes<Format1, Pointer1> dst, Planes<Format2, Pointer2> src,
                              const Point& position, const Opacity& opacity, int numThreads);

extern template VIDORRA_API unsigned long getNumberOfThreads<8>(int requested);

extern template VIDORRA_API void blendPlanesMultithreaded<8>(
    Planes<pixel_format::NV12, unsigned char*> dst, Planes<pixel_format::NV12, const unsigned char*> src,
    const Point& position, const Opacity& opacity, int numThreads);
extern template VIDORRA_API void blendPlanesMultithreaded<8>(
    Planes<pixel_format::NV12, unsigned char*> dst, Planes<pixel_format::NVA12, const unsigned char*> src,
    const Point& position, const Opacity& opacity, int numThreads);
extern template VIDORRA_API void blendPlanesMultithreaded<8>(
    Planes<pixel_format::RGBA32, unsigned char*> dst, Planes<pixel_format::RGBA32, const unsigned char*> src,
    const Point& position, const Opacity& opacity, int numThreads);
extern template VIDORRA_API void blendPlanesMultithreaded<8>(
    Planes<pixel_format::ARGB32, unsigned char*> dst, Planes<pixel_format::ARGB32, const unsigned char*> src,
    const Point& position, const Opacity& opacity, int numThreads);
extern template VIDORRA_API void blendPlanesMultithreaded<8>(
    Planes<pixel_format::RGB24, unsigned char*> dst, Planes<pixel_format::RGB24, const unsigned char*> src,
    const Point& position, const Opacity& opacity, int numThreads);
extern template VIDORRA_API void blendPlanesMultithreaded<8>(
    Planes<pixel_format::BGR24, unsigned char*> dst, Planes<pixel_format::BGR24, const unsigned char*> src,
    const Point& position, const Opacity& opacity, int numThreads);

}  // namespace vidorra::alphablend
