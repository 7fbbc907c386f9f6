// Blending beside what memory and vectors allow, and beside other libraries. All competitors of a comparison
// take their turns in one process and in random order, one picture pair after the other, on one CPU; only
// ratios within a comparison mean anything. "Hot" is one pair of pictures again and again, "cold" a ring of
// pairs that is larger than the caches. Pictures lie in aligned memory of the heap, written before anything
// is timed.
//
//     alphablend_benchmark [--short] [--repetitions N] [--only TEXT]

#include <fmt/format.h>
#include <sched.h>
#include <time.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <new>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "limit_kernels.h"
#include "process/alphablend/kernels.h"
#include "vidorra/core/enum_text.h"
#include "vidorra/picture/picture.h"
#include "vidorra/process/alphablend/blend.h"
#include "vidorra/process/compose.h"

#if defined(VIDORRA_BENCHMARK_LIBYUV)
#include <libyuv.h>
#endif
#if defined(VIDORRA_BENCHMARK_PIXMAN)
#include <pixman.h>
#endif

namespace vidorra::bench {
namespace {

using alphablend::Kernels;

struct Options {
    bool shortRun = false;
    int repetitions = 41;
    std::string only;

    int width() const { return shortRun ? 192 : 1920; }
    int height() const { return shortRun ? 108 : 1080; }
    std::size_t ringBytes() const { return shortRun ? 1 << 18 : std::size_t{400} << 20; }
};

constexpr std::size_t kAlignment = 64;

struct FreeAligned {
    void operator()(unsigned char* bytes) const { ::operator delete[](bytes, std::align_val_t{kAlignment}); }
};
using Memory = std::unique_ptr<unsigned char[], FreeAligned>;

Memory makeMemory(std::size_t size, std::mt19937& random) {
    Memory memory(static_cast<unsigned char*>(::operator new[](size, std::align_val_t{kAlignment})));
    // Other bytes cost the same, so that a cheap repetition will do.
    constexpr std::size_t kPattern = 1 << 16;
    for (std::size_t i = 0; i < std::min(size, kPattern); ++i) {
        memory[i] = static_cast<unsigned char>(random());
    }
    for (std::size_t i = kPattern; i < size; ++i) {
        memory[i] = memory[i - kPattern];
    }
    return memory;
}

enum class Shape { Dense, Logo };

// What an alpha is: "dense" neither 0 nor 255 anywhere, "logo" a disc with a soft edge.
unsigned char alphaAt(Shape shape, int x, int y, int width, int height, unsigned noise) {
    if (shape == Shape::Dense) {
        return static_cast<unsigned char>(1 + noise % 254);
    }
    const double dx = (2.0 * x - width) / width;
    const double dy = (2.0 * y - height) / height;
    const double edge = (0.8 - dx * dx - dy * dy) * 2000;
    return static_cast<unsigned char>(std::clamp(edge, 0.0, 255.0));
}

// A destination and a source, of any format: enough memory for 4 bytes a pixel in each.
struct Pair {
    Memory dst;
    Memory src;
    Memory alpha;
};

struct Ring {
    std::vector<Pair> pairs;
    std::size_t next = 0;

    Pair& turn() {
        next = (next + 1) % pairs.size();
        return pairs[next];
    }
};

double threadSeconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

double wallSeconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

struct Competitor {
    std::string name;
    std::function<void(Pair&)> run;
    std::vector<double> seconds;
};

// What a ratio is wanted to be, and what it has to be; 0 where it has to be nothing.
struct Aim {
    double aim;
    double floor = 0;
};

class Comparison {
public:
    explicit Comparison(const Options& options) : mOptions(options) {}

    void add(std::string name, std::function<void(Pair&)> run) {
        mCompetitors.push_back({std::move(name), std::move(run), {}});
    }

    void run(Ring& ring, bool hot) {
        std::mt19937 random(1);
        std::vector<Competitor*> order;
        for (Competitor& competitor : mCompetitors) {
            competitor.seconds.clear();
            order.push_back(&competitor);
        }
        const int pictures = mOptions.shortRun ? 1 : hot ? 5 : 4;
        for (int round = -1; round < mOptions.repetitions; ++round) {
            std::shuffle(order.begin(), order.end(), random);
            for (Competitor* competitor : order) {
                if (hot) {
                    competitor->run(ring.pairs[0]);
                }
                const double begin = threadSeconds();
                for (int i = 0; i < pictures; ++i) {
                    competitor->run(hot ? ring.pairs[0] : ring.turn());
                }
                if (round >= 0) {
                    competitor->seconds.push_back((threadSeconds() - begin) / pictures);
                }
            }
        }
    }

    [[nodiscard]] double seconds(std::string_view name) const {
        for (const Competitor& competitor : mCompetitors) {
            if (competitor.name == name) {
                return median(competitor.seconds);
            }
        }
        std::abort();
    }

    [[nodiscard]] bool has(std::string_view name) const {
        return std::any_of(mCompetitors.begin(), mCompetitors.end(),
                           [name](const Competitor& competitor) { return competitor.name == name; });
    }

private:
    const Options& mOptions;
    std::vector<Competitor> mCompetitors;
};

void printRow(std::string_view row, std::string_view what, double measured, std::optional<Aim> aim) {
    if (!aim) {
        fmt::print("{:<34} {:<34} {:6.2f}\n", row, what, measured);
        return;
    }
    const char* verdict = measured >= aim->aim ? "reached" : measured >= aim->floor ? "" : "BELOW THE FLOOR";
    const std::string floor = aim->floor > 0 ? fmt::format("floor {:.2f}", aim->floor) : "";
    fmt::print("{:<34} {:<34} {:6.2f}   aim {:.2f}  {:<10}  {}\n", row, what, measured, aim->aim, floor,
               verdict);
}

struct AimOfSet {
    std::string_view set;
    std::optional<Aim> hot;
    std::optional<Aim> cold;
};

struct AimOfPeer {
    std::string_view peer;
    double hot;
    double cold;
};

// One row of the table: a kernel, what all sets of instructions make of it, and the other libraries.
struct Case {
    std::string name;
    Shape shape;
    // Of the 32-bit formats; -1 for a plane of alpha.
    int alphaOffset;
    std::size_t bytesPerPair;
    std::function<void(const LimitKernels&, Pair&)> limit;
    std::function<void(Pair&)> library;
    std::function<void(const Kernels&, Pair&)> set;
    std::vector<std::pair<std::string, std::function<void(Pair&)>>> peers;
    std::vector<AimOfSet> aims;
    std::vector<AimOfPeer> peerAims;
};

void fillAlpha(Pair& pair, const Case& row, const Options& options, std::mt19937& random) {
    const int width = options.width();
    const int height = options.height();
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const std::size_t pixel = static_cast<std::size_t>(y) * width + x;
            const unsigned char alpha = alphaAt(row.shape, x, y, width, height, random());
            pair.alpha[pixel] = alpha;
            if (row.alphaOffset >= 0) {
                pair.src[4 * pixel + row.alphaOffset] = alpha;
            }
        }
    }
}

Ring makeRing(const Case& row, const Options& options) {
    std::mt19937 random(7);
    const std::size_t pixels = static_cast<std::size_t>(options.width()) * options.height();
    const std::size_t count = std::max<std::size_t>(2, options.ringBytes() / row.bytesPerPair);
    Ring ring;
    for (std::size_t i = 0; i < count; ++i) {
        ring.pairs.push_back(
            {makeMemory(4 * pixels, random), makeMemory(4 * pixels, random), makeMemory(pixels, random)});
        if (i == 0) {
            fillAlpha(ring.pairs[0], row, options, random);
            continue;
        }
        std::memcpy(ring.pairs[i].src.get(), ring.pairs[0].src.get(), 4 * pixels);
        std::memcpy(ring.pairs[i].alpha.get(), ring.pairs[0].alpha.get(), pixels);
    }
    return ring;
}

void runCase(const Case& row, const Options& options) {
    if (row.name.find(options.only) == std::string::npos) {
        return;
    }
    Ring ring = makeRing(row, options);
    Comparison comparison(options);
    const std::string best = alphablend::kernels().name;
    comparison.add("library", row.library);
    for (const Kernels* set : alphablend::supportedKernels()) {
        comparison.add(set->name, [&row, set](Pair& pair) { row.set(*set, pair); });
        if (set != &alphablend::kPlainKernels) {
            const LimitKernels& limit = limitKernels(set->name);
            comparison.add(fmt::format("limit {}", set->name),
                           [&row, &limit](Pair& pair) { row.limit(limit, pair); });
        }
    }
    for (const auto& [name, run] : row.peers) {
        comparison.add(name, run);
    }
    for (const bool hot : {true, false}) {
        comparison.run(ring, hot);
        const std::string title = row.name + (hot ? ", hot" : ", cold");
        const double library = comparison.seconds("library");
        fmt::print("{:<34} {:<34} {:6.0f} us, {}\n", title, "a picture through the library", library * 1e6,
                   best);
        for (const Kernels* set : alphablend::supportedKernels()) {
            if (set == &alphablend::kPlainKernels) {
                continue;
            }
            std::optional<Aim> aim;
            for (const AimOfSet& each : row.aims) {
                if (each.set == set->name) {
                    aim = hot ? each.hot : each.cold;
                }
            }
            const double own = best == set->name ? library : comparison.seconds(set->name);
            printRow(title, fmt::format("{} of its limit", set->name),
                     comparison.seconds(fmt::format("limit {}", set->name)) / own, aim);
            printRow(title, fmt::format("{}, times plain", set->name), comparison.seconds("plain") / own,
                     std::nullopt);
        }
        for (const auto& [name, run] : row.peers) {
            std::optional<Aim> aim;
            for (const AimOfPeer& each : row.peerAims) {
                if (each.peer == name) {
                    aim = Aim{hot ? each.hot : each.cold};
                }
            }
            printRow(title, fmt::format("times {}", name), comparison.seconds(name) / library, aim);
        }
    }
    std::fflush(stdout);
}

// The planes of an NV12 picture in the memory of a pair.
struct SemiPlanar {
    std::ptrdiff_t width;
    std::ptrdiff_t height;

    explicit SemiPlanar(const Options& options) : width(options.width()), height(options.height()) {}

    std::ptrdiff_t pixels() const { return width * height; }
    unsigned char* chroma(const Memory& memory) const { return memory.get() + pixels(); }
    unsigned char* v(const Memory& memory) const { return chroma(memory) + pixels() / 4; }

    template <class Call>
    void forRowPairs(Pair& pair, const Call& call) const {
        for (std::ptrdiff_t y = 0; y < height; y += 2) {
            unsigned char* d = pair.dst.get() + y * width;
            const unsigned char* s = pair.src.get() + y * width;
            const unsigned char* a = pair.alpha.get() + y * width;
            call(alphablend::RowPair{{d, d + width}, chroma(pair.dst) + y / 2 * width, 2 * width, width},
                 alphablend::SourceRowPair{{s, s + width},
                                           chroma(pair.src) + y / 2 * width,
                                           {a, a + width},
                                           2 * width,
                                           width,
                                           2 * width});
        }
    }
};

Case fadeNv12Case(const Options& options) {
    const SemiPlanar planes(options);
    const auto size = static_cast<std::size_t>(planes.pixels()) * 3 / 2;
    const int width = options.width();
    const int height = options.height();
    Case row{.name = "NV12, faded",
             .shape = Shape::Dense,
             .alphaOffset = -1,
             .bytesPerPair = 2 * size,
             .limit = [size](const LimitKernels& limit,
                             Pair& pair) { limit.average2(pair.dst.get(), pair.src.get(), size); },
             .library =
                 [=](Pair& pair) {
                     unsigned char* dst[] = {pair.dst.get(), planes.chroma(pair.dst)};
                     const unsigned char* src[] = {pair.src.get(), planes.chroma(pair.src)};
                     const int linesize[] = {width, width};
                     alphablend::blendNv12(dst, linesize, width, height, src, linesize, width, height, 0, 0,
                                           0.5, 1);
                 },
             .set =
                 [=](const Kernels& set, Pair& pair) {
                     planes.forRowPairs(pair, [&](const auto& dst, const auto& src) {
                         set.fadeNv12(dst, src, planes.width, 127);
                     });
                 },
             .peers = {},
             .aims = {{"avx512", Aim{0.95, 0.85}, Aim{0.92, 0.80}},
                      {"avx2", Aim{0.90}, Aim{0.80}},
                      {"vector16", Aim{0.5}, std::nullopt}},
             .peerAims = {{"libyuv InterpolatePlane", 1.0, 1.0}}};
#if defined(VIDORRA_BENCHMARK_LIBYUV)
    row.peers.emplace_back("libyuv InterpolatePlane", [=](Pair& pair) {
        libyuv::InterpolatePlane(pair.dst.get(), width, pair.src.get(), width, pair.dst.get(), width, width,
                                 height, 127);
        libyuv::InterpolatePlane(planes.chroma(pair.dst), width, planes.chroma(pair.src), width,
                                 planes.chroma(pair.dst), width, width, height / 2, 127);
    });
#endif
    return row;
}

Case nva12Case(const Options& options, Shape shape, double opacity) {
    const SemiPlanar planes(options);
    const auto luma = static_cast<std::size_t>(planes.pixels());
    const int width = options.width();
    const int height = options.height();
    const auto byte = static_cast<unsigned>(opacity * 255);
    const bool full = byte == 255;
    Case row{.name = fmt::format("NVA12{}{}", full ? "" : ", faded", shape == Shape::Logo ? ", logo" : ""),
             .shape = shape,
             .alphaOffset = -1,
             .bytesPerPair = 4 * luma,
             .limit =
                 [=](const LimitKernels& limit, Pair& pair) {
                     limit.average3(pair.dst.get(), pair.src.get(), pair.alpha.get(), luma);
                     limit.average2(planes.chroma(pair.dst), planes.chroma(pair.src), luma / 2);
                 },
             .library =
                 [=](Pair& pair) {
                     unsigned char* dst[] = {pair.dst.get(), planes.chroma(pair.dst)};
                     const unsigned char* src[] = {pair.src.get(), planes.chroma(pair.src), nullptr,
                                                   pair.alpha.get()};
                     const int linesize[] = {width, width, 0, width};
                     alphablend::blendNva12(dst, linesize, width, height, src, linesize, width, height, 0, 0,
                                            opacity, 1);
                 },
             .set =
                 [=](const Kernels& set, Pair& pair) {
                     planes.forRowPairs(pair, [&](const auto& dst, const auto& src) {
                         if (full) {
                             set.blendNva12(dst, src, planes.width);
                         } else {
                             set.fadeNva12(dst, src, planes.width, byte);
                         }
                     });
                 },
             .peers = {},
             .aims = {},
             .peerAims = {}};
    if (shape == Shape::Logo) {
        if (full) {
            row.aims = {{"avx512", Aim{1.03, 0.78}, Aim{0.97, 0.75}}};
        }
    } else if (full) {
        row.aims = {{"avx512", Aim{0.92, 0.78}, Aim{0.85, 0.75}},
                    {"avx2", Aim{0.82}, Aim{0.78}},
                    {"vector16", Aim{0.5}, std::nullopt}};
        row.peerAims = {{"libyuv I420Blend", 1.3, 1.25}};
    } else {
        row.aims = {{"avx512", Aim{0.87, 0.75}, Aim{0.81, 0.72}},
                    {"avx2", Aim{0.72}, Aim{0.76}},
                    {"vector16", Aim{0.5}, std::nullopt}};
        row.peerAims = {{"libyuv I420Blend", 1.2, 1.2}};
    }
#if defined(VIDORRA_BENCHMARK_LIBYUV)
    row.peers.emplace_back("libyuv I420Blend", [=](Pair& pair) {
        const int half = width / 2;
        libyuv::I420Blend(pair.src.get(), width, planes.chroma(pair.src), half, planes.v(pair.src), half,
                          pair.dst.get(), width, planes.chroma(pair.dst), half, planes.v(pair.dst), half,
                          pair.alpha.get(), width, pair.dst.get(), width, planes.chroma(pair.dst), half,
                          planes.v(pair.dst), half, width, height);
    });
#endif
    return row;
}

#if defined(VIDORRA_BENCHMARK_PIXMAN)
// Puts the source over the destination, through a mask of one alpha if there is one.
void pixmanOver(Pair& pair, int width, int height, pixman_image_t* mask) {
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
#endif

Case packed32Case(const Options& options, bool argb, Shape shape, double opacity) {
    const int width = options.width();
    const int height = options.height();
    const auto size = static_cast<std::size_t>(width) * height * 4;
    const auto byte = static_cast<unsigned>(opacity * 255);
    const int alphaOffset = argb ? 0 : 3;
    const auto blend = argb ? alphablend::blendArgb32 : alphablend::blendRgba32;
    Case row{.name = fmt::format("{}{}{}", argb ? "ARGB" : "RGBA", byte == 255 ? "" : ", faded",
                                 shape == Shape::Logo ? ", logo" : ""),
             .shape = shape,
             .alphaOffset = alphaOffset,
             .bytesPerPair = 2 * size,
             .limit = [size](const LimitKernels& limit,
                             Pair& pair) { limit.average2(pair.dst.get(), pair.src.get(), size); },
             .library =
                 [=](Pair& pair) {
                     unsigned char* dst = pair.dst.get();
                     const unsigned char* src = pair.src.get();
                     const int linesize = 4 * width;
                     blend(&dst, &linesize, width, height, &src, &linesize, width, height, 0, 0, opacity, 1);
                 },
             .set =
                 [=](const Kernels& set, Pair& pair) {
                     for (int y = 0; y < height; ++y) {
                         const std::ptrdiff_t step = std::ptrdiff_t{4} * width;
                         set.blend32({pair.dst.get() + step * y, pair.src.get() + step * y, step, step},
                                     width, alphaOffset, byte);
                     }
                 },
             .peers = {},
             .aims = {},
             .peerAims = {}};
    if (shape == Shape::Logo) {
        row.aims = {{"avx512", Aim{0.95, 0.60}, Aim{1.0, 0.75}}};
    } else if (byte == 255) {
        row.aims = {{"avx512", Aim{0.70, 0.60}, Aim{0.85, 0.75}},
                    {"avx2", Aim{0.60}, Aim{0.80}},
                    {"vector16", Aim{0.3}, std::nullopt}};
        row.peerAims = {{"libyuv ARGBBlend", 1.15, 1.05}, {"pixman OVER", 1.4, 1.15}};
    } else {
        row.aims = {{"avx512", Aim{0.68, 0.58}, Aim{0.86, 0.75}},
                    {"avx2", Aim{0.55}, Aim{0.80}},
                    {"vector16", Aim{0.3}, std::nullopt}};
        row.peerAims = {{"pixman OVER with mask", 2.0, 1.7}};
    }
#if defined(VIDORRA_BENCHMARK_LIBYUV)
    if (byte == 255) {
        row.peers.emplace_back("libyuv ARGBBlend", [=](Pair& pair) {
            libyuv::ARGBBlend(pair.src.get(), 4 * width, pair.dst.get(), 4 * width, pair.dst.get(), 4 * width,
                              width, height);
        });
    }
#endif
#if defined(VIDORRA_BENCHMARK_PIXMAN)
    if (byte == 255) {
        row.peers.emplace_back("pixman OVER", [=](Pair& pair) { pixmanOver(pair, width, height, nullptr); });
    } else {
        row.peers.emplace_back("pixman OVER with mask", [=](Pair& pair) {
            const auto level = static_cast<std::uint16_t>(byte * 257);
            const pixman_color_t color = {level, level, level, level};
            pixman_image_t* mask = pixman_image_create_solid_fill(&color);
            pixmanOver(pair, width, height, mask);
            pixman_image_unref(mask);
        });
    }
#endif
    return row;
}

Case rgb24Case(const Options& options) {
    const int width = options.width();
    const int height = options.height();
    const auto size = static_cast<std::size_t>(width) * height * 3;
    Case row{.name = "RGB24, faded",
             .shape = Shape::Dense,
             .alphaOffset = -1,
             .bytesPerPair = 2 * size,
             .limit = [size](const LimitKernels& limit,
                             Pair& pair) { limit.average2(pair.dst.get(), pair.src.get(), size); },
             .library =
                 [=](Pair& pair) {
                     unsigned char* dst = pair.dst.get();
                     const unsigned char* src = pair.src.get();
                     const int linesize = 3 * width;
                     alphablend::blendRgb24(&dst, &linesize, width, height, &src, &linesize, width, height, 0,
                                            0, 0.5, 1);
                 },
             .set =
                 [=](const Kernels& set, Pair& pair) {
                     for (int y = 0; y < height; ++y) {
                         const std::ptrdiff_t step = std::ptrdiff_t{3} * width;
                         set.blend24({pair.dst.get() + step * y, pair.src.get() + step * y, step, step}, step,
                                     127);
                     }
                 },
             .peers = {},
             .aims = {{"avx512", Aim{0.76, 0.65}, Aim{0.90, 0.80}},
                      {"avx2", Aim{0.65}, Aim{0.83}},
                      {"vector16", Aim{0.3}, std::nullopt}},
             .peerAims = {{"libyuv InterpolatePlane", 1.03, 1.03}}};
#if defined(VIDORRA_BENCHMARK_LIBYUV)
    row.peers.emplace_back("libyuv InterpolatePlane", [=](Pair& pair) {
        libyuv::InterpolatePlane(pair.dst.get(), 3 * width, pair.src.get(), 3 * width, pair.dst.get(),
                                 3 * width, 3 * width, height, 127);
    });
#endif
    return row;
}

Picture makePicture(AVPixelFormat format, int width, int height) {
    Picture picture(Size{width, height}, format, AVCOL_RANGE_MPEG, 64);
    std::memset(picture.data()[0], 100, static_cast<std::size_t>(picture.linesize()[0]) * height);
    std::memset(picture.data()[1], 128, static_cast<std::size_t>(picture.linesize()[1]) * height / 2);
    if (picture.data()[3] != nullptr) {
        std::mt19937 random(3);
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < width; ++x) {
                picture.data()[3][y * picture.linesize()[3] + x] =
                    alphaAt(Shape::Dense, x, y, width, height, random());
            }
        }
    }
    return picture;
}

// What compose() adds to the kernel.
void measureOverhead(const Options& options) {
    const std::string name = "compose, 640x360 on 1080p";
    if (name.find(options.only) == std::string::npos) {
        return;
    }
    Picture screen = makePicture(AV_PIX_FMT_NV12, 1920, 1080);
    const Picture logo = makePicture(NVA12, 640, 360);
    const Point position{1200, 60};
    Ring ring;
    ring.pairs.resize(1);
    Comparison comparison(options);
    comparison.add("compose", [&](Pair&) { compose(screen, logo, position, CheckColorRange::Yes, 1.0, 1); });
    comparison.add("kernel", [&](Pair&) {
        const Picture part = screen.crop({position.x, position.y, 640, 360});
        alphablend::Planes<alphablend::pixel_format::NV12, unsigned char*> dst{
            640, 360, {part.data()[0], part.data()[1]}, {part.linesize()[0], part.linesize()[1]}};
        alphablend::Planes<alphablend::pixel_format::NVA12, const unsigned char*> src{
            640,
            360,
            {logo.data()[0], logo.data()[1], nullptr, logo.data()[3]},
            {logo.linesize()[0], logo.linesize()[1], 0, logo.linesize()[3]}};
        alphablend::blendPlanesOfSameSize(dst, src, alphablend::Opacity(255));
    });
    // All that compose() does but for a single block of pixels.
    comparison.add("outside", [&](Pair&) {
        compose(screen, logo, {1918, 1078}, CheckColorRange::Yes, 1.0, 1);
    });
    comparison.run(ring, true);
    fmt::print("{:<34} {:<34} {:6.1f} us   aim 25, or 50 with AVX2\n", name, "compose",
               comparison.seconds("compose") * 1e6);
    fmt::print("{:<34} {:<34} {:6.1f} us\n", name, "kernel alone", comparison.seconds("kernel") * 1e6);
    fmt::print("{:<34} {:<34} {:6.2f} us   aim 2\n", name, "outside the kernel",
               comparison.seconds("outside") * 1e6);
}

// Wall time on two threads beside one, not pinned.
void measureThreads(const Options& options, int width, int height, double aim) {
    const std::string name = fmt::format("compose on 2 threads, {}x{}", width, height);
    if (name.find(options.only) == std::string::npos) {
        return;
    }
    Picture screen = makePicture(AV_PIX_FMT_NV12, width, height);
    const Picture overlay = makePicture(NVA12, width, height);
    std::vector<double> seconds[2];
    for (int round = -1; round < options.repetitions; ++round) {
        for (int threads : {1, 2}) {
            const double begin = wallSeconds();
            for (int i = 0; i < 5; ++i) {
                compose(screen, overlay, {0, 0}, CheckColorRange::Yes, 1.0, threads);
            }
            if (round >= 0) {
                seconds[threads - 1].push_back(wallSeconds() - begin);
            }
        }
    }
    printRow(name, "times one thread, wall time", median(seconds[0]) / median(seconds[1]), Aim{aim});
}

void pinToThisCpu() {
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(sched_getcpu(), &set);
    if (sched_setaffinity(0, sizeof(set), &set) != 0) {
        std::fputs("not pinned to one CPU\n", stderr);
    }
}

Options parseOptions(int argc, char** argv) {
    Options options;
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i];
        if (argument == "--short") {
            options.shortRun = true;
            options.repetitions = 2;
        } else if (argument == "--repetitions" && i + 1 < argc && std::atoi(argv[i + 1]) > 0) {
            options.repetitions = std::atoi(argv[++i]);
        } else if (argument == "--only" && i + 1 < argc) {
            options.only = argv[++i];
        } else {
            std::fputs("usage: alphablend_benchmark [--short] [--repetitions N] [--only TEXT]\n", stderr);
            std::exit(2);
        }
    }
    return options;
}

int run(const Options& options) {
    if (options.shortRun) {
        fmt::print("A short run: its figures say nothing.\n");
    }
    measureThreads(options, options.width(), options.height(), 1.4);
    measureThreads(options, 2 * options.width(), 2 * options.height(), 1.7);
    pinToThisCpu();
    runCase(fadeNv12Case(options), options);
    runCase(nva12Case(options, Shape::Dense, 1.0), options);
    runCase(nva12Case(options, Shape::Logo, 1.0), options);
    runCase(nva12Case(options, Shape::Dense, 0.5), options);
    runCase(packed32Case(options, false, Shape::Dense, 1.0), options);
    runCase(packed32Case(options, true, Shape::Dense, 1.0), options);
    runCase(packed32Case(options, true, Shape::Logo, 1.0), options);
    runCase(packed32Case(options, true, Shape::Dense, 0.5), options);
    runCase(rgb24Case(options), options);
    measureOverhead(options);
    return 0;
}

}  // namespace
}  // namespace vidorra::bench

int main(int argc, char** argv) {
    return vidorra::bench::run(vidorra::bench::parseOptions(argc, argv));
}
