#pragma once

#include <string>
#include <utility>

#include "logger/logger.h"
#include "vidorra/core/format.h"

namespace vidorra {

/// The levels of the library's lines. They are numbers, because each logger chooses its own names for them.
inline constexpr auto kLogError = static_cast<logger::Level>(1);
inline constexpr auto kLogWarning = static_cast<logger::Level>(2);
inline constexpr auto kLogInfo = static_cast<logger::Level>(4);
inline constexpr auto kLogSource = static_cast<logger::Level>(5);
inline constexpr auto kLogDebug = static_cast<logger::Level>(5);
inline constexpr auto kLogCodec = static_cast<logger::Level>(6);

/// Logs a formatted line. Formats nothing when the level is disabled.
template <class... Args>
void logFormatted(logger::Level level, const std::string& prefix, FormatString<Args...> format,
                  Args&&... args) {
    if (logger::MessageOstream message = logger::log(level, prefix)) {
        message << fmt::format(format, std::forward<Args>(args)...);
    }
}

}  // namespace vidorra
