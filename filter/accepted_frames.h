#pragma once

struct AVFilterContext;
struct AVFrame;

namespace vidorra {

/// Whether a frame is one that the filter after a linked source can read. FFmpeg's sources accept pictures of
/// other sizes and formats, on which most filters then read out of bounds. They do look at samples; to look
/// here first tells a frame that was refused from one that failed inside the graph.
bool accepts(const AVFilterContext& source, const AVFrame& frame);

}  // namespace vidorra
