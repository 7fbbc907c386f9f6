#pragma once

struct AVFrame;

namespace vidorra {

/// Moves the samples of a frame into memory that FFmpeg aligns and pads, unless each plane is already
/// aligned and padded in the same way. FFmpeg's vector code in filters and encoders relies on that: it
/// crashes on other addresses, and processes whole groups of samples, past the last one. A frame without
/// samples is unchanged, and so is one in memory without references, which FFmpeg copies itself.
///
/// Returns 0, or a negative FFmpeg code, after which the frame is unchanged: AVERROR(EINVAL) for samples
/// that have no size or no memory.
[[nodiscard]] int alignSamples(AVFrame& frame);

}  // namespace vidorra
