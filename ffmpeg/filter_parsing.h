#pragma once

struct AVBufferRef;
struct AVFilterGraph;
struct AVFilterInOut;

namespace vidorra::ffmpeg_ext {

struct ParsedFilters {
    /// 0 or above, or a negative FFmpeg code.
    int code;
    /// Whether the failure is that a filter got no device. Some versions detect that only during
    /// configuration, so with all versions the failure is reported there.
    bool lacksDevice;
};

/// avfilter_graph_parse_ptr, with a device for every filter of the graph, including those that exist
/// already. `device` may be null, and still belongs to the caller. The lists are those of FFmpeg's function:
/// the caller frees what remains of them, even after a failure.
ParsedFilters parseFilters(AVFilterGraph& graph, const char* description, AVFilterInOut** inputs,
                           AVFilterInOut** outputs, AVBufferRef* device);

}  // namespace vidorra::ffmpeg_ext
