#include "vidorra/core/ffmpeg_log.h"

#include <array>
#include <cstdarg>
#include <exception>
#include <optional>

#include "core/log.h"
#include "core/shown_url.h"

extern "C" {
#include <libavutil/log.h>
}

namespace {

std::optional<logger::Level> mapLevel(int level) {
    if (level <= AV_LOG_ERROR) {
        return vidorra::kLogError;
    }
    if (level <= AV_LOG_WARNING) {
        return vidorra::kLogWarning;
    }
    if (level <= AV_LOG_INFO) {
        return vidorra::kLogInfo;
    }
    if (level <= AV_LOG_DEBUG) {
        return vidorra::kLogSource;
    }
    return std::nullopt;
}

// Runs on any thread from which FFmpeg logs. It is thread-safe because it keeps no state between calls.
void ffmpeg_log_callback(void* ptr, int level, const char* format, va_list args) {
    // The bits above hold a colour.
    const int plainLevel = level & 0xff;
    const std::optional<logger::Level> mapped = mapLevel(plainLevel);
    if (!mapped) {
        return;
    }
    std::array<char, 1024> buffer{};
    va_list copy;
    va_copy(copy, args);
    int printPrefix = 1;
    av_log_format_line2(ptr, plainLevel, format, copy, buffer.data(), static_cast<int>(buffer.size()),
                        &printPrefix);
    va_end(copy);
    try {
        // FFmpeg names its sources by their whole URLs.
        logger::print(*mapped, "%s", vidorra::withoutPasswords(buffer.data()).c_str());
    } catch (const std::exception&) {
        // There is no memory for the line, and FFmpeg must not see exceptions.
    }
}

}  // namespace

void ffmpeg_enable_logging() {
    av_log_set_callback(ffmpeg_log_callback);
}
