#include "ffmpeg/filters.h"

#include <array>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "ffmpeg/pixel_formats.h"
#include "ffmpeg/versions.h"

extern "C" {
#include <libavfilter/avfilter.h>
#include <libavutil/error.h>
#include <libavutil/mem.h>
#include <libavutil/opt.h>
}

namespace vidorra::ffmpeg_ext {
namespace {

// Later versions take the formats of a sink only before it is initialised, and under other names than
// earlier ones. A filter before the sink works the same with all of them.
int pin(AVFilterGraph& graph, AVFilterContext& sink, const char* filter, const char* arguments,
        AVFilterContext** end) {
    const int res =
        avfilter_graph_create_filter(end, avfilter_get_by_name(filter), "pinned", arguments, nullptr, &graph);
    return res < 0 ? res : avfilter_link(*end, 0, &sink, 0);
}

// Whether an option takes a colour range: it lists "tv" among its values, or is one of the few without a
// list. The name alone does not tell, since other options are called "range" too.
bool takesRange(void* object, const AVOption& option) {
    const std::string_view name = option.name;
    if (name == "src_range" || name == "dst_range" || name == "color_ranges") {
        return true;
    }
    if (option.type == AV_OPT_TYPE_CONST || option.unit == nullptr) {
        return false;
    }
    return av_opt_find(object, "tv", option.unit, 0, 0) != nullptr;
}

bool setsRange(void* object) {
    for (const AVOption* option = nullptr; (option = av_opt_next(object, option)) != nullptr;) {
        if (takesRange(object, *option) && av_opt_is_set_to_default(object, option) == 0) {
            return true;
        }
    }
    return false;
}

}  // namespace

std::string rangeOfSource(AVColorRange range) {
#if HAVE_SOURCE_RANGE
    return ":range=" + std::to_string(static_cast<int>(range));
#else
    static_cast<void>(range);
    return "";
#endif
}

int keepRangeInScaling(AVFilterGraph& graph, AVColorRange range) {
#if HAVE_SOURCE_RANGE
    static_cast<void>(graph);
    static_cast<void>(range);
    return 0;
#else
    // Without a request the filter's output has limited range, whatever its input has.
    if (range != AVCOL_RANGE_JPEG) {
        return 0;
    }
    for (unsigned i = 0; i < graph.nb_filters; ++i) {
        AVFilterContext* filter = graph.filters[i];
        std::int64_t requested = 0;
        if (std::strcmp(filter->filter->name, "scale") != 0 ||
            av_opt_get_int(filter, "out_range", AV_OPT_SEARCH_CHILDREN, &requested) < 0 ||
            requested != AVCOL_RANGE_UNSPECIFIED) {
            continue;
        }
        const int res = av_opt_set_int(filter, "out_range", range, AV_OPT_SEARCH_CHILDREN);
        if (res < 0) {
            return res;
        }
    }
    // The description's options after "sws_flags=" are here. The last option of a name counts.
    std::string options = "out_range=full";
    if (graph.scale_sws_opts != nullptr && *graph.scale_sws_opts != '\0') {
        options.append(":").append(graph.scale_sws_opts);
    }
    av_freep(&graph.scale_sws_opts);
    graph.scale_sws_opts = av_strdup(options.c_str());
    return graph.scale_sws_opts != nullptr ? 0 : AVERROR(ENOMEM);
#endif
}

int pinVideoSink(AVFilterGraph& graph, AVFilterContext& sink, AVPixelFormat format, AVFilterContext** end) {
    const char* name = pixelFormatName(format);
    if (name == nullptr) {
        return AVERROR(EINVAL);
    }
    std::array<char, 64> arguments{};
    std::snprintf(arguments.data(), arguments.size(), "pix_fmts=%s", name);
    return pin(graph, sink, "format", arguments.data(), end);
}

bool asksForRange(const AVFilterGraph& graph) {
    for (unsigned i = 0; i < graph.nb_filters; ++i) {
        const AVFilterContext& filter = *graph.filters[i];
        if (filter.nb_inputs == 0 || filter.filter->priv_class == nullptr) {
            continue;
        }
        bool asks = setsRange(filter.priv);
        for (void* child = nullptr; !asks && (child = av_opt_child_next(filter.priv, child)) != nullptr;) {
            asks = setsRange(child);
        }
        if (asks) {
            return true;
        }
    }
    // The description's options after "sws_flags=".
    const char* options = graph.scale_sws_opts;
    return options != nullptr && std::strstr(options, "_range=") != nullptr;
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
