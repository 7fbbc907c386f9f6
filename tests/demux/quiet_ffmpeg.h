#pragma once

extern "C" {
#include <libavutil/log.h>
}

namespace vidorra::test {

/// Keeps FFmpeg from writing to stderr the messages that a test expects for bad input.
class QuietFfmpeg {
public:
    QuietFfmpeg() : mLevel(av_log_get_level()) { av_log_set_level(AV_LOG_QUIET); }
    QuietFfmpeg(const QuietFfmpeg&) = delete;
    QuietFfmpeg& operator=(const QuietFfmpeg&) = delete;
    ~QuietFfmpeg() { av_log_set_level(mLevel); }

private:
    int mLevel;
};

}  // namespace vidorra::test
