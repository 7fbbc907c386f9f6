#pragma once

#include "logger/logger.h"

extern "C" {
#include <libavutil/log.h>
}

namespace vidorra::fuzz {

/// Keeps refused inputs from filling the terminal: FFmpeg logs nothing, and the library's lines are built,
/// at all levels, and dropped.
inline void silence() {
    static const bool done = [] {
        av_log_set_level(AV_LOG_QUIET);
        logger::setLevel(logger::Level::Trace);
        logger::setSink([](logger::Level, std::string_view) {});
        return true;
    }();
    static_cast<void>(done);
}

}  // namespace vidorra::fuzz
