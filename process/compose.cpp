#include "vidorra/process/compose.h"

#include <algorithm>
#include <array>
#include <limits>
#include <stdexcept>

#include "picture/chroma_grid.h"
#include "process/drawing/ff_draw.h"
#include "vidorra/core/format.h"
#include "vidorra/process/alphablend/blend.h"

namespace vidorra {
namespace {

// From here on an opacity is opaque: 1.0 up to the error of a sum.
constexpr double kOpaque = 0.9999999999999998;

struct ComposeFunc {
    AVPixelFormat dst;
    AVPixelFormat overlay;
    decltype(&alphablend::blendNv12) blend;
};

// False when the format is not one that can be copied by rectangles.
bool copyOpaque(Picture& dst, const Picture& overlay, Point position) {
    ffmpeg_ext::FFDrawContext context;
    const unsigned flags = dst.colorRange() == AVCOL_RANGE_JPEG ? ffmpeg_ext::kDrawFullRange : 0;
    if (ffmpeg_ext::ff_draw_init(&context, dst.pixelFormat(), flags) < 0) {
        return false;
    }
    ffmpeg_ext::ff_copy_rectangle2(&context, dst.data().data(), dst.linesize().data(), overlay.data().data(),
                                   overlay.linesize().data(), position.x, position.y, 0, 0,
                                   overlay.frameSize().width, overlay.frameSize().height);
    return true;
}

}  // namespace

void compose(Picture& dst, const Picture& overlay, Point position, CheckColorRange check, double opacity,
             int threads) {
    static const std::array<ComposeFunc, 6> composeFuncs = {{
        {AV_PIX_FMT_NV12, AV_PIX_FMT_NV12, alphablend::blendNv12},
        {AV_PIX_FMT_NV12, NVA12, alphablend::blendNva12},
        {AV_PIX_FMT_RGBA, AV_PIX_FMT_RGBA, alphablend::blendRgba32},
        {AV_PIX_FMT_ARGB, AV_PIX_FMT_ARGB, alphablend::blendArgb32},
        {AV_PIX_FMT_RGB24, AV_PIX_FMT_RGB24, alphablend::blendRgb24},
        {AV_PIX_FMT_BGR24, AV_PIX_FMT_BGR24, alphablend::blendBgr24},
    }};
    // Deliberate: before any check. NaN goes on.
    if (opacity < std::numeric_limits<double>::min()) {
        return;
    }
    if (check == CheckColorRange::Yes && dst.colorRange() != overlay.colorRange() &&
        dst.colorRange() != AVCOL_RANGE_UNSPECIFIED && overlay.colorRange() != AVCOL_RANGE_UNSPECIFIED) {
        throw std::runtime_error(fmt::format("compose(): incompatible color ranges: dst:{}:{}, overlay:{}:{}",
                                             dst.pixelFormat(), dst.colorRange(), overlay.pixelFormat(),
                                             overlay.colorRange()));
    }
    if (!dst.editable()) {
        throw std::runtime_error("compose: Picture must be editable");
    }

    const ChromaGrid grid(dst.pixelFormat(), overlay.pixelFormat());
    const Rect dstRect = grid.down(Rect{0, 0, dst.frameSize().width, dst.frameSize().height});
    const Rect overlayRect =
        grid.down(Rect{position.x, position.y, overlay.frameSize().width, overlay.frameSize().height});
    const Rect visible = dstRect.intersected(overlayRect);
    // Views can have a negative size.
    if (overlay.empty() || visible.width < 1 || visible.height < 1) {
        return;
    }
    const Picture cropped =
        overlay.crop({visible.x - overlayRect.x, visible.y - overlayRect.y, visible.width, visible.height});

    const bool opaque = dst.pixelFormat() == overlay.pixelFormat() && opacity >= kOpaque &&
                        cropped.pixelFormat() == overlay.pixelFormat() && !cropped.hasAlpha();
    if (!opaque || !copyOpaque(dst, cropped, {visible.x, visible.y})) {
        const auto func = std::find_if(composeFuncs.begin(), composeFuncs.end(), [&](const ComposeFunc& row) {
            return row.dst == dst.pixelFormat() && row.overlay == cropped.pixelFormat();
        });
        if (func == composeFuncs.end()) {
            throw std::runtime_error(fmt::format(
                "compose(): Unsupported blending for pixel formats: dst:{}:{}, overlay:{}:{}",
                dst.pixelFormat(), dst.colorRange(), overlay.pixelFormat(), overlay.colorRange()));
        }
        Picture::Planes planes = dst.data();
        func->blend(planes.data(), dst.linesize().data(), dst.frameSize().width, dst.frameSize().height,
                    cropped.data().data(), cropped.linesize().data(), cropped.frameSize().width,
                    cropped.frameSize().height, visible.x, visible.y, opacity, threads);
    }
    dst.markModified();
}

}  // namespace vidorra
