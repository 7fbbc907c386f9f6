#pragma once

#include <optional>

#include "process/drawing/ff_draw.h"
#include "vidorra/core/geometry.h"
#include "vidorra/picture/picture.h"
#include "vidorra/process/alphablend/blend.h"
#include "vidorra/process/compose.h"

namespace vidorra {

/// How an overlay of one format is blended on a destination of another.
struct ComposeFunc {
    AVPixelFormat dst;
    AVPixelFormat overlay;
    /// The part of an overlay that shows, on as many threads as asked for.
    decltype(&alphablend::blendNv12) blend;
    /// The part of `overlay` with the corner `from` on `rect` of `dst`, both on whole chroma samples, on the
    /// calling thread.
    void (*blendPart)(const Picture& dst, const Rect& rect, const Picture& overlay, Point from,
                      const alphablend::Opacity& opacity);
};

/// The part of an overlay that shows, and how it is to be drawn.
struct PlacedOverlay {
    Picture picture;
    /// Where it comes to lie on the destination.
    Rect place;
    double opacity;
    /// Null for an overlay without alpha at full opacity, whose pixels are copied.
    const ComposeFunc* func;
    /// For copies, of the destination.
    ffmpeg_ext::FFDrawContext context;
};

/// Checks what compose() checks, with its errors. Nothing where nothing is to be drawn.
std::optional<PlacedOverlay> placeOverlay(const Picture& dst, const Picture& overlay, Point position,
                                          CheckColorRange check, double opacity);

/// Draws `rect`, a part of the overlay's place on whole chroma samples, on the calling thread.
void drawPart(const Picture& dst, const PlacedOverlay& overlay, const Rect& rect);

}  // namespace vidorra
