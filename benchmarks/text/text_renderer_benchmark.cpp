// Captions on 1080p pictures, compared with FFmpeg's drawtext filter. Each draws on a picture of its own
// again and again.
#include <cstdio>
#include <exception>
#include <stdexcept>
#include <string>
#include <vector>

#include <vidorra/vidorra.h>

#include "support/filter_peer.h"
#include "support/measure.h"
#include "support/picture_planes.h"

namespace {

using namespace vidorra;
using bench::Comparison;
using bench::Stopwatch;

constexpr const char* kFont = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";
// 51 glyphs with ink.
constexpr const char* kCaption = "The quick brown fox jumps over the lazy dog,\nand the dog lets it";
constexpr Size kSize{1920, 1080};

struct Case {
    AVPixelFormat format;
    int fontSize;
    bool box;
};

std::string nameOf(const Case& kind) {
    return fmt::format("caption on {}, {} pixels{}", kind.format, kind.fontSize, kind.box ? ", a box" : "");
}

Picture grayPicture(AVPixelFormat format) {
    Picture picture(kSize, format, AVCOL_RANGE_MPEG, 32);
    fillRectangle(picture, Color(100, 100, 100));
    return picture;
}

void benchmark(const Case& kind, const bench::Options& options) {
    const std::string title = nameOf(kind);
    if (!options.wants(title)) {
        return;
    }
    const std::string drawtext = "drawtext";
    const std::string same = "renderOn, the same text";
    const std::string other = "renderOn, laid out anew";
    const int frames = options.shortRun ? 3 : 400;

    const std::vector<bench::FilterPeer::Input> input = {{kind.format, kSize.width, kSize.height}};
    bench::FilterPeer filter(
        fmt::format("[in0]drawtext=fontfile={}:fontsize={}:fontcolor=white:expansion=none:box={}:"
                    "boxcolor=black:text='{}'",
                    kFont, kind.fontSize, kind.box ? 1 : 0, kCaption),
        input);
    // The cost of passing a frame through a graph.
    bench::FilterPeer nothing("[in0]null", input);
    FreeTypeTextRenderer renderer(kFont, kind.fontSize);
    renderer.setFontColor(Color(255, 255, 255));
    renderer.setBackgroundColor(Color(0, 0, 0, kind.box ? 255 : 0));
    Picture picture = grayPicture(kind.format);
    Picture filtered = grayPicture(kind.format);
    filter.run({bench::planesOf(filtered)});
    const Picture plain = grayPicture(kind.format);
    if (comparePictures(filtered, plain, 0, false, nullptr)) {
        throw std::runtime_error("drawtext draws nothing, or not where its picture lies");
    }

    Comparison comparison(title);
    const auto add = [&](const std::string& name, auto draw) {
        comparison.add(name, [frames, draw](Stopwatch& stopwatch) {
            draw();
            stopwatch.start();
            for (int i = 0; i < frames; ++i) {
                draw();
            }
            stopwatch.stop();
        });
    };
    add(drawtext, [&] { filter.run({bench::planesOf(filtered)}); });
    add("null filter", [&] { nothing.run({bench::planesOf(filtered)}); });
    add(same, [&] { renderer.renderOn(picture, kCaption, {}, {}); });
    add(other, [&] {
        renderer.setLineSpacing(0);
        renderer.renderOn(picture, kCaption, {}, {});
    });
    comparison.run(options.repetitions);
    comparison.printTable();
    bench::report({title, "a caption", comparison.seconds(same) * 1e6 / frames, "us"});
    comparison.reportTimes(same, drawtext, bench::atLeast(8, 3));
    bench::report({title, "times drawtext, laid out anew", comparison.ratio(drawtext, other), ""});
}

}  // namespace

int main(int argc, char** argv) try {
    const bench::Options options = bench::parseOptions(argc, argv);
    for (const Case& kind : {
             Case{AV_PIX_FMT_YUV420P, 48, false},
             Case{AV_PIX_FMT_YUV420P, 48, true},
             Case{AV_PIX_FMT_YUV420P, 24, false},
             Case{AV_PIX_FMT_NV12, 48, false},
             Case{AV_PIX_FMT_RGBA, 48, false},
         }) {
        benchmark(kind, options);
    }
} catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
}
