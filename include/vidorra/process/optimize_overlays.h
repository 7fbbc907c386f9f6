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
/// The frames are drawn in the order of the list, each at its position(), later frames over earlier ones.
/// Wherever two frames without an alpha plane overlap by at least `minimumOverlapArea` pixels, views of the
/// earlier frame's parts outside the later one replace the earlier frame in the list; there may be none.
/// Frames with alpha hide nothing and are never cut. A threshold of 0 cuts all overlaps. The pieces have the
/// time stamp, flags and metadata of their frame but no side data. They share its memory and are cut again
/// where they overlap further frames.
///
/// compose() draws the same picture from the new list as from the old one. With subsampled chroma the
/// overlap is therefore reduced to whole chroma samples of the earlier frame, whose own edges count as
/// sample edges, and to the area where compose() draws the later frame; this reduced overlap is measured and
/// cut. So a strip of the earlier frame can stay along an odd edge of the later one, and pieces without
/// pixels can stay in the list.
///
/// The time grows with the number of pieces times the number of frames. Throws std::bad_alloc and what
/// VideoFrame::subtract() throws; what was cut before stays cut.
VIDORRA_API void optimizeOverlays(std::vector<VideoFrame>& overlays, unsigned int minimumOverlapArea);

/// One step of optimizeOverlays(): returns the list with the first overlap cut, which is that of the first
/// frame that is overlapped with the first frame that overlaps it. Returns an empty list when there is
/// nothing to cut.
[[nodiscard]] VIDORRA_API std::vector<VideoFrame> handleOneOverlap(const std::vector<VideoFrame>& overlays,
                                                                   unsigned int minimumOverlapArea);

}  // namespace vidorra
