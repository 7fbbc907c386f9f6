#pragma once

#include <cstdint>

struct AVFrame;

namespace vidorra::ffmpeg_ext {

/// The duration of the packet that a frame came from, in the packet's unit; 0 when it is not known.
std::int64_t frameDuration(const AVFrame& frame);
void setFrameDuration(AVFrame& frame, std::int64_t duration);

}  // namespace vidorra::ffmpeg_ext
