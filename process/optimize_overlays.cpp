#include "vidorra/process/optimize_overlays.h"

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <optional>
#include <type_traits>
#include <utility>

#include "picture/video_frame_rect.h"

namespace vidorra {
namespace {

using Overlays = std::vector<VideoFrame>;

static_assert(std::is_nothrow_move_constructible_v<VideoFrame> &&
                  std::is_nothrow_move_assignable_v<VideoFrame>,
              "a list that is being changed must not be left half changed");

// What of the frame at `index` has to go: its overlap with the first later frame that hides enough of it.
std::optional<Rect> firstOverlap(const Overlays& overlays, std::size_t index, unsigned minimumOverlapArea) {
    const VideoFrame& frame = overlays[index];
    if (frame.picture().hasAlpha()) {
        return std::nullopt;
    }
    const Rect rect = rectOf(frame);
    for (std::size_t i = index + 1; i < overlays.size(); ++i) {
        const Rect overlap = rect.intersected(rectOf(overlays[i]));
        if (overlap.width == 0 || overlap.height == 0 || overlays[i].picture().hasAlpha()) {
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

// Puts the pieces in the place of one frame. The list is as before when there is no memory.
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
    // The same as handleOneOverlap() until it finds nothing, without looking again at what it has passed: the
    // pieces of a frame lie within it, and so overlap no earlier frame by more than the frame did.
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
            // Its area may have been small because it wrapped, and that of a piece is not.
            i = 0;
        }
    }
}

}  // namespace vidorra
