#pragma once

struct AVFilterContext;
struct AVFrame;

namespace vidorra {

/// Whether the filter after a linked source can read a frame. FFmpeg's sources accept pictures of other
/// sizes and formats, on which most filters then read out of bounds. The sources do check samples; checking
/// them here first distinguishes a refused frame from one that failed inside the graph.
bool accepts(const AVFilterContext& source, const AVFrame& frame);

}  // namespace vidorra
