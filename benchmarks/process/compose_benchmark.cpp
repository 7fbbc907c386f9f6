// compose() with pictures as a caller has them: a logo on a screen, beside FFmpeg's overlay filter, with what
// compose() adds to the kernel; and whole pictures on two threads. "Hot": always the same pictures.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "blend_pictures.h"
#include "process/alphablend/kernels.h"
#include "support/filter_peer.h"
#include "support/measure.h"
#include "support/picture_planes.h"
#include "vidorra/core/enum_text.h"
#include "vidorra/picture/picture.h"
#include "vidorra/process/alphablend/blend.h"
#include "vidorra/process/compose.h"

extern "C" {
#include <libavutil/frame.h>
}

namespace vidorra::bench {
namespace {

constexpr Size kScreen{1920, 1080};
constexpr Size kLogo{640, 360};
constexpr Point kPosition{1200, 60};

Picture makePicture(AVPixelFormat format, Size size) {
    Picture picture(size, format, AVCOL_RANGE_MPEG, 64);
    std::mt19937 random(3);
    for (std::size_t plane = 0; plane < 4; ++plane) {
        std::uint8_t* data = picture.data()[plane];
        // Two chroma planes, or one of pairs, of half the height.
        const int rows = plane == 1 || plane == 2 ? size.height / 2 : size.height;
        for (int i = 0; data != nullptr && i < rows * picture.linesize()[plane]; ++i) {
            data[i] = plane == 3 ? alphaAt(Shape::Dense, 0, 0, 1, 1, random())
                                 : static_cast<std::uint8_t>(random());
        }
    }
    return picture;
}

// FFmpeg's overlay of the same luma and alpha, with chroma in planes.
class OverlayFilter {
public:
    OverlayFilter(AVPixelFormat screenFormat, const Picture& logo)
        : mScreen(makePicture(screenFormat, kScreen)),
          mLogo(makePicture(AV_PIX_FMT_YUVA420P, kLogo)),
          mGraph(fmt::format("[in0][in1]overlay=x={}:y={}{}", kPosition.x, kPosition.y,
                             // The filter does not take NV12: FFmpeg converts it before, and the user after.
                             screenFormat == AV_PIX_FMT_NV12 ? ":format=auto,format=nv12" : ""),
                 {{screenFormat, kScreen.width, kScreen.height},
                  {AV_PIX_FMT_YUVA420P, kLogo.width, kLogo.height}}) {
        for (const std::size_t plane : {0, 3}) {
            for (std::ptrdiff_t y = 0; y < kLogo.height; ++y) {
                std::memcpy(mLogo.data()[plane] + y * mLogo.linesize()[plane],
                            logo.data()[plane] + y * logo.linesize()[plane],
                            static_cast<std::size_t>(kLogo.width));
            }
        }
    }

    void run() { mGraph.run({planesOf(mScreen), planesOf(mLogo)}); }

    // Throws unless the first picture that comes is about `expected` in its luma.
    void expectFirst(const Picture& expected) {
        mGraph.run({planesOf(mScreen), planesOf(mLogo)}, [&](const AVFrame& frame) {
            for (std::ptrdiff_t y = 0; y < kScreen.height; ++y) {
                for (std::ptrdiff_t x = 0; x < kScreen.width; ++x) {
                    const int theirs = frame.data[0][y * frame.linesize[0] + x];
                    const int ours = expected.data()[0][y * expected.linesize()[0] + x];
                    if (std::abs(theirs - ours) > 2) {
                        throw std::runtime_error(
                            fmt::format("overlay gives {} at {}, {}, not {}", theirs, x, y, ours));
                    }
                }
            }
        });
    }

private:
    Picture mScreen;
    Picture mLogo;
    FilterPeer mGraph;
};

void benchmarkLogo(const Options& options) {
    const std::string title = "640x360 NVA12 logo on 1080p, hot";
    if (!options.wants(title)) {
        return;
    }
    Picture screen = makePicture(AV_PIX_FMT_NV12, kScreen);
    const Picture logo = makePicture(NVA12, kLogo);
    const int times = options.shortRun ? 1 : 50;
    Comparison comparison(title);
    const auto add = [&comparison](const std::string& name, int count, std::function<void()> once) {
        comparison.add(name, [count, once = std::move(once)](Stopwatch& stopwatch) {
            once();
            stopwatch.start();
            for (int i = 0; i < count; ++i) {
                once();
            }
            stopwatch.stop();
        });
    };
    OverlayFilter planar(AV_PIX_FMT_YUV420P, logo);
    OverlayFilter semiPlanar(AV_PIX_FMT_NV12, logo);
    Picture expected = makePicture(AV_PIX_FMT_NV12, kScreen);
    compose(expected, logo, kPosition, CheckColorRange::Yes, 1.0, 1);
    planar.expectFirst(expected);
    semiPlanar.expectFirst(expected);

    add("compose", times, [&] { compose(screen, logo, kPosition, CheckColorRange::Yes, 1.0, 1); });
    add("kernel", times, [&] {
        const std::ptrdiff_t luma = std::ptrdiff_t{kPosition.y} * screen.linesize()[0] + kPosition.x;
        const std::ptrdiff_t chroma = std::ptrdiff_t{kPosition.y / 2} * screen.linesize()[1] + kPosition.x;
        const alphablend::Planes<alphablend::pixel_format::NV12, unsigned char*> dst{
            kLogo.width,
            kLogo.height,
            {screen.data()[0] + luma, screen.data()[1] + chroma},
            {screen.linesize()[0], screen.linesize()[1]}};
        const alphablend::Planes<alphablend::pixel_format::NVA12, const unsigned char*> src{
            kLogo.width,
            kLogo.height,
            {logo.data()[0], logo.data()[1], nullptr, logo.data()[3]},
            {logo.linesize()[0], logo.linesize()[1], 0, logo.linesize()[3]}};
        alphablend::blendPlanesOfSameSize(dst, src, alphablend::Opacity(255));
    });
    // All that compose() does but for a single block of pixels.
    add("outside the kernel", times, [&] {
        compose(screen, logo, {kScreen.width - 2, kScreen.height - 2}, CheckColorRange::Yes, 1.0, 1);
    });
    // A picture of theirs takes long enough for a few to do.
    const int timesOfPeers = options.shortRun ? 1 : 5;
    add("FFmpeg overlay, yuv420p", timesOfPeers, [&] { planar.run(); });
    add("FFmpeg overlay, nv12", timesOfPeers, [&] { semiPlanar.run(); });
    comparison.run(options.repetitions);

    const bool avx512 = std::string(alphablend::kernels().name) == "avx512";
    const auto microseconds = [&](const std::string& name) { return comparison.seconds(name) / times * 1e6; };
    report({title, "compose", microseconds("compose"), "us", atMost(avx512 ? 25 : 50)});
    report({title, "kernel alone", microseconds("kernel"), "us"});
    report({title, "outside the kernel", microseconds("outside the kernel"), "us", atMost(2)});
    const double share = static_cast<double>(times) / timesOfPeers;
    report({title, "times FFmpeg overlay, yuv420p",
            comparison.ratio("FFmpeg overlay, yuv420p", "compose") * share, "", atLeast(5)});
    report({title, "times FFmpeg overlay, nv12", comparison.ratio("FFmpeg overlay, nv12", "compose") * share,
            "", atLeast(25)});
}

void benchmarkThreads(const Options& options, Size size, double aim) {
    const std::string title = fmt::format("compose on 2 threads, {}x{}", size.width, size.height);
    if (!options.wants(title)) {
        return;
    }
    Picture screen = makePicture(AV_PIX_FMT_NV12, size);
    const Picture overlay = makePicture(NVA12, size);
    Comparison comparison(title);
    for (const int threads : {1, 2}) {
        comparison.add(threads == 1 ? "one thread" : "two threads", [&, threads](Stopwatch& stopwatch) {
            stopwatch.start();
            for (int i = 0; i < (options.shortRun ? 1 : 5); ++i) {
                compose(screen, overlay, {0, 0}, CheckColorRange::Yes, 1.0, threads);
            }
            stopwatch.stop();
        });
    }
    comparison.run(options.repetitions, Comparison::Pinning::None);
    report({title, "times one thread, wall time",
            comparison.ratio("one thread", "two threads", Comparison::Column::Wall), "", atLeast(aim)});
}

// FFmpeg's filters for one overlay after the other: the same luma or colours.
std::string overlayChain(const std::vector<Overlay>& overlays, bool rgb) {
    std::string chain;
    for (std::size_t i = 0; i < overlays.size(); ++i) {
        chain += fmt::format("[{}][in{}]overlay=x={}:y={}{}{}", i == 0 ? "in0" : fmt::format("t{}", i), i + 1,
                             overlays[i].position.x, overlays[i].position.y, rgb ? ":format=rgb" : "",
                             i + 1 < overlays.size() ? fmt::format("[t{}];", i + 1) : "");
    }
    return chain;
}

// Eight overlays of an eighth to a half of the screen, which overlap; the pictures without alpha hide what is
// below them.
std::vector<Overlay> manyOverlays(AVPixelFormat withAlpha, AVPixelFormat opaque, Size screen) {
    std::vector<Overlay> overlays;
    for (int i = 0; i < 8; ++i) {
        const Size size{screen.width * (8 - i) / 12 & ~1, screen.height * (8 - i) / 12 & ~1};
        const Point position{screen.width * i / 20 & ~1, screen.height * (i * 5 % 8) / 16 & ~1};
        overlays.push_back({makePicture(i % 3 == 1 ? opaque : withAlpha, size), position, 1.0});
    }
    return overlays;
}

// A list of overlays beside one call for each, and beside a chain of FFmpeg's filters, which knows planar
// formats and RGBA.
void benchmarkList(const Options& options, const char* name, AVPixelFormat format, AVPixelFormat withAlpha,
                   AVPixelFormat peerFormat, AVPixelFormat peerWithAlpha) {
    const Size size = options.shortRun ? Size{384, 216} : Size{3840, 2160};
    const std::string title = fmt::format("8 overlays on {} {}x{}", name, size.width, size.height);
    if (!options.wants(title)) {
        return;
    }
    Picture screen = makePicture(format, size);
    const std::vector<Overlay> overlays = manyOverlays(withAlpha, format, size);
    Picture peerScreen = makePicture(peerFormat, size);
    std::vector<Overlay> peers = manyOverlays(peerWithAlpha, peerFormat, size);
    std::vector<FilterPeer::Input> inputs = {{peerFormat, size.width, size.height}};
    std::vector<FilterPeer::Planes> planes = {planesOf(peerScreen)};
    for (Overlay& each : peers) {
        const Size part = each.picture.frameSize();
        inputs.push_back({each.picture.pixelFormat(), part.width, part.height});
        planes.push_back(planesOf(each.picture));
    }
    FilterPeer chain(overlayChain(peers, format == AV_PIX_FMT_RGBA), inputs);

    Comparison comparison(title);
    const auto add = [&comparison](const std::string& competitor, std::function<void()> once) {
        comparison.add(competitor, [once = std::move(once)](Stopwatch& stopwatch) {
            stopwatch.start();
            once();
            stopwatch.stop();
        });
    };
    add("list", [&] { compose(screen, overlays, CheckColorRange::Yes, 1); });
    add("one call each", [&] {
        for (const Overlay& each : overlays) {
            compose(screen, each.picture, each.position, CheckColorRange::Yes, each.opacity, 1);
        }
    });
    add("FFmpeg overlay chain", [&] { chain.run(planes); });
    comparison.run(options.repetitions);
    report({title, "list", comparison.seconds("list") * 1e6, "us"});
    comparison.reportTimes("list", "one call each", atLeast(1.2));
    comparison.reportTimes("list", "FFmpeg overlay chain", atLeast(5));
}

}  // namespace
}  // namespace vidorra::bench

int main(int argc, char** argv) try {
    const vidorra::bench::Options options = vidorra::bench::parseOptions(argc, argv, 41);
    vidorra::bench::benchmarkLogo(options);
    vidorra::bench::benchmarkThreads(options, {1920, 1080}, 1.4);
    vidorra::bench::benchmarkThreads(options, {3840, 2160}, 1.7);
    vidorra::bench::benchmarkList(options, "NV12", AV_PIX_FMT_NV12, vidorra::NVA12, AV_PIX_FMT_YUV420P,
                                  AV_PIX_FMT_YUVA420P);
    vidorra::bench::benchmarkList(options, "RGBA", AV_PIX_FMT_RGBA, AV_PIX_FMT_RGBA, AV_PIX_FMT_RGBA,
                                  AV_PIX_FMT_RGBA);
} catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
}
