#pragma once

#include <vector>

#include "vidorra/core/export.h"
#include "vidorra/core/geometry.h"
#include "vidorra/picture/picture.h"

namespace vidorra {

/// Whether compose() refuses pictures of different colour ranges. Every value but Yes means No.
enum class CheckColorRange { Yes = 0, No = 1 };

/// Draws `overlay` on `dst`, with its top left corner at `position`, which may be negative.
///
///     Picture screen(Size{1920, 1080}, AV_PIX_FMT_NV12, AVCOL_RANGE_MPEG, 32);
///     compose(screen, logo, Point{1500, 60}, CheckColorRange::Yes, 1.0, 1);
///
/// Pairs of formats, destination first: NV12 and NV12, NV12 and NVA12, RGBA and RGBA, ARGB and ARGB, RGB24
/// and RGB24, BGR24 and BGR24. Two pictures of one other format without alpha go together at full opacity, if
/// its samples have 8 to 16 bits and lie in whole planes or pixels, YUV420P for one: their pixels are copied.
/// docs/RECIPES.md shows how an image file becomes NVA12.
///
/// Where a format has subsampled chroma, the position and both sizes are rounded down to whole chroma
/// samples: (-3, 5) is (-4, 4) on NV12, and an odd last row or column of either picture is ignored. What
/// does not lie on `dst` does not show, and neither does an empty overlay; when nothing shows, `dst` is
/// neither changed nor marked as modified, and the pair of formats does not matter.
///
/// `opacity` 1.0 is opaque and multiplies the overlay's own alpha, except that RGBA pictures know only none
/// and full: any opacity from 1/255 up is full. An NVA12 overlay below full opacity darkens what it covers.
/// At 0 or below compose() returns at once, without any check.
///
/// `threads` counts the calling thread; a value that is not positive means one for each processor, and there
/// are never more than eight. They are started for the call: below about 960x540 visible pixels one thread is
/// fastest. The environment variable VDR_ALPHABLEND_NUM_THREADS overrides it, see getNumberOfThreads().
///
/// Throws, in this order: std::runtime_error when the ranges are checked, differ, and both are specified;
/// std::runtime_error when `dst` is not editable; std::runtime_error for a pair of formats that cannot be
/// blended; std::invalid_argument or std::out_of_range for a VDR_ALPHABLEND_NUM_THREADS that is no int;
/// std::system_error when a thread cannot be started, after which parts of the overlay may have been drawn.
VIDORRA_API void compose(Picture& dst, const Picture& overlay, Point position, CheckColorRange check,
                         double opacity, int threads);

/// One picture of a composition: what compose() draws, where, and with which opacity.
struct Overlay {
    Picture picture;
    Point position;
    double opacity = 1.0;
};

/// Draws all overlays on `dst` in their order, a later one over an earlier one. Gives the bytes that a call
/// of compose() for each of them gives, in less time:
///
///     compose(screen, {{picture, Point{0, 0}}, {logo, Point{1500, 60}, 0.5}}, CheckColorRange::Yes, 1);
///
/// It goes through `dst` in bands of rows, each of which stays in the processor's cache until all overlays
/// have been drawn on it, and leaves out what a later overlay without alpha hides at full opacity.
///
/// `threads` as above; each thread takes one band after the other. None is started when nothing is blended,
/// that is, when all overlays without alpha are at full opacity, and never more than there are bands.
///
/// All overlays are checked before the first one is drawn: the first that is refused throws what compose()
/// throws, and `dst` stays unchanged. Throws the errors of VDR_ALPHABLEND_NUM_THREADS likewise, if anything
/// is blended; and std::system_error when a thread cannot be started, after which some bands may have been
/// drawn.
VIDORRA_API void compose(Picture& dst, const std::vector<Overlay>& overlays, CheckColorRange check,
                         int threads);

}  // namespace vidorra
