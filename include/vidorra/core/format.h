#pragma once

/// The only header that includes fmt. It declares formatters for FFmpeg's enumerations: where they are not
/// declared, fmt silently prints numbers. AVSampleFormat has no formatter and is printed as a number.
///
///     const std::string text = fmt::format("{} to {}", AV_PIX_FMT_NV12, AV_CODEC_ID_H264);

#include <fmt/format.h>
#if __has_include(<fmt/std.h>)
#include <fmt/std.h>
#else
// Older releases print a path through its stream operator. Whether it is quoted depends on the release.
#include <fmt/ostream.h>
#endif

#include <string_view>

#include "vidorra/core/enum_text.h"

namespace vidorra {

/// A format string. Where fmt can do that, its fields are checked against the arguments at compile time.
#if FMT_VERSION >= 80000
template <class... Args>
using FormatString = fmt::format_string<Args...>;
#else
template <class... Args>
using FormatString = fmt::string_view;
#endif

/// A base for formatters that print the text form of a value, with the width, precision and alignment of a
/// string.
template <class T>
struct TextFormatter : fmt::formatter<std::string_view> {
    template <class Context>
    auto format(const T& value, Context& context) const {
        using vidorra::to_string;
        // A copy, since format() is not const in older releases.
        fmt::formatter<std::string_view> text = *this;
        return text.format(std::string_view(to_string(value)), context);
    }
};

}  // namespace vidorra

template <>
struct fmt::formatter<AVPixelFormat> : vidorra::TextFormatter<AVPixelFormat> {};
template <>
struct fmt::formatter<AVColorRange> : vidorra::TextFormatter<AVColorRange> {};
template <>
struct fmt::formatter<AVCodecID> : vidorra::TextFormatter<AVCodecID> {};
