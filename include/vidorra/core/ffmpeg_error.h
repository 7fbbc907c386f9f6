#pragma once

#include <stdexcept>
#include <string>

#include "vidorra/core/av_error.h"
#include "vidorra/core/export.h"

namespace vidorra {

/// A call of FFmpeg that failed where the library cannot go on. The message names the step. Why FFmpeg
/// refused, such as which filter of a description it does not know, stands in FFmpeg's log only, which goes
/// to stderr or where ffmpeg_enable_logging() sends it.
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
