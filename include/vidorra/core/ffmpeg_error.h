#pragma once

#include <stdexcept>
#include <string>

#include "vidorra/core/av_error.h"
#include "vidorra/core/export.h"

namespace vidorra {

/// A failed FFmpeg call after which the library cannot continue. The message names the step. Only FFmpeg's
/// log says why it failed, such as which filter of a description is unknown. That log is written to stderr,
/// or to the logger after ffmpeg_enable_logging().
///
///     try {
///         const VideoEncoder encoder(config);
///     } catch (const FFmpegError& error) {
///         if (error.error() == AvError::OptionNotFound) { ... }
///     }
class VIDORRA_API FFmpegError : public std::runtime_error {
public:
    /// what() is the message, " FFmpeg AV_ERROR: " and the text of the error.
    FFmpegError(AvError error, const std::string& message);

    /// what() is the text of the error.
    explicit FFmpegError(AvError error);

    [[nodiscard]] AvError error() const noexcept { return mError; }

private:
    AvError mError;
};

}  // namespace vidorra
