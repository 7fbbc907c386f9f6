// Range conversion beside what memory and vectors allow, and beside other libraries. All competitors of a
// comparison take their turns in one process and in random order, on one CPU; only ratios within a comparison
// mean anything. "Hot" is one pair of pictures again and again, "cold" a ring of pairs that is larger than
// the caches. All memory is written before anything is timed.
#include <fmt/format.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "process/color_range/range_kernels.h"
#include "range_limit_kernels.h"
#include "support/measure.h"
#include "support/memory.h"
#include "vidorra/process/color_range_converter.h"

extern "C" {
#include <libavutil/opt.h>
#include <libswscale/swscale.h>
}
#if defined(VIDORRA_BENCHMARK_ZIMG)
#include <zimg.h>
#endif

namespace vidorra::bench {
namespace {

// Of the pictures, small ones in a short run. Planes and their rows begin at multiples of 64 bytes.
struct Shape {
    int width;
    int height;
    std::size_t ringBytes;

    explicit Shape(bool shortRun)
        : width(shortRun ? 256 : 1920),
          height(shortRun ? 128 : 1080),
          ringBytes(shortRun ? 1 << 18 : std::size_t{400} << 20) {}

    std::size_t luma() const { return static_cast<std::size_t>(width) * static_cast<std::size_t>(height); }
    std::size_t bytes() const { return luma() * 3 / 2; }
};

// One picture in memory, as NV12 or as YUV420P.
struct Planes {
    std::array<unsigned char*, 3> data;
    std::array<int, 3> linesize;

    Planes(const Shape& shape, bool interleaved, unsigned char* memory)
        : data{memory, memory + shape.luma(), interleaved ? nullptr : memory + shape.luma() * 5 / 4},
          linesize{shape.width, interleaved ? shape.width : shape.width / 2,
                   interleaved ? 0 : shape.width / 2} {}
};

struct Pair {
    Memory dst;
    Memory src;
};

using Convert = std::function<void(const Planes& dst, const Planes& src)>;

// Rows by rows through two functions, of a set of kernels or of the limit.
template <class Luma, class Chroma, class Split>
Convert byRows(const Shape& shape, const Luma& luma, const Chroma& chroma, const Split& split) {
    return [=](const Planes& dst, const Planes& src) {
        const std::ptrdiff_t half = shape.width / 2;
        for (std::ptrdiff_t y = 0; y < shape.height; ++y) {
            luma(dst.data[0] + y * shape.width, src.data[0] + y * shape.width, shape.width);
        }
        if (src.data[2] == nullptr) {
            for (std::ptrdiff_t y = 0; y < shape.height / 2; ++y) {
                split(dst.data[1] + y * half, dst.data[2] + y * half, src.data[1] + y * shape.width, half);
            }
            return;
        }
        for (const std::size_t plane : {1, 2}) {
            for (std::ptrdiff_t y = 0; y < shape.height / 2; ++y) {
                chroma(dst.data[plane] + y * half, src.data[plane] + y * half, half);
            }
        }
    };
}

Convert byLibrary(const Shape& shape, AVPixelFormat format) {
    return [=](const Planes& dst, const Planes& src) {
        ColorRangeConverter::convert(shape.width, shape.height, format, AVCOL_RANGE_MPEG, src.data.data(),
                                     src.linesize.data(), AV_PIX_FMT_YUV420P, AVCOL_RANGE_JPEG,
                                     dst.data.data(), dst.linesize.data(), ColorRangeConverter::Type::Any);
    };
}

// The ranges have to be known before the context is initialised: later they are taken and ignored.
Convert bySwscale(const Shape& shape, AVPixelFormat format) {
    const std::shared_ptr<SwsContext> context(sws_alloc_context(), sws_freeContext);
    for (const auto& [name, value] : {std::pair<const char*, int>{"srcw", shape.width},
                                      {"srch", shape.height},
                                      {"dstw", shape.width},
                                      {"dsth", shape.height},
                                      {"src_format", format},
                                      {"dst_format", AV_PIX_FMT_YUV420P},
                                      {"src_range", 0},
                                      {"dst_range", 1},
                                      {"sws_flags", SWS_BILINEAR}}) {
        av_opt_set_int(context.get(), name, value, 0);
    }
    if (sws_init_context(context.get(), nullptr, nullptr) < 0) {
        std::abort();
    }
    const int height = shape.height;
    return [=](const Planes& dst, const Planes& src) {
        sws_scale(context.get(), src.data.data(), src.linesize.data(), 0, height, dst.data.data(),
                  dst.linesize.data());
    };
}

#if defined(VIDORRA_BENCHMARK_ZIMG)
zimg_image_format zimgFormat(const Shape& shape, zimg_pixel_range_e range) {
    zimg_image_format format;
    zimg_image_format_default(&format, ZIMG_API_VERSION);
    format.width = static_cast<unsigned>(shape.width);
    format.height = static_cast<unsigned>(shape.height);
    format.pixel_type = ZIMG_PIXEL_BYTE;
    format.subsample_w = 1;
    format.subsample_h = 1;
    format.color_family = ZIMG_COLOR_YUV;
    format.pixel_range = range;
    return format;
}

// It knows planes only.
Convert byZimg(const Shape& shape) {
    const zimg_image_format from = zimgFormat(shape, ZIMG_RANGE_LIMITED);
    const zimg_image_format to = zimgFormat(shape, ZIMG_RANGE_FULL);
    const std::shared_ptr<zimg_filter_graph> graph(zimg_filter_graph_build(&from, &to, nullptr),
                                                   zimg_filter_graph_free);
    std::size_t size = 0;
    if (graph == nullptr || zimg_filter_graph_get_tmp_size(graph.get(), &size) != ZIMG_ERROR_SUCCESS) {
        std::abort();
    }
    const std::shared_ptr<unsigned char> memory(makeMemory(size).release(), FreeAligned{});
    return [=](const Planes& dst, const Planes& src) {
        zimg_image_buffer_const in = {ZIMG_API_VERSION, {}};
        zimg_image_buffer out = {ZIMG_API_VERSION, {}};
        for (std::size_t plane = 0; plane < 3; ++plane) {
            in.plane[plane] = {src.data[plane], src.linesize[plane], ZIMG_BUFFER_MAX};
            out.plane[plane] = {dst.data[plane], dst.linesize[plane], ZIMG_BUFFER_MAX};
        }
        if (zimg_filter_graph_process(graph.get(), &in, &out, memory.get(), nullptr, nullptr, nullptr,
                                      nullptr) != ZIMG_ERROR_SUCCESS) {
            std::abort();
        }
    };
}
#endif

// Ends the program unless a competitor gives about the same picture, as one does not that only copies.
void expectConversion(const Shape& shape, bool interleaved, const std::string& name, const Convert& convert,
                      const Convert& reference) {
    const Memory src = makeMemory(shape.bytes());
    const Memory dst = makeMemory(shape.bytes());
    const Memory expected = makeMemory(shape.bytes());
    convert(Planes(shape, false, dst.get()), Planes(shape, interleaved, src.get()));
    reference(Planes(shape, false, expected.get()), Planes(shape, interleaved, src.get()));
    for (std::size_t i = 0; i < shape.bytes(); ++i) {
        if (std::abs(dst[i] - expected[i]) > 2) {
            fmt::print("{} converts {} to {}, not {}\n", name, src[i], dst[i], expected[i]);
            std::exit(1);
        }
    }
}

std::optional<Aim> aimOfSet(std::string_view name, bool hot) {
    if (name == "avx512") {
        return hot ? atLeast(0.75, 0.65) : atLeast(0.95);
    }
    if (name == "avx2") {
        return hot ? atLeast(0.33) : atLeast(0.75);
    }
    return std::nullopt;
}

struct Peer {
    std::string name;
    Convert convert;
    double hot;
    double cold;
};

std::vector<Peer> makePeers(const Shape& shape, AVPixelFormat format) {
    std::vector<Peer> peers;
    peers.push_back({"libswscale", bySwscale(shape, format), 20, 10});
#if defined(VIDORRA_BENCHMARK_ZIMG)
    if (format == AV_PIX_FMT_YUV420P) {
        peers.push_back({"zimg", byZimg(shape), 2, 1.3});
    }
#endif
    return peers;
}

void runCase(AVPixelFormat format, bool hot, const Options& options) {
    const Shape shape(options.shortRun);
    const bool interleaved = format == AV_PIX_FMT_NV12;
    const std::string title =
        fmt::format("range of {}, {}", interleaved ? "nv12 to yuv420p" : "yuv420p", hot ? "hot" : "cold");
    if (!options.wants(title)) {
        return;
    }
    std::vector<Pair> ring(hot ? 1 : shape.ringBytes / (2 * shape.bytes()) + 2);
    for (Pair& pair : ring) {
        pair = {makeMemory(shape.bytes()), makeMemory(shape.bytes())};
    }
    std::size_t turn = 0;
    const int pictures = options.shortRun ? 1 : 8;
    Comparison comparison(title);
    const auto add = [&](std::string name, const Convert& convert) {
        comparison.add(std::move(name), [&, convert](Stopwatch& stopwatch) {
            const auto once = [&] {
                turn = (turn + 1) % ring.size();
                convert(Planes(shape, false, ring[turn].dst.get()),
                        Planes(shape, interleaved, ring[turn].src.get()));
            };
            if (hot) {
                once();
            }
            stopwatch.start();
            for (int i = 0; i < pictures; ++i) {
                once();
            }
            stopwatch.stop();
        });
    };

    const Convert library = byLibrary(shape, format);
    const std::vector<Peer> peers = makePeers(shape, format);
    add("library", library);
    for (const RangeKernels* set : supportedRangeKernels()) {
        add(set->name, byRows(shape, set->convertLuma, set->convertChroma, set->splitChroma));
        if (set != &kPlainRangeKernels) {
            const RangeLimitKernels& limit = rangeLimitKernels(set->name);
            add(fmt::format("limit {}", set->name), byRows(shape, limit.copy, limit.copy, limit.split));
        }
    }
    for (const Peer& peer : peers) {
        expectConversion(shape, interleaved, peer.name, peer.convert, library);
        add(peer.name, peer.convert);
    }
    comparison.run(options.repetitions);

    report({title, fmt::format("a picture through the library, {}", rangeKernels().name),
            comparison.seconds("library") / pictures * 1e6, "us"});
    for (const RangeKernels* set : supportedRangeKernels()) {
        if (set != &kPlainRangeKernels) {
            const std::string own = set == &rangeKernels() ? "library" : set->name;
            report({title, fmt::format("{} of its limit", set->name),
                    comparison.ratio(fmt::format("limit {}", set->name), own), "", aimOfSet(set->name, hot)});
            report({title, fmt::format("{}, times plain", set->name), comparison.ratio("plain", own), "",
                    hot && set == &rangeKernels() ? std::optional(atLeast(4.5)) : std::nullopt});
        }
    }
    for (const Peer& peer : peers) {
        comparison.reportTimes("library", peer.name, atLeast(hot ? peer.hot : peer.cold));
    }
}

void run(const Options& options) {
    for (const AVPixelFormat format : {AV_PIX_FMT_NV12, AV_PIX_FMT_YUV420P}) {
        runCase(format, true, options);
        runCase(format, false, options);
    }
}

}  // namespace
}  // namespace vidorra::bench

int main(int argc, char** argv) {
    vidorra::bench::run(vidorra::bench::parseOptions(argc, argv));
}
