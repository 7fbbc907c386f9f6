#include "vidorra/core/ffmpeg_error.h"

namespace vidorra {

FFmpegError::FFmpegError(AvError error, const std::string& message)
    : std::runtime_error(message + " FFmpeg AV_ERROR: " + error.toString()), mError(error) {}

FFmpegError::FFmpegError(AvError error) : std::runtime_error(error.toString()), mError(error) {}

}  // namespace vidorra
