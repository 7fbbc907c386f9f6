#include "platform/ffmpeg/filters.h"

#include <array>
#include <cinttypes>
#include <cstdio>

#include "platform/ffmpeg/pixel_formats.h"

extern "C" {
#include <libavfilter/avfilter.h>
#include <libavutil/error.h>
}

namespace vidorra::ffmpeg_ext {
namespace {

// Later generations take the formats of a sink only before it is initialised, and under other names than
// earlier ones; a filter in front of the sink is the same on all of them.
int pin(AVFilterGraph& graph, AVFilterContext& sink, const char* filter, const char* arguments,
        AVFilterContext** end) {
    const int res =
        avfilter_graph_create_filter(end, avfilter_get_by_name(filter), "pinned", arguments, nullptr, &graph);
    return res < 0 ? res : avfilter_link(*end, 0, &sink, 0);
}

}  // namespace

int pinVideoSink(AVFilterGraph& graph, AVFilterContext& sink, AVPixelFormat format, AVFilterContext** end) {
    const char* name = pixelFormatName(format);
    if (name == nullptr) {
        return AVERROR(EINVAL);
    }
    std::array<char, 64> arguments{};
    std::snprintf(arguments.data(), arguments.size(), "pix_fmts=%s", name);
    return pin(graph, sink, "format", arguments.data(), end);
}

int pinAudioSink(AVFilterGraph& graph, AVFilterContext& sink, AVSampleFormat format, std::uint64_t layout,
                 int rate, AVFilterContext** end, AudioPin* failed) {
    const char* name = av_get_sample_fmt_name(format);
    if (name == nullptr) {
        *failed = AudioPin::SampleFormat;
        return AVERROR(EINVAL);
    }
    if (layout == 0) {
        *failed = AudioPin::ChannelLayout;
        return AVERROR(EINVAL);
    }
    if (rate <= 0) {
        *failed = AudioPin::SampleRate;
        return AVERROR(EINVAL);
    }
    std::array<char, 128> arguments{};
    std::snprintf(arguments.data(), arguments.size(),
                  "sample_fmts=%s:channel_layouts=0x%" PRIx64 ":sample_rates=%d", name, layout, rate);
    const int res = pin(graph, sink, "aformat", arguments.data(), end);
    if (res < 0) {
        *failed = AudioPin::SampleFormat;
    }
    return res;
}

}  // namespace vidorra::ffmpeg_ext
