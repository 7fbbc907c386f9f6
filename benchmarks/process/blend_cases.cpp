#include "blend_cases.h"

#include <fmt/format.h>

#include <cstdint>
#include <memory>

#include "support/filter_peer.h"
#include "vidorra/process/alphablend/blend.h"

extern "C" {
#include <libavutil/frame.h>
}
#if defined(VIDORRA_BENCHMARK_LIBYUV)
#include <libyuv.h>
#endif
#if defined(VIDORRA_BENCHMARK_OPENCV)
#include <opencv2/core.hpp>
#endif
#if defined(VIDORRA_BENCHMARK_PIXMAN)
#include <pixman.h>
#endif

namespace vidorra::bench {
namespace {

using alphablend::Kernels;

// What the results of two libraries may differ by that round differently.
constexpr int kRounding = 2;

// The planes of an NV12 picture in the memory of a pair.
struct SemiPlanar {
    std::ptrdiff_t width;
    std::ptrdiff_t height;

    explicit SemiPlanar(const BlendSize& size) : width(size.width), height(size.height) {}

    std::ptrdiff_t pixels() const { return width * height; }
    unsigned char* chroma(const Memory& memory) const { return memory.get() + pixels(); }
    unsigned char* v(const Memory& memory) const { return chroma(memory) + pixels() / 4; }

    template <class Call>
    void forRowPairs(BlendPair& pair, const Call& call) const {
        for (std::ptrdiff_t y = 0; y < height; y += 2) {
            unsigned char* d = pair.dst.get() + y * width;
            const unsigned char* s = pair.src.get() + y * width;
            const unsigned char* a = pair.alpha.get() + y * width;
            call(alphablend::RowPair{{d, d + width}, chroma(pair.dst) + y / 2 * width},
                 alphablend::SourceRowPair{{s, s + width}, chroma(pair.src) + y / 2 * width, {a, a + width}});
        }
    }
};

// A peer that is a graph of FFmpeg's filters; `pictures` tells where its inputs lie.
BlendPeer filterPeer(std::string name, const std::string& filters, std::vector<FilterPeer::Input> inputs,
                     const std::function<std::vector<FilterPeer::Planes>(BlendPair&)>& pictures) {
    const auto graph = std::make_shared<FilterPeer>(filters, std::move(inputs));
    return {.name = std::move(name),
            .run = [=](BlendPair& pair) { graph->run(pictures(pair)); },
            .hot = std::nullopt,
            .cold = std::nullopt,
            .result =
                [=](BlendPair& pair) {
                    Plane plane;
                    graph->run(pictures(pair), [&plane](const AVFrame& frame) {
                        const int bytes = frame.format == AV_PIX_FMT_RGBA ? 4 * frame.width : frame.width;
                        for (int y = 0; y < frame.height; ++y) {
                            const std::uint8_t* row = frame.data[0] + std::ptrdiff_t{y} * frame.linesize[0];
                            plane.insert(plane.end(), row, row + bytes);
                        }
                    });
                    return plane;
                }};
}

FilterPeer::Planes yuv420p(const SemiPlanar& planes, const Memory& memory, unsigned char* alpha = nullptr) {
    const int width = static_cast<int>(planes.width);
    return {{memory.get(), planes.chroma(memory), planes.v(memory), alpha},
            {width, width / 2, width / 2, alpha != nullptr ? width : 0}};
}

#if defined(VIDORRA_BENCHMARK_OPENCV)
BlendPeer openCvPeer(int width, int height, int type) {
    return {.name = "OpenCV addWeighted",
            .run =
                [=](BlendPair& pair) {
                    cv::setNumThreads(1);
                    cv::Mat dst(height, width, type, pair.dst.get());
                    const cv::Mat src(height, width, type, pair.src.get());
                    cv::addWeighted(dst, 0.5, src, 0.5, 0, dst);
                },
            .hot = std::nullopt,
            .cold = std::nullopt,
            .tolerance = kRounding};
}
#endif

void addPeer(BlendCase& row, BlendPeer peer, std::optional<Aim> hot, std::optional<Aim> cold,
             std::optional<int> tolerance) {
    peer.hot = hot;
    peer.cold = cold;
    peer.tolerance = tolerance;
    row.peers.push_back(std::move(peer));
}

}  // namespace

BlendCase fadeNv12Case(const BlendSize& shape) {
    const SemiPlanar planes(shape);
    const std::size_t size = shape.pixels() * 3 / 2;
    const int width = shape.width;
    const int height = shape.height;
    BlendCase row{.name = "NV12, faded",
                  .layout = {size, size, Shape::Dense, -1},
                  .bytesPerPair = 2 * size,
                  .firstPlaneBytes = shape.pixels(),
                  .limit = [size](const LimitKernels& limit,
                                  BlendPair& pair) { limit.average2(pair.dst.get(), pair.src.get(), size); },
                  .library =
                      [=](BlendPair& pair) {
                          unsigned char* dst[] = {pair.dst.get(), planes.chroma(pair.dst)};
                          const unsigned char* src[] = {pair.src.get(), planes.chroma(pair.src)};
                          const int linesize[] = {width, width};
                          alphablend::blendNv12(dst, linesize, width, height, src, linesize, width, height, 0,
                                                0, 0.5, 1);
                      },
                  .set =
                      [=](const Kernels& set, BlendPair& pair) {
                          for (std::ptrdiff_t y = 0; y < planes.height * 3 / 2; ++y) {
                              set.fade(pair.dst.get() + y * planes.width, pair.src.get() + y * planes.width,
                                       planes.width, 127);
                          }
                      },
                  .aims = {{"avx512", atLeast(0.95, 0.85), atLeast(0.92, 0.80)},
                           {"avx2", atLeast(0.90), atLeast(0.80)},
                           {"vector16", atLeast(0.5), std::nullopt}}};
#if defined(VIDORRA_BENCHMARK_LIBYUV)
    const auto interpolate = [=](BlendPair& pair) {
        libyuv::InterpolatePlane(pair.dst.get(), width, pair.src.get(), width, pair.dst.get(), width, width,
                                 height, 127);
        libyuv::InterpolatePlane(planes.chroma(pair.dst), width, planes.chroma(pair.src), width,
                                 planes.chroma(pair.dst), width, width, height / 2, 127);
    };
    row.peers.push_back({"libyuv InterpolatePlane", interpolate, atLeast(1.0), atLeast(1.0), kRounding});
#endif
#if defined(VIDORRA_BENCHMARK_OPENCV)
    addPeer(row, openCvPeer(width, height * 3 / 2, CV_8UC1), atLeast(3.3), atLeast(1.8), kRounding);
#endif
    // The filter knows planes only: as many bytes as NV12.
    addPeer(row,
            filterPeer("FFmpeg blend, yuv420p", "[in0][in1]blend=all_mode=normal:all_opacity=0.5",
                       {{AV_PIX_FMT_YUV420P, width, height}, {AV_PIX_FMT_YUV420P, width, height}},
                       [=](BlendPair& pair) -> std::vector<FilterPeer::Planes> {
                           return {yuv420p(planes, pair.dst), yuv420p(planes, pair.src)};
                       }),
            atLeast(15), atLeast(8), kRounding);
    return row;
}

BlendCase nva12Case(const BlendSize& size, Shape shape, double opacity) {
    const SemiPlanar planes(size);
    const std::size_t luma = size.pixels();
    const int width = size.width;
    const int height = size.height;
    const auto byte = static_cast<unsigned>(opacity * 255);
    const bool full = byte == 255;
    BlendCase row{
        .name = fmt::format("NVA12{}{}", full ? "" : ", faded", shape == Shape::Logo ? ", logo" : ""),
        .layout = {luma * 3 / 2, luma * 3 / 2, shape, -1},
        .bytesPerPair = 4 * luma,
        .firstPlaneBytes = luma,
        .limit =
            [=](const LimitKernels& limit, BlendPair& pair) {
                limit.average3(pair.dst.get(), pair.src.get(), pair.alpha.get(), luma);
                limit.average2(planes.chroma(pair.dst), planes.chroma(pair.src), luma / 2);
            },
        .library =
            [=](BlendPair& pair) {
                unsigned char* dst[] = {pair.dst.get(), planes.chroma(pair.dst)};
                const unsigned char* src[] = {pair.src.get(), planes.chroma(pair.src), nullptr,
                                              pair.alpha.get()};
                const int linesize[] = {width, width, 0, width};
                alphablend::blendNva12(dst, linesize, width, height, src, linesize, width, height, 0, 0,
                                       opacity, 1);
            },
        .set =
            [=](const Kernels& set, BlendPair& pair) {
                planes.forRowPairs(pair, [&](const auto& dst, const auto& src) {
                    if (full) {
                        set.blendNva12(dst, src, planes.width);
                    } else {
                        set.fadeNva12(dst, src, planes.width, byte);
                    }
                });
            }};
    const bool dense = shape == Shape::Dense;
    if (!dense) {
        row.aims = {{"avx512", atLeast(1.03, 0.78), atLeast(0.97, 0.75)}};
    } else if (full) {
        row.aims = {{"avx512", atLeast(0.92, 0.78), atLeast(0.85, 0.75)},
                    {"avx2", atLeast(0.82), atLeast(0.78)},
                    {"vector16", atLeast(0.5), std::nullopt}};
    } else {
        row.aims = {{"avx512", atLeast(0.87, 0.75), atLeast(0.81, 0.72)},
                    {"avx2", atLeast(0.72), atLeast(0.76)},
                    {"vector16", atLeast(0.5), std::nullopt}};
    }
    // A logo is asked for less: what of it is left out or copied differs from peer to peer.
    const auto aim = [dense](double value) { return atLeast(dense ? value : 1.0); };
    // The peers know no opacity beside the alpha.
    const std::optional<int> tolerance = full ? std::optional(kRounding) : std::nullopt;
#if defined(VIDORRA_BENCHMARK_LIBYUV)
    const auto blend = [=](BlendPair& pair) {
        const int half = width / 2;
        libyuv::I420Blend(pair.src.get(), width, planes.chroma(pair.src), half, planes.v(pair.src), half,
                          pair.dst.get(), width, planes.chroma(pair.dst), half, planes.v(pair.dst), half,
                          pair.alpha.get(), width, pair.dst.get(), width, planes.chroma(pair.dst), half,
                          planes.v(pair.dst), half, width, height);
    };
    row.peers.push_back(
        {"libyuv I420Blend", blend, aim(full ? 1.3 : 1.2), aim(full ? 1.25 : 1.2), tolerance});
#endif
    const auto planar = [=](BlendPair& pair) -> std::vector<FilterPeer::Planes> {
        return {yuv420p(planes, pair.dst), yuv420p(planes, pair.src, pair.alpha.get())};
    };
    addPeer(row,
            filterPeer("FFmpeg overlay, yuv420p", "[in0][in1]overlay",
                       {{AV_PIX_FMT_YUV420P, width, height}, {AV_PIX_FMT_YUVA420P, width, height}}, planar),
            aim(full ? 2.2 : 2.1), aim(1.1), tolerance);
    if (full) {
        // The filter does not take NV12, so FFmpeg converts it before, and the user who wants it back after.
        addPeer(row,
                filterPeer(
                    "FFmpeg overlay, nv12", "[in0][in1]overlay=format=auto,format=nv12",
                    {{AV_PIX_FMT_NV12, width, height}, {AV_PIX_FMT_YUVA420P, width, height}},
                    [=](BlendPair& pair) -> std::vector<FilterPeer::Planes> {
                        return {{{pair.dst.get(), planes.chroma(pair.dst)}, {width, width}}, planar(pair)[1]};
                    }),
                aim(14), aim(6.5), tolerance);
    }
    return row;
}

#if defined(VIDORRA_BENCHMARK_PIXMAN)
namespace {

// Puts the source over the destination, through a mask of one alpha if there is one.
void pixmanOver(BlendPair& pair, int width, int height, pixman_image_t* mask) {
    const auto image = [=](const Memory& memory) {
        return pixman_image_create_bits(PIXMAN_a8r8g8b8, width, height,
                                        reinterpret_cast<std::uint32_t*>(memory.get()), 4 * width);
    };
    pixman_image_t* dst = image(pair.dst);
    pixman_image_t* src = image(pair.src);
    pixman_image_composite32(PIXMAN_OP_OVER, src, mask, dst, 0, 0, 0, 0, 0, 0, width, height);
    pixman_image_unref(src);
    pixman_image_unref(dst);
}

}  // namespace
#endif

BlendCase packed32Case(const BlendSize& shapeSize, bool argb, Shape shape, double opacity) {
    const int width = shapeSize.width;
    const int height = shapeSize.height;
    const std::size_t size = shapeSize.pixels() * 4;
    const auto byte = static_cast<unsigned>(opacity * 255);
    const bool full = byte == 255;
    const bool dense = shape == Shape::Dense;
    const int alphaOffset = argb ? 0 : 3;
    const auto blend = argb ? alphablend::blendArgb32 : alphablend::blendRgba32;
    BlendCase row{
        .name = fmt::format("{}{}{}", argb ? "ARGB" : "RGBA", full ? "" : ", faded", dense ? "" : ", logo"),
        .layout = {size, size, shape, alphaOffset},
        .bytesPerPair = 2 * size,
        .firstPlaneBytes = size,
        .limit = [size](const LimitKernels& limit,
                        BlendPair& pair) { limit.average2(pair.dst.get(), pair.src.get(), size); },
        .library =
            [=](BlendPair& pair) {
                unsigned char* dst = pair.dst.get();
                const unsigned char* src = pair.src.get();
                const int linesize = 4 * width;
                blend(&dst, &linesize, width, height, &src, &linesize, width, height, 0, 0, opacity, 1);
            },
        .set =
            [=](const Kernels& set, BlendPair& pair) {
                for (int y = 0; y < height; ++y) {
                    const std::ptrdiff_t step = std::ptrdiff_t{4} * width;
                    set.blend32({pair.dst.get() + step * y, pair.src.get() + step * y}, width, alphaOffset,
                                byte);
                }
            }};
    if (!dense) {
        row.aims = {{"avx512", atLeast(0.95, 0.60), atLeast(1.0, 0.75)}};
    } else if (full) {
        row.aims = {{"avx512", atLeast(0.70, 0.60), atLeast(0.85, 0.75)},
                    {"avx2", atLeast(0.60), atLeast(0.80)},
                    {"vector16", atLeast(0.3), std::nullopt}};
    } else {
        row.aims = {{"avx512", atLeast(0.68, 0.58), atLeast(0.86, 0.75)},
                    {"avx2", atLeast(0.55), atLeast(0.80)},
                    {"vector16", atLeast(0.3), std::nullopt}};
    }
    // A logo is asked for less: what of it is left out or copied differs from peer to peer.
    const auto aim = [dense](double value) { return atLeast(dense ? value : 1.0); };
#if defined(VIDORRA_BENCHMARK_LIBYUV)
    if (full) {
        const auto argbBlend = [=](BlendPair& pair) {
            libyuv::ARGBBlend(pair.src.get(), 4 * width, pair.dst.get(), 4 * width, pair.dst.get(), 4 * width,
                              width, height);
        };
        row.peers.push_back({"libyuv ARGBBlend", argbBlend, aim(1.15), aim(1.05)});
    }
#endif
#if defined(VIDORRA_BENCHMARK_PIXMAN)
    if (full) {
        const auto over = [=](BlendPair& pair) { pixmanOver(pair, width, height, nullptr); };
        row.peers.push_back({"pixman OVER", over, aim(1.4), aim(1.15)});
    } else {
        const auto overWithMask = [=](BlendPair& pair) {
            const auto level = static_cast<std::uint16_t>(byte * 257);
            const pixman_color_t color = {level, level, level, level};
            pixman_image_t* mask = pixman_image_create_solid_fill(&color);
            pixmanOver(pair, width, height, mask);
            pixman_image_unref(mask);
        };
        row.peers.push_back({"pixman OVER with mask", overWithMask, aim(2.0), aim(1.7)});
    }
#endif
    if (full && !argb) {
        addPeer(row,
                filterPeer("FFmpeg overlay, rgba", "[in0][in1]overlay=format=rgb",
                           {{AV_PIX_FMT_RGBA, width, height}, {AV_PIX_FMT_RGBA, width, height}},
                           [=](BlendPair& pair) -> std::vector<FilterPeer::Planes> {
                               return {{{pair.dst.get()}, {4 * width}}, {{pair.src.get()}, {4 * width}}};
                           }),
                aim(5), aim(4.5), kRounding);
    }
    return row;
}

BlendCase rgb24Case(const BlendSize& shape) {
    const int width = shape.width;
    const int height = shape.height;
    const std::size_t size = shape.pixels() * 3;
    BlendCase row{.name = "RGB24, faded",
                  .layout = {size, size, Shape::Dense, -1},
                  .bytesPerPair = 2 * size,
                  .firstPlaneBytes = size,
                  .limit = [size](const LimitKernels& limit,
                                  BlendPair& pair) { limit.average2(pair.dst.get(), pair.src.get(), size); },
                  .library =
                      [=](BlendPair& pair) {
                          unsigned char* dst = pair.dst.get();
                          const unsigned char* src = pair.src.get();
                          const int linesize = 3 * width;
                          alphablend::blendRgb24(&dst, &linesize, width, height, &src, &linesize, width,
                                                 height, 0, 0, 0.5, 1);
                      },
                  .set =
                      [=](const Kernels& set, BlendPair& pair) {
                          for (int y = 0; y < height; ++y) {
                              const std::ptrdiff_t step = std::ptrdiff_t{3} * width;
                              set.blend24({pair.dst.get() + step * y, pair.src.get() + step * y}, step, 127);
                          }
                      },
                  .aims = {{"avx512", atLeast(0.76, 0.65), atLeast(0.90, 0.80)},
                           {"avx2", atLeast(0.65), atLeast(0.83)},
                           {"vector16", atLeast(0.3), std::nullopt}}};
#if defined(VIDORRA_BENCHMARK_LIBYUV)
    const auto interpolate = [=](BlendPair& pair) {
        libyuv::InterpolatePlane(pair.dst.get(), 3 * width, pair.src.get(), 3 * width, pair.dst.get(),
                                 3 * width, 3 * width, height, 127);
    };
    row.peers.push_back({"libyuv InterpolatePlane", interpolate, atLeast(1.03), atLeast(1.03), kRounding});
#endif
#if defined(VIDORRA_BENCHMARK_OPENCV)
    addPeer(row, openCvPeer(width, height, CV_8UC3), atLeast(2.5), atLeast(1.7), kRounding);
#endif
    return row;
}

}  // namespace vidorra::bench
