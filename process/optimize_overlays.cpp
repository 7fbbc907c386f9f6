#include "vidorra/process/optimize_overlays.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <optional>
#include <type_traits>
#include <utility>

#include "ffmpeg/pixel_formats.h"
#include "picture/video_frame_rect.h"

namespace vidorra {
namespace {

using Overlays = std::vector<VideoFrame>;

static_assert(std::is_nothrow_move_constructible_v<VideoFrame> &&
                  std::is_nothrow_move_assignable_v<VideoFrame>,
              "a list that is being changed must not be left half changed");

// A part of a frame along one axis, counted from the frame's position.
struct Span {
    std::int64_t begin;
    std::int64_t end;

    [[nodiscard]] bool isEmpty() const { return begin >= end; }
};

// The part of the lower frame that the upper one hides, in whole chroma samples of 2^shift pixels. These are
// the lower frame's samples, since its pieces can only begin and end there; its own ends count as sample
// edges.
Span hiddenSpan(std::int64_t lower, std::int64_t lowerLength, std::int64_t upper, std::int64_t upperLength,
                int shift) {
    const std::int64_t mask = -(std::int64_t{1} << shift);
    const std::int64_t begin = std::max<std::int64_t>(upper - lower, 0);
    const std::int64_t end = std::min(upper + upperLength - lower, lowerLength);
    Span hidden = {-(-begin & mask), end == lowerLength ? end : end & mask};
    // compose() rounds the position of a frame down and draws only whole samples of its length, so the drawn
    // part of the upper frame can end before its last pixel.
    const std::int64_t drawnEnd = (upper & mask) + (upperLength & mask) - (lower & mask);
    if (drawnEnd < (lowerLength & mask)) {
        hidden.end = std::min(hidden.end, drawnEnd);
    }
    return hidden;
}

// The part of the lower frame to remove, on the canvas.
Rect hiddenPart(const VideoFrame& lower, const VideoFrame& upper) {
    const ffmpeg_ext::PixelGroup group = ffmpeg_ext::pixelGroup(lower.picture().pixelFormat());
    const Rect below = rectOf(lower);
    const Rect above = rectOf(upper);
    const Span x = hiddenSpan(below.x, below.width, above.x, above.width, group.log2Width);
    const Span y = hiddenSpan(below.y, below.height, above.y, above.height, group.log2Height);
    const std::int64_t left = below.x + x.begin;
    const std::int64_t top = below.y + y.begin;
    // No canvas reaches beyond the largest coordinate.
    if (x.isEmpty() || y.isEmpty() || std::max(left, top) > INT32_MAX) {
        return {};
    }
    return {static_cast<std::int32_t>(left), static_cast<std::int32_t>(top),
            static_cast<std::int32_t>(x.end - x.begin), static_cast<std::int32_t>(y.end - y.begin)};
}

// The part of the frame at `index` to remove: its overlap with the first later frame that hides enough of
// it.
std::optional<Rect> firstOverlap(const Overlays& overlays, std::size_t index, unsigned minimumOverlapArea) {
    const VideoFrame& frame = overlays[index];
    if (frame.picture().hasAlpha()) {
        return std::nullopt;
    }
    for (std::size_t i = index + 1; i < overlays.size(); ++i) {
        if (overlays[i].picture().hasAlpha()) {
            continue;
        }
        const Rect overlap = hiddenPart(frame, overlays[i]);
        if (overlap.width == 0) {
            continue;
        }
        // Deliberate: the area wraps at 32 bits.
        const std::uint32_t area =
            static_cast<std::uint32_t>(overlap.width) * static_cast<std::uint32_t>(overlap.height);
        if (area >= minimumOverlapArea) {
            return overlap;
        }
    }
    return std::nullopt;
}

// Replaces one frame with the pieces. The list is unchanged when there is no memory.
void replace(Overlays& overlays, std::size_t index, Overlays pieces) {
    if (overlays.capacity() - overlays.size() < pieces.size()) {
        overlays.reserve(2 * overlays.size() + pieces.size());
    }
    const auto at = overlays.begin() + static_cast<std::ptrdiff_t>(index);
    if (pieces.empty()) {
        overlays.erase(at);
        return;
    }
    *at = std::move(pieces.front());
    overlays.insert(at + 1, std::make_move_iterator(pieces.begin() + 1),
                    std::make_move_iterator(pieces.end()));
}

// Whether an area of this frame could wrap at 32 bits.
bool isHuge(const VideoFrame& frame) {
    const Size size = frame.picture().frameSize();
    return std::int64_t{size.width} * size.height > std::int64_t{UINT32_MAX};
}

}  // namespace

std::vector<VideoFrame> handleOneOverlap(const std::vector<VideoFrame>& overlays,
                                         unsigned int minimumOverlapArea) {
    for (std::size_t i = 0; i < overlays.size(); ++i) {
        if (const auto overlap = firstOverlap(overlays, i, minimumOverlapArea)) {
            Overlays result = overlays;
            replace(result, i, overlays[i].subtract(*overlap));
            return result;
        }
    }
    return {};
}

void optimizeOverlays(std::vector<VideoFrame>& overlays, unsigned int minimumOverlapArea) {
    // Gives the same list as handleOneOverlap() repeated until it finds nothing, but does not check earlier
    // frames again: the pieces of a frame are within it, so they hide no more of an earlier frame than the
    // frame did.
    std::size_t i = 0;
    while (i < overlays.size()) {
        const auto overlap = firstOverlap(overlays, i, minimumOverlapArea);
        if (!overlap) {
            ++i;
            continue;
        }
        const bool startAgain = isHuge(overlays[i]);
        replace(overlays, i, overlays[i].subtract(*overlap));
        if (startAgain) {
            // The area of an overlap may have seemed small because it wrapped; that of a piece does not
            // wrap.
            i = 0;
        }
    }
}

}  // namespace vidorra
