#include "process/placed_overlay.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <limits>
#include <stdexcept>

#include "picture/chroma_grid.h"
#include "process/alphablend/opacity.h"
#include "vidorra/core/format.h"

namespace vidorra {
namespace {

using alphablend::Opacity;
using alphablend::Planes;
using alphablend::pixel_format::NV12;

// From here on an opacity is opaque: 1.0 up to the error of a sum.
constexpr double kOpaque = 0.9999999999999998;

// A row of a plane from a column of bytes on.
std::uint8_t* at(const Picture& picture, std::size_t plane, std::ptrdiff_t row, std::ptrdiff_t byte) {
    return picture.data()[plane] + row * picture.linesize()[plane] + byte;
}

template <class F, int kBytesPerPixel>
void blendPackedPart(const Picture& dst, const Rect& rect, const Picture& overlay, Point from,
                     const Opacity& opacity) {
    alphablend::blendPlanesOfSameSize(
        Planes<F, unsigned char*>{rect.width, rect.height,
                                  at(dst, 0, rect.y, std::ptrdiff_t{kBytesPerPixel} * rect.x),
                                  dst.linesize()[0]},
        Planes<F, const unsigned char*>{rect.width, rect.height,
                                        at(overlay, 0, from.y, std::ptrdiff_t{kBytesPerPixel} * from.x),
                                        overlay.linesize()[0]},
        opacity);
}

Planes<NV12, unsigned char*> nv12Part(const Picture& dst, const Rect& rect) {
    return {rect.width,
            rect.height,
            {at(dst, 0, rect.y, rect.x), at(dst, 1, rect.y / 2, rect.x)},
            {dst.linesize()[0], dst.linesize()[1]}};
}

void blendNv12Part(const Picture& dst, const Rect& rect, const Picture& overlay, Point from,
                   const Opacity& opacity) {
    const Planes<NV12, const unsigned char*> source = {
        rect.width,
        rect.height,
        {at(overlay, 0, from.y, from.x), at(overlay, 1, from.y / 2, from.x)},
        {overlay.linesize()[0], overlay.linesize()[1]}};
    alphablend::blendPlanesOfSameSize(nv12Part(dst, rect), source, opacity);
}

void blendNva12Part(const Picture& dst, const Rect& rect, const Picture& overlay, Point from,
                    const Opacity& opacity) {
    const Planes<alphablend::pixel_format::NVA12, const unsigned char*> source = {
        rect.width,
        rect.height,
        {at(overlay, 0, from.y, from.x), at(overlay, 1, from.y / 2, from.x), nullptr,
         at(overlay, 3, from.y, from.x)},
        {overlay.linesize()[0], overlay.linesize()[1], 0, overlay.linesize()[3]}};
    alphablend::blendPlanesOfSameSize(nv12Part(dst, rect), source, opacity);
}

const std::array<ComposeFunc, 6>& composeFuncs() {
    using namespace alphablend;
    static const std::array<ComposeFunc, 6> funcs = {{
        {AV_PIX_FMT_NV12, AV_PIX_FMT_NV12, blendNv12, blendNv12Part},
        {AV_PIX_FMT_NV12, NVA12, blendNva12, blendNva12Part},
        {AV_PIX_FMT_RGBA, AV_PIX_FMT_RGBA, blendRgba32, blendPackedPart<pixel_format::RGBA32, 4>},
        {AV_PIX_FMT_ARGB, AV_PIX_FMT_ARGB, blendArgb32, blendPackedPart<pixel_format::ARGB32, 4>},
        {AV_PIX_FMT_RGB24, AV_PIX_FMT_RGB24, blendRgb24, blendPackedPart<pixel_format::RGB24, 3>},
        {AV_PIX_FMT_BGR24, AV_PIX_FMT_BGR24, blendBgr24, blendPackedPart<pixel_format::BGR24, 3>},
    }};
    return funcs;
}

}  // namespace

std::optional<PlacedOverlay> placeOverlay(const Picture& dst, const Picture& overlay, Point position,
                                          CheckColorRange check, double opacity) {
    // Deliberate: before any check. NaN goes on.
    if (opacity < std::numeric_limits<double>::min()) {
        return std::nullopt;
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
        return std::nullopt;
    }
    PlacedOverlay placed = {.picture = overlay.crop({visible.x - overlayRect.x, visible.y - overlayRect.y,
                                                     visible.width, visible.height}),
                            .place = visible,
                            .opacity = opacity,
                            .func = nullptr,
                            .context = {}};

    const bool opaque = dst.pixelFormat() == overlay.pixelFormat() && opacity >= kOpaque &&
                        placed.picture.pixelFormat() == overlay.pixelFormat() && !placed.picture.hasAlpha();
    const unsigned flags = dst.colorRange() == AVCOL_RANGE_JPEG ? ffmpeg_ext::kDrawFullRange : 0;
    if (opaque && ffmpeg_ext::ff_draw_init(&placed.context, dst.pixelFormat(), flags) >= 0) {
        return placed;
    }
    // The format is not one that can be copied by rectangles, or the overlay does not hide what is below it.
    const auto& funcs = composeFuncs();
    const auto func = std::find_if(funcs.begin(), funcs.end(), [&](const ComposeFunc& row) {
        return row.dst == dst.pixelFormat() && row.overlay == placed.picture.pixelFormat();
    });
    if (func == funcs.end()) {
        throw std::runtime_error(
            fmt::format("compose(): Unsupported blending for pixel formats: dst:{}:{}, overlay:{}:{}",
                        dst.pixelFormat(), dst.colorRange(), overlay.pixelFormat(), overlay.colorRange()));
    }
    placed.func = func;
    return placed;
}

void drawPart(const Picture& dst, const PlacedOverlay& overlay, const Rect& rect) {
    const Point from = {rect.x - overlay.place.x, rect.y - overlay.place.y};
    const Picture& picture = overlay.picture;
    if (overlay.func == nullptr) {
        // It writes to the context nowhere, although it takes it without const.
        ffmpeg_ext::ff_copy_rectangle2(&overlay.context, dst.data().data(), dst.linesize().data(),
                                       picture.data().data(), picture.linesize().data(), rect.x, rect.y,
                                       from.x, from.y, rect.width, rect.height);
    } else if (const auto opacity = alphablend::opacityToByte(overlay.opacity)) {
        overlay.func->blendPart(dst, rect, picture, from, *opacity);
    }
}

}  // namespace vidorra
