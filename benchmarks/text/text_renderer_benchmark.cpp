// Captions on 1080p pictures beside FFmpeg's drawtext filter, which gets the same frame again and again.
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>

#include <vidorra/vidorra.h>

#include "support/measure.h"

extern "C" {
#include <libavfilter/avfilter.h>
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
#include <libavutil/frame.h>
}

namespace {

using namespace vidorra;
using bench::Comparison;
using bench::Stopwatch;

constexpr const char* kFont = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";
// 51 glyphs with ink.
constexpr const char* kCaption =
    "The quick brown fox jumps over the lazy dog,\nand the dog lets it";
constexpr Size kSize{1920, 1080};

struct Case {
    AVPixelFormat format;
    int fontSize;
    bool box;
};

std::string nameOf(const Case& kind) {
    return fmt::format("{} at {} pixels{}", kind.format, kind.fontSize, kind.box ? " on a box" : "");
}

Picture grayPicture(AVPixelFormat format) {
    Picture picture(kSize, format, AVCOL_RANGE_MPEG, 32);
    fillRectangle(picture, Color(100, 100, 100));
    return picture;
}

void check(int result, const char* what) {
    if (result < 0) {
        throw std::runtime_error(what);
    }
}

// A graph of one filter, through which one frame goes again and again.
class Filter {
public:
    Filter(AVPixelFormat format, const char* name, const std::string& arguments)
        : mGraph(avfilter_graph_alloc(), [](AVFilterGraph* graph) { avfilter_graph_free(&graph); }) {
        const std::string source =
            fmt::format("video_size={}x{}:pix_fmt={}:time_base=1/25", kSize.width, kSize.height, format);
        mSource = add("buffer", source);
        AVFilterContext* filter = add(name, arguments);
        mSink = add("buffersink", "");
        check(avfilter_link(mSource, 0, filter, 0), "avfilter_link");
        check(avfilter_link(filter, 0, mSink, 0), "avfilter_link");
        check(avfilter_graph_config(mGraph.get(), nullptr), "avfilter_graph_config");
        AvPtr<AVFrame> frame = makeAvPtr<AVFrame>();
        frame->format = format;
        frame->width = kSize.width;
        frame->height = kSize.height;
        check(av_frame_get_buffer(frame.get(), 32), "av_frame_get_buffer");
        Picture(frame.get()).fillAVFrame(frame.get());
        check(av_frame_make_writable(frame.get()), "av_frame_make_writable");
        mFrame = std::move(frame);
    }

    // The graph takes the frame's only reference, so nothing is copied for writing.
    void run() {
        mFrame->pts = mPts++;
        check(av_buffersrc_add_frame(mSource, mFrame.get()), "av_buffersrc_add_frame");
        check(av_buffersink_get_frame(mSink, mFrame.get()), "av_buffersink_get_frame");
    }

private:
    AVFilterContext* add(const char* name, const std::string& arguments) {
        AVFilterContext* context = nullptr;
        check(avfilter_graph_create_filter(&context, avfilter_get_by_name(name), nullptr, arguments.c_str(),
                                           nullptr, mGraph.get()),
              name);
        return context;
    }

    std::unique_ptr<AVFilterGraph, void (*)(AVFilterGraph*)> mGraph;
    AVFilterContext* mSource = nullptr;
    AVFilterContext* mSink = nullptr;
    AvPtr<AVFrame> mFrame = makeAvPtr<AVFrame>();
    std::int64_t mPts = 0;
};

void benchmark(const Case& kind, const bench::Options& options) {
    const std::string drawtext = "drawtext";
    const std::string same = "renderOn, the same text";
    const std::string other = "renderOn, laid out anew";
    const int frames = options.shortRun ? 3 : 400;

    Filter filter(kind.format, "drawtext",
                  fmt::format("fontfile={}:fontsize={}:fontcolor=white:expansion=none:box={}:boxcolor=black:"
                              "text='{}'",
                              kFont, kind.fontSize, kind.box ? 1 : 0, kCaption));
    // What goes into handing a frame through a graph.
    Filter nothing(kind.format, "null", "");
    FreeTypeTextRenderer renderer(kFont, kind.fontSize);
    renderer.setFontColor(Color(255, 255, 255));
    renderer.setBackgroundColor(Color(0, 0, 0, kind.box ? 255 : 0));
    Picture picture = grayPicture(kind.format);

    Comparison comparison(nameOf(kind));
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
    add(drawtext, [&] { filter.run(); });
    add("null filter", [&] { nothing.run(); });
    add(same, [&] { renderer.renderOn(picture, kCaption, {}, {}); });
    add(other, [&] {
        renderer.setLineSpacing(0);
        renderer.renderOn(picture, kCaption, {}, {});
    });
    comparison.run(options.repetitions);
    comparison.printTable();
    std::printf("  a caption: drawtext %.1f us, ours %.1f us\n", comparison.cpu(drawtext) * 1e6 / frames,
                comparison.cpu(same) * 1e6 / frames);
    comparison.printRatio(same, drawtext, 1.0 / 8);
    comparison.printRatio(other, drawtext, std::nullopt);
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
