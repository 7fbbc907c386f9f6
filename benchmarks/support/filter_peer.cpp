#include "support/filter_peer.h"

#include <fmt/format.h>

#include <stdexcept>
#include <utility>

extern "C" {
#include <libavfilter/avfilter.h>
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
#include <libavutil/buffer.h>
#include <libavutil/frame.h>
#include <libavutil/mem.h>
}

namespace vidorra::bench {
namespace {

void check(int result, const char* what) {
    if (result < 0) {
        throw std::runtime_error(what);
    }
}

// An open end of a graph's description, in the form that avfilter_graph_parse_ptr() needs.
AVFilterInOut* openEnd(const std::string& name, AVFilterContext* filter, AVFilterInOut* next) {
    AVFilterInOut* end = avfilter_inout_alloc();
    end->name = av_strdup(name.c_str());
    end->filter_ctx = filter;
    end->pad_idx = 0;
    end->next = next;
    return end;
}

}  // namespace

FilterPeer::FilterPeer(const std::string& filters, std::vector<Input> inputs)
    : mInputs(std::move(inputs)), mGraph(avfilter_graph_alloc()), mFrame(av_frame_alloc()) {
    mGraph->nb_threads = 1;
    mGraph->thread_type = 0;
    AVFilterInOut* sources = nullptr;
    for (std::size_t i = 0; i < mInputs.size(); ++i) {
        const Input& input = mInputs[i];
        const std::string name = fmt::format("in{}", i);
        const std::string arguments =
            fmt::format("video_size={}x{}:pix_fmt={}:time_base=1/25:pixel_aspect=1/1", input.width,
                        input.height, static_cast<int>(input.format));
        AVFilterContext* source = nullptr;
        check(avfilter_graph_create_filter(&source, avfilter_get_by_name("buffer"), name.c_str(),
                                           arguments.c_str(), nullptr, mGraph),
              "no source of a filter graph");
        mSources.push_back(source);
        sources = openEnd(name, source, sources);
    }
    check(avfilter_graph_create_filter(&mSink, avfilter_get_by_name("buffersink"), "out", nullptr, nullptr,
                                       mGraph),
          "no sink of a filter graph");
    AVFilterInOut* sink = openEnd("out", mSink, nullptr);
    const std::string description = filters + "[out]";
    check(avfilter_graph_parse_ptr(mGraph, description.c_str(), &sink, &sources, nullptr), filters.c_str());
    avfilter_inout_free(&sink);
    avfilter_inout_free(&sources);
    check(avfilter_graph_config(mGraph, nullptr), filters.c_str());
}

FilterPeer::~FilterPeer() {
    av_frame_free(&mFrame);
    avfilter_graph_free(&mGraph);
}

void FilterPeer::run(const std::vector<Planes>& pictures, const std::function<void(const AVFrame&)>& look) {
    for (std::size_t i = 0; i < mSources.size(); ++i) {
        const Planes& planes = pictures.at(i);
        mFrame->format = mInputs[i].format;
        mFrame->width = mInputs[i].width;
        mFrame->height = mInputs[i].height;
        mFrame->pts = mTime;
        for (std::size_t plane = 0; plane < planes.data.size(); ++plane) {
            mFrame->data[plane] = planes.data[plane];
            mFrame->linesize[plane] = planes.linesize[plane];
        }
        // The buffer represents the memory of all planes. Its only reference makes the frame writable.
        mFrame->buf[0] = av_buffer_create(
            planes.data[0], 1, [](void*, std::uint8_t*) {}, nullptr, 0);
        check(av_buffersrc_add_frame_flags(mSources[i], mFrame, 0), "a filter graph takes no picture");
    }
    ++mTime;
    check(av_buffersink_get_frame(mSink, mFrame), "a filter graph gives no picture");
    if (look) {
        look(*mFrame);
    }
    av_frame_unref(mFrame);
}

}  // namespace vidorra::bench
