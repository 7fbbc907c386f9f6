#include "vidorra/filter/filter_graph.h"

#include <cstdint>
#include <new>
#include <stdexcept>
#include <utility>

#include "core/log.h"
#include "ffmpeg/channels.h"
#include "ffmpeg/filter_parsing.h"
#include "ffmpeg/filters.h"
#include "ffmpeg/pixel_formats.h"
#include "filter/accepted_frames.h"
#include "picture/aligned_samples.h"
#include "vidorra/core/format.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavfilter/avfilter.h>
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
#include <libavutil/frame.h>
#include <libavutil/mem.h>
}

namespace vidorra {
namespace {

using GraphPtr = std::unique_ptr<AVFilterGraph, void (*)(AVFilterGraph*)>;

void freeGraph(AVFilterGraph* graph) {
    avfilter_graph_free(&graph);
}

GraphPtr noGraph() {
    return {nullptr, freeGraph};
}

GraphPtr newGraph() {
    GraphPtr graph(avfilter_graph_alloc(), freeGraph);
    if (graph == nullptr) {
        throw std::bad_alloc();
    }
    return graph;
}

struct Elements {
    const AVFilter* source;
    const AVFilter* sink;
};

Elements findElements(const char* source, const char* sink, char kind) {
    const Elements elements{avfilter_get_by_name(source), avfilter_get_by_name(sink)};
    if (elements.source == nullptr || elements.sink == nullptr) {
        throw std::runtime_error(fmt::format("filtering source or sink element not found ({})", kind));
    }
    return elements;
}

AVFilterContext* createFilter(AVFilterGraph& graph, const AVFilter* filter, const char* name,
                              const char* arguments, const char* failureText) {
    AVFilterContext* context = nullptr;
    AvRes(avfilter_graph_create_filter(&context, filter, name, arguments, nullptr, &graph))
        .throwIfError("{}", failureText);
    return context;
}

// One open end of the description, with the name that the description may use for it.
struct ListDeleter {
    void operator()(AVFilterInOut* list) const { avfilter_inout_free(&list); }
};
using ListPtr = std::unique_ptr<AVFilterInOut, ListDeleter>;

ListPtr openEnd(const char* name, AVFilterContext* filter) {
    ListPtr end(avfilter_inout_alloc());
    if (end != nullptr) {
        end->name = av_strdup(name);
        end->filter_ctx = filter;
        end->pad_idx = 0;
        end->next = nullptr;
    }
    if (end == nullptr || end->name == nullptr) {
        throw std::bad_alloc();
    }
    return end;
}

// Puts the filters of the description between the source and the end before the sink.
void parse(AVFilterGraph& graph, const std::string& spec, AVFilterContext* source, AVFilterContext* end,
           AVBufferRef* hwDevice) {
    AVFilterInOut* outputs = openEnd("in", source).release();
    AVFilterInOut* inputs = nullptr;
    ffmpeg_ext::ParsedFilters parsed{AVERROR(ENOMEM), false};
    try {
        inputs = openEnd("out", end).release();
        parsed = ffmpeg_ext::parseFilters(graph, spec.c_str(), &inputs, &outputs, hwDevice);
    } catch (...) {
        avfilter_inout_free(&outputs);
        throw;
    }
    avfilter_inout_free(&inputs);
    avfilter_inout_free(&outputs);
    AvRes(parsed.code)
        .throwIfError("{}", parsed.lacksDevice ? "Cannot configure filter" : "Cannot parse filter spec");
}

void configure(AVFilterGraph& graph) {
    AvRes(avfilter_graph_config(&graph, nullptr)).throwIfError("Cannot configure filter");
}

// The range that pictures have between the source and the sink. If the codec does not specify one, this is
// full range, in which the conversion to RGB and back loses no value of either range.
AVColorRange workingRange(const AVCodecContext& context) {
    return context.color_range == AVCOL_RANGE_MPEG ? AVCOL_RANGE_MPEG : AVCOL_RANGE_JPEG;
}

// The range label that pictures have between the source and the sink, stored in the graph's field for its
// user. Unspecified if the pictures keep their own.
void setRangeLabel(AVFilterGraph& graph, AVColorRange range) {
    // NOLINTNEXTLINE(performance-no-int-to-ptr): the pointer is never dereferenced.
    graph.opaque = reinterpret_cast<void*>(static_cast<std::intptr_t>(range));
}

AVColorRange rangeLabel(const AVFilterGraph& graph) {
    return static_cast<AVColorRange>(reinterpret_cast<std::intptr_t>(graph.opaque));
}

// More waiting frames than the first number are logged; as many as the second number are an error.
constexpr std::size_t kManyWaiting = 50;
constexpr std::size_t kMostWaiting = 250;

}  // namespace

FilterGraphBase::FilterGraphBase(std::unique_ptr<AVFilterGraph, void (*)(AVFilterGraph*)> graph) noexcept
    : mGraph(std::move(graph)) {}

AvRes FilterGraphBase::filterFrame(std::unique_ptr<AVFrame, void (*)(AVFrame*)>& frame) {
    if (mGraph == nullptr) {
        return 0;
    }
    // The frame is released in any case.
    AvPtr<AVFrame> input = std::move(frame);
    if (!mFailure.ok) {
        return mFailure;
    }
    if (mSource == nullptr || mSink == nullptr || (input != nullptr && !accepts(*mSource, *input))) {
        return AvError::InvalidArgument;
    }
    // Steps whose failure does not harm the graph come first.
    AvPtr<AVFrame> output = makeAvPtr<AVFrame>();
    if (output == nullptr) {
        return AvError::OutOfMemory;
    }
    if (const AvRes aligned = input != nullptr ? alignSamples(*input) : 0; !aligned.ok) {
        return aligned;
    }
    const AVColorRange label = rangeLabel(*mGraph);
    if (input != nullptr) {
        mOwnRange = input->color_range;
        if (label != AVCOL_RANGE_UNSPECIFIED) {
            input->color_range = label;
        }
    }
    AvRes res = av_buffersrc_add_frame_flags(mSource, input.get(), AV_BUFFERSRC_FLAG_PUSH);
    input.reset();
    if (res.ok) {
        res = takeFiltered(output);
    }
    return give(res, output, frame);
}

AvRes FilterGraphBase::receiveFrame(std::unique_ptr<AVFrame, void (*)(AVFrame*)>& frame) {
    frame.reset();
    if (mGraph == nullptr) {
        return AvError::Again;
    }
    if (!mFailure.ok) {
        return mFailure;
    }
    if (mSink == nullptr) {
        return AvError::InvalidArgument;
    }
    AvPtr<AVFrame> output = makeAvPtr<AVFrame>();
    if (output == nullptr) {
        return AvError::OutOfMemory;
    }
    const AvRes res = takeFiltered(output);
    return give(res, output, frame);
}

AvRes FilterGraphBase::give(const AvRes& res, AvPtr<AVFrame>& output, AvPtr<AVFrame>& frame) {
    if (!res.ok) {
        return res.error == AvError::Again ? res : giveUp(res);
    }
    const AVColorRange label = rangeLabel(*mGraph);
    // The output may be an earlier picture, but the pictures of one stream have one range.
    if (label != AVCOL_RANGE_UNSPECIFIED &&
        (output->color_range == label || output->color_range == AVCOL_RANGE_UNSPECIFIED)) {
        output->color_range = mOwnRange;
    }
    output->pict_type = AV_PICTURE_TYPE_NONE;
    frame = std::move(output);
    return 0;
}

// Replaces the empty frame with the next filtered one.
AvRes FilterGraphBase::takeFiltered(AvPtr<AVFrame>& output) {
    const std::size_t wanted = mWaiting.size() + 1;
    if (mWaiting.empty()) {
        const AvRes received = av_buffersink_get_frame(mSink, output.get());
        if (!received.ok) {
            return received;
        }
    } else {
        output = std::move(mWaiting.front());
        mWaiting.erase(mWaiting.begin());
    }
    return collectWaiting(wanted);
}

// Takes the frames that are waiting in the sink, which does not tell their number. Some filters hold frames
// until they are requested, so frames are requested up to `wanted`, one more than before the call. Without
// that limit some filters would give frames without end.
AvRes FilterGraphBase::collectWaiting(std::size_t wanted) {
    while (mWaiting.size() < kMostWaiting) {
        AvPtr<AVFrame> frame = makeAvPtr<AVFrame>();
        if (frame == nullptr) {
            // They are taken with the next frame.
            return 0;
        }
        const int flags = mWaiting.size() < wanted ? 0 : AV_BUFFERSINK_FLAG_NO_REQUEST;
        const AvRes received = av_buffersink_get_frame_flags(mSink, frame.get(), flags);
        if (!received.ok) {
            // The end is reported after the last frame.
            return received.error == AvError::Again || received.error == AvError::Eof ? 0 : received;
        }
        mWaiting.push_back(std::move(frame));
        if (mWaiting.size() > kManyWaiting && !mHasWarned) {
            mHasWarned = true;
            logger::log(kLogWarning, "FilterGraph: ")
                << "more than " << kManyWaiting
                << " filtered frames wait: the filters give more frames than they"
                << " get. " << kMostWaiting << " waiting frames are an error.";
        }
    }
    return AvError::OutOfMemory;
}

// After a failure inside the graph the next frame would crash it.
AvRes FilterGraphBase::giveUp(const AvRes& failure) {
    mFailure = failure;
    mWaiting.clear();
    mSource = nullptr;
    mSink = nullptr;
    while (mGraph->nb_filters > 0) {
        avfilter_free(mGraph->filters[0]);
    }
    return failure;
}

FilterGraphVideo::FilterGraphVideo() noexcept : FilterGraphBase(noGraph()) {}

FilterGraphVideo::FilterGraphVideo(const std::string& spec, AVCodecContext& context, AVBufferRef* hwDevice,
                                   AVPixelFormat pixelFormat)
    : FilterGraphBase(newGraph()) {
    if (context.codec_type != AVMEDIA_TYPE_VIDEO) {
        throw std::runtime_error("Only AVMEDIA_TYPE_VIDEO codec type is supported!");
    }
    mWaiting.reserve(kMostWaiting);
    const Elements elements = findElements("buffer", "buffersink", 'V');
    // Not the format of the context, which is the device's if the graph uploads to a device.
    const char* formatName = ffmpeg_ext::pixelFormatName(pixelFormat);
    const AVColorRange range = workingRange(context);
    const std::string arguments = fmt::format(
        "video_size={}x{}:pix_fmt={}:time_base={}/{}:pixel_aspect={}/{}{}", context.width, context.height,
        formatName != nullptr ? formatName : "yuv420p", context.time_base.num, context.time_base.den,
        context.sample_aspect_ratio.num, context.sample_aspect_ratio.den, ffmpeg_ext::rangeOfSource(range));
    mSource =
        createFilter(*mGraph, elements.source, "in", arguments.c_str(), "Cannot create buffer source (V)");
    mSink = createFilter(*mGraph, elements.sink, "out", nullptr, "Cannot create buffer sink (V)");
    AVFilterContext* end = nullptr;
    AvRes(ffmpeg_ext::pinVideoSink(*mGraph, *mSink, context.pix_fmt, &end))
        .throwIfError("Cannot set output pixel format");
    parse(*mGraph, spec, mSource, end, hwDevice);
    // A description that handles ranges itself must see the pictures' own ranges.
    setRangeLabel(*mGraph, ffmpeg_ext::asksForRange(*mGraph) ? AVCOL_RANGE_UNSPECIFIED : range);
    AvRes(ffmpeg_ext::keepRangeInScaling(*mGraph, range)).throwIfError("Cannot configure filter");
    configure(*mGraph);
}

FilterGraphAudio::FilterGraphAudio() noexcept : FilterGraphBase(noGraph()) {}

FilterGraphAudio::FilterGraphAudio(const std::string& spec, AVCodecContext& context)
    : FilterGraphBase(newGraph()) {
    if (context.codec_type != AVMEDIA_TYPE_AUDIO) {
        throw std::runtime_error("Only AVMEDIA_TYPE_AUDIO codec type is supported!");
    }
    mWaiting.reserve(kMostWaiting);
    const Elements elements = findElements("abuffer", "abuffersink", 'A');
    const std::uint64_t layout = ffmpeg_ext::channelMask(context);
    std::string arguments = fmt::format("time_base={}/{}:sample_rate={}:sample_fmt=", context.time_base.num,
                                        context.time_base.den, context.sample_rate);
    // Without a name the arguments end here, and the source refuses them.
    if (const char* formatName = av_get_sample_fmt_name(context.sample_fmt)) {
        arguments += fmt::format("{}:channel_layout=0x{:x}", formatName, layout);
    }
    mSource =
        createFilter(*mGraph, elements.source, "in", arguments.c_str(), "Cannot create buffer source (A)");
    mSink = createFilter(*mGraph, elements.sink, "out", nullptr, "Cannot create buffer sink (A)");
    AVFilterContext* end = nullptr;
    ffmpeg_ext::AudioPin failed = ffmpeg_ext::AudioPin::SampleFormat;
    const AvRes pinned = ffmpeg_ext::pinAudioSink(*mGraph, *mSink, context.sample_fmt, layout,
                                                  context.sample_rate, &end, &failed);
    switch (failed) {
    case ffmpeg_ext::AudioPin::SampleFormat:
        pinned.throwIfError("Cannot set output sample format");
        break;
    case ffmpeg_ext::AudioPin::ChannelLayout:
        pinned.throwIfError("Cannot set output channel layout");
        break;
    case ffmpeg_ext::AudioPin::SampleRate:
        pinned.throwIfError("Cannot set output sample rate");
        break;
    }
    parse(*mGraph, spec, mSource, end, nullptr);
    configure(*mGraph);
}

}  // namespace vidorra
