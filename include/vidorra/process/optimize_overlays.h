#pragma once

#include <vector>

#include "vidorra/core/export.h"
#include "vidorra/picture/video_frame.h"

namespace vidorra {

/// Rewrites a composition so that no opaque frame is drawn where a later opaque frame hides it.
///
///     std::vector<VideoFrame> overlays = {background, leftWindow, rightWindow};
///     optimizeOverlays(overlays, 64 * 64);
///     for (const VideoFrame& overlay : overlays) {
///         compose(screen, overlay.picture(), overlay.position(), CheckColorRange::Yes, 1.0, 0);
///     }
///
/// The frames are drawn in the order of the list, each at its position(), a later one over an earlier one.
/// Wherever two frames without an alpha plane overlap by at least `minimumOverlapArea` pixels, the earlier
/// one is replaced, at its place in the list, by views of its parts outside of the later one, or by nothing.
/// Frames with alpha hide nothing and are never cut. A threshold of 0 cuts all overlaps. The pieces carry
/// time stamp, flags and metadata of their frame but no side data, share its memory, and are cut again where
/// they overlap further frames.
///
/// compose() draws the same picture of the list as before. Where the format has subsampled chroma, the
/// overlap is therefore taken inward to whole chroma samples of the earlier frame, whose own edges count as
/// such, and to what compose() draws the later frame on; that is what is measured and cut. So a strip of the
/// earlier frame can stay along an odd edge of the later one, and pieces without pixels can stay in the list.
///
/// The time grows with the number of pieces times the number of frames. Throws what memory and
/// VideoFrame::subtract() throw; what had been cut by then stays so.
VIDORRA_API void optimizeOverlays(std::vector<VideoFrame>& overlays, unsigned int minimumOverlapArea);

/// One step of optimizeOverlays(): the list in which the first overlap, of the first frame in the list that
/// has one and of the first frame that lies over it, has been cut. An empty list when there is nothing to
/// cut.
[[nodiscard]] VIDORRA_API std::vector<VideoFrame> handleOneOverlap(const std::vector<VideoFrame>& overlays,
                                                                   unsigned int minimumOverlapArea);

}  // namespace vidorra
