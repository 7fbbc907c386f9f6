#pragma once

#include <iosfwd>
#include <string>
#include <utility>

#include "vidorra/core/av_error.h"
#include "vidorra/core/export.h"
#include "vidorra/core/ffmpeg_error.h"
#include "vidorra/core/format.h"

namespace vidorra {

/// The result of one FFmpeg call. A returned value of 0 or above is a success; the value itself is not kept.
///
///     const AvRes res = encoder.sendFrame(frame);
///     if (!res.ok && res.error != AvError::Again) { ... }
///     AvRes(avformat_write_header(muxer, nullptr)).throwIfError("cannot begin {}", path);
///
/// Threads: a plain value.
struct [[nodiscard]] AvRes {
    /// The code of a failure, 0 for a success.
    AvError error{0};
    bool ok = true;

    /// From the value that an FFmpeg function returned.
    AvRes(int returned) noexcept : error(returned < 0 ? returned : 0), ok(returned >= 0) {}

    /// A failure with this error; an error whose code is not negative is a success.
    AvRes(AvError failure) noexcept : AvRes(failure.code()) {}

    /// Does nothing after a success. After a failure throws FFmpegError with the error and the formatted
    /// message.
    template <class... Args>
    void throwIfError(FormatString<Args...> format, Args&&... args) const {
        if (!ok) {
            raise(fmt::format(format, std::forward<Args>(args)...));
        }
    }

private:
    [[noreturn]] VIDORRA_API void raise(const std::string& message) const;
};

/// "no error", or the text of the error.
[[nodiscard]] VIDORRA_API std::string to_string(const AvRes& res);
VIDORRA_API std::ostream& operator<<(std::ostream& stream, const AvRes& res);

}  // namespace vidorra

template <>
struct fmt::formatter<vidorra::AvRes> : vidorra::TextFormatter<vidorra::AvRes> {};
