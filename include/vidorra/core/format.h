#pragma once

/// The only header that includes fmt. It gives fmt the text forms of FFmpeg's enumerations: without their
/// formatters in sight fmt would print them as numbers and say nothing. There is none for AVSampleFormat,
/// which stands as a number.
///
///     const std::string text = fmt::format("{} to {}", AV_PIX_FMT_NV12, AV_CODEC_ID_H264);

#include <fmt/format.h>
#if __has_include(<fmt/std.h>)
#include <fmt/std.h>
#else
// Older releases take a path by its stream operator. Whether a path stands in quotes depends on the release.
#include <fmt/ostream.h>
#endif

#include <string_view>

#include "vidorra/core/enum_text.h"

namespace vidorra {

/// A format string whose fields are checked against the arguments when it is compiled, where fmt can do that.
#if FMT_VERSION >= 80000
template <class... Args>
using FormatString = fmt::format_string<Args...>;
#else
template <class... Args>
using FormatString = fmt::string_view;
#endif

/// Base of formatters that print the text form of a value as a string, with a string's width, precision and
/// alignment.
template <class T>
struct TextFormatter : fmt::formatter<std::string_view> {
    template <class Context>
    auto format(const T& value, Context& context) const {
        using vidorra::to_string;
        // A copy, since older releases format through formatters that are not const.
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
