#include "vidorra/process/compose.h"

#include "process/placed_overlay.h"

namespace vidorra {

void compose(Picture& dst, const Picture& overlay, Point position, CheckColorRange check, double opacity,
             int threads) {
    const auto placed = placeOverlay(dst, overlay, position, check, opacity);
    if (!placed) {
        return;
    }
    if (placed->func == nullptr) {
        drawPart(dst, *placed, placed->place);
    } else {
        Picture::Planes planes = dst.data();
        const Picture& shown = placed->picture;
        placed->func->blend(planes.data(), dst.linesize().data(), dst.frameSize().width,
                            dst.frameSize().height, shown.data().data(), shown.linesize().data(),
                            shown.frameSize().width, shown.frameSize().height, placed->place.x,
                            placed->place.y, opacity, threads);
    }
    dst.markModified();
}

}  // namespace vidorra
