#pragma once

struct AVCodecContext;

namespace vidorra::ffmpeg_ext {

/// Sets an option of a codec context, or of its codec, by name; gives 0 or what av_opt_set gives. The options
/// for channels are known on every generation:
///
/// - "ac", a number of channels. It keeps a mask that has as many and drops another one. A negative number is
///   AVERROR(ERANGE).
/// - "channel_layout", a mask as a number or by name, which gives the number of channels too. It is passed
///   over when "ac" has set another number, and 0 unsets it.
/// - "ch_layout", by name, or a number of channels such as "6 channels".
int setCodecOption(AVCodecContext& context, const char* name, const char* value);

}  // namespace vidorra::ffmpeg_ext
