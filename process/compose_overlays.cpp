// Composition of several overlays: band by band of the destination, which stays in the cache meanwhile.

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <future>
#include <utility>
#include <vector>

#include "process/placed_overlay.h"
#include "vidorra/process/alphablend/multithreaded.h"
#include "vidorra/process/compose.h"

namespace vidorra {
namespace {

constexpr std::size_t kMaxThreads = 8;

// What of the destination is drawn on at a time: a part of the second-level cache of most processors.
constexpr std::int64_t kBandBytes = 256 * 1024;
// Whole chroma samples of all formats.
constexpr int kBandRows = 16;

// Cutting less out of an overlay costs more calls than it saves pixels.
constexpr std::int64_t kWorthCutting = 32 * 32;

// A part of an overlay that no later one hides.
struct Piece {
    const PlacedOverlay* overlay;
    Rect rect;
};

std::int64_t area(const Rect& rect) {
    return std::int64_t{rect.width} * rect.height;
}

// Adds what of `rect` lies outside of `hole`, a part of it.
void addOutside(std::vector<Rect>& parts, const Rect& rect, const Rect& hole) {
    const auto add = [&parts](int left, int top, int right, int bottom) {
        if (left < right && top < bottom) {
            parts.push_back({left, top, right - left, bottom - top});
        }
    };
    const int right = rect.x + rect.width;
    const int bottom = rect.y + rect.height;
    const int holeRight = hole.x + hole.width;
    const int holeBottom = hole.y + hole.height;
    add(rect.x, rect.y, right, hole.y);
    add(rect.x, hole.y, hole.x, holeBottom);
    add(holeRight, hole.y, right, holeBottom);
    add(rect.x, holeBottom, right, bottom);
}

// What has to be drawn, in order. Only copies hide what is below them.
std::vector<Piece> visiblePieces(const std::vector<PlacedOverlay>& overlays) {
    std::vector<Piece> pieces;
    std::vector<Rect> parts;
    std::vector<Rect> rest;
    for (std::size_t i = 0; i < overlays.size(); ++i) {
        parts = {overlays[i].place};
        for (std::size_t j = i + 1; j < overlays.size(); ++j) {
            if (overlays[j].func != nullptr) {
                continue;
            }
            rest.clear();
            for (const Rect& part : parts) {
                const Rect hidden = part.intersected(overlays[j].place);
                if (area(hidden) < std::min(kWorthCutting, area(part))) {
                    rest.push_back(part);
                } else {
                    addOutside(rest, part, hidden);
                }
            }
            parts.swap(rest);
        }
        for (const Rect& part : parts) {
            pieces.push_back({&overlays[i], part});
        }
    }
    return pieces;
}

// The rows of a band, a multiple of kBandRows.
int rowsOfBand(const Picture& dst) {
    const std::int64_t rows = kBandBytes / std::max(std::abs(dst.linesize()[0]), 1);
    return static_cast<int>(std::max<std::int64_t>(rows / kBandRows, 1) * kBandRows);
}

void drawBand(const Picture& dst, const std::vector<Piece>& pieces, int top, int bottom) {
    for (const Piece& piece : pieces) {
        const int first = std::max(piece.rect.y, top);
        const int end = std::min(piece.rect.y + piece.rect.height, bottom);
        if (first < end) {
            drawPart(dst, *piece.overlay, {piece.rect.x, first, piece.rect.width, end - first});
        }
    }
}

}  // namespace

void compose(Picture& dst, const std::vector<Overlay>& overlays, CheckColorRange check, int threads) {
    std::vector<PlacedOverlay> placed;
    placed.reserve(overlays.size());
    bool blends = false;
    for (const Overlay& overlay : overlays) {
        if (auto each = placeOverlay(dst, overlay.picture, overlay.position, check, overlay.opacity)) {
            blends |= each->func != nullptr;
            placed.push_back(std::move(*each));
        }
    }
    if (placed.empty()) {
        return;
    }
    const std::vector<Piece> pieces = visiblePieces(placed);

    const int height = dst.frameSize().height;
    const int bandRows = rowsOfBand(dst);
    const int bands = (height + bandRows - 1) / bandRows;
    std::atomic<int> next = 0;
    const auto drawBands = [&] {
        for (int band = next++; band < bands; band = next++) {
            const int top = band * bandRows;
            drawBand(dst, pieces, top, std::min(top + bandRows, height));
        }
    };
    // Copies alone are not worth a thread, and have none in a call of their own.
    const std::size_t workers =
        blends ? std::min<std::size_t>(alphablend::getNumberOfThreads<kMaxThreads>(threads),
                                       static_cast<std::size_t>(bands))
               : 1;
    {
        // When a thread cannot be started the destructors of these wait for the ones before it.
        std::array<std::future<void>, kMaxThreads> futures;
        for (std::size_t i = 1; i < workers; ++i) {
            futures[i] = std::async(std::launch::async, drawBands);
        }
        drawBands();
    }
    dst.markModified();
}

}  // namespace vidorra
