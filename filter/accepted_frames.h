#pragma once

struct AVFilterContext;
struct AVFrame;

namespace vidorra {

/// Whether a frame is one that the filter behind a linked source can read. Sources let pictures of another
/// size or format pass, behind which most filters read wrong memory; they look at samples themselves.
bool accepts(const AVFilterContext& source, const AVFrame& frame);

}  // namespace vidorra
