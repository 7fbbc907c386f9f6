#pragma once

struct AVBufferRef;
struct AVFilterGraph;
struct AVFilterInOut;

namespace vidorra::ffmpeg_ext {

struct ParsedFilters {
    /// 0 or above, or a negative FFmpeg code.
    int code;
    /// Whether the failure is that a filter got no device. Some generations find that out in the
    /// configuration, where all of them are to report it.
    bool lacksDevice;
};

/// avfilter_graph_parse_ptr, with a device for every filter of the graph, those in front included. `device`
/// may be null, and stays the caller's. The lists are those of FFmpeg's function: the caller frees what is
/// left of them, also after a failure.
ParsedFilters parseFilters(AVFilterGraph& graph, const char* description, AVFilterInOut** inputs,
                           AVFilterInOut** outputs, AVBufferRef* device);

}  // namespace vidorra::ffmpeg_ext
