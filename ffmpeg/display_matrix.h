#pragma once

struct AVStream;

namespace vidorra::ffmpeg_ext {

/// By how many degrees the pictures of a stream are to be turned clockwise to be seen upright: 0, 90, 180 or
/// 270, or what lies between, rounded. 0 where the stream does not say.
int rotation(const AVStream& stream);

}  // namespace vidorra::ffmpeg_ext
