#pragma once

struct AVCodecContext;

namespace vidorra::ffmpeg_ext {

/// Sets an option of a codec context, or of its codec, by name; returns 0 or the error of av_opt_set. The
/// options for channels work with every FFmpeg version:
///
/// - "ac", a number of channels. It keeps a mask with as many channels and drops any other. A negative
///   number is AVERROR(ERANGE).
/// - "channel_layout", a mask as a number or by name, which also sets the number of channels. It is ignored
///   when "ac" has set another number, and 0 unsets it.
/// - "ch_layout", by name, or a number of channels such as "6 channels".
int setCodecOption(AVCodecContext& context, const char* name, const char* value);

}  // namespace vidorra::ffmpeg_ext
