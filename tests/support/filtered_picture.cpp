#include "support/filtered_picture.h"

#include <gtest/gtest.h>

extern "C" {
#include <libavfilter/avfilter.h>
#include <libavfilter/buffersink.h>
#include <libavutil/frame.h>
#include <libavutil/log.h>
}

namespace vidorra::test {
namespace {

void freeFrame(AVFrame* frame) {
    av_frame_free(&frame);
}

void freeGraph(AVFilterGraph* graph) {
    avfilter_graph_free(&graph);
}

}  // namespace

std::unique_ptr<AVFrame, void (*)(AVFrame*)> filteredPicture(
    const std::string& format, const std::vector<std::pair<std::string, std::string>>& filters) {
    const std::unique_ptr<AVFilterGraph, void (*)(AVFilterGraph*)> graph(avfilter_graph_alloc(), freeGraph);
    avfilter_graph_set_auto_convert(graph.get(), static_cast<unsigned>(AVFILTER_AUTO_CONVERT_NONE));
    AVFilterContext* last = nullptr;
    const auto add = [&](const std::string& name, const std::string& arguments) {
        AVFilterContext* next = nullptr;
        EXPECT_GE(avfilter_graph_create_filter(&next, avfilter_get_by_name(name.c_str()), nullptr,
                                               arguments.c_str(), nullptr, graph.get()),
                  0)
            << name << " " << arguments;
        if (last != nullptr) {
            EXPECT_EQ(avfilter_link(last, 0, next, 0), 0);
        }
        last = next;
    };
    for (const auto& [name, arguments] : filters) {
        add(name, arguments);
    }
    add("format", format);
    add("buffersink", "");
    const int level = av_log_get_level();
    av_log_set_level(AV_LOG_QUIET);
    const int configured = avfilter_graph_config(graph.get(), nullptr);
    av_log_set_level(level);
    std::unique_ptr<AVFrame, void (*)(AVFrame*)> frame(nullptr, freeFrame);
    if (configured >= 0) {
        frame.reset(av_frame_alloc());
        EXPECT_GE(av_buffersink_get_frame(last, frame.get()), 0);
    }
    return frame;
}

}  // namespace vidorra::test
