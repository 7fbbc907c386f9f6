#pragma once

struct AVFrame;

namespace vidorra {

/// Moves the samples of a frame into memory that FFmpeg aligns and pads by itself, unless each of its planes
/// is aligned and padded that way already. FFmpeg's vector code expects that of what goes into a filter graph
/// or an encoder: it crashes on other addresses, and works on whole groups of samples, past the last one.
/// A frame without samples is left alone, and so is one in memory without references, which FFmpeg copies
/// itself.
///
/// Gives 0, or a negative FFmpeg code, after which the frame is unchanged: AVERROR(EINVAL) for samples that
/// have no size or no memory.
[[nodiscard]] int alignSamples(AVFrame& frame);

}  // namespace vidorra
