// How FFmpeg's function that formats a line is called: the linker replaces it with the one below.

#include <algorithm>
#include <cstdarg>
#include <string>
#include <vector>

#include "support/log_capture.h"
#include "vidorra/core/ffmpeg_log.h"

extern "C" {
#include <libavutil/log.h>
}

namespace {

struct Call {
    void* context;
    int level;
    std::string format;
    int size;
    bool zeroed;
    int printPrefix;
};

std::vector<Call> gCalls;

}  // namespace

extern "C" {
decltype(av_log_format_line2) __wrap_av_log_format_line2;
// Consumes its arguments, as a function may, and reports that the next line has no prefix.
int __wrap_av_log_format_line2(void* context, int level, const char* format, va_list args, char* line,
                               int size, int* printPrefix) {
    const bool zeroed = std::all_of(line, line + size, [](char byte) { return byte == 0; });
    gCalls.push_back({context, level, format, size, zeroed, *printPrefix});
    const std::string text = "first " + std::to_string(va_arg(args, int));
    std::copy(text.begin(), text.end(), line);
    *printPrefix = 0;
    return static_cast<int>(text.size());
}
}

namespace vidorra {
namespace {

using Line = test::LogCapture::Line;

class FFmpegLogCalls : public testing::Test {
protected:
    FFmpegLogCalls() {
        gCalls.clear();
        ffmpeg_enable_logging();
    }
    ~FFmpegLogCalls() override { av_log_set_callback(av_log_default_callback); }

    test::LogCapture mLog{6};
};

TEST_F(FFmpegLogCalls, EachLineGetsAZeroedBufferOf1024BytesAndAPrefix) {
    const AVClass* context = nullptr;
    for (int round = 0; round < 3; ++round) {
        av_log(&context, AV_LOG_WARNING, "%d", round);
    }
    ASSERT_EQ(gCalls.size(), 3U);
    for (const Call& call : gCalls) {
        EXPECT_EQ(call.context, &context);
        EXPECT_EQ(call.level, AV_LOG_WARNING);
        EXPECT_EQ(call.format, "%d");
        EXPECT_EQ(call.size, 1024);
        EXPECT_TRUE(call.zeroed);
        EXPECT_EQ(call.printPrefix, 1);
    }
    EXPECT_THAT(mLog.lines(),
                testing::ElementsAre(Line{2, "first 0"}, Line{2, "first 1"}, Line{2, "first 2"}));
}

TEST_F(FFmpegLogCalls, DroppedLinesAreNotMade) {
    av_log(nullptr, AV_LOG_TRACE, "%d", 1);
    av_log(nullptr, AV_LOG_DEBUG + 1, "%d", 1);
    EXPECT_THAT(gCalls, testing::IsEmpty());
    EXPECT_THAT(mLog.lines(), testing::IsEmpty());
}

// Like code that logs a line and then passes on the same arguments.
void logTwice(const char* format, ...) {
    va_list args;
    va_start(args, format);
    av_vlog(nullptr, AV_LOG_ERROR, format, args);
    av_vlog(nullptr, AV_LOG_WARNING, format, args);
    va_end(args);
}

TEST_F(FFmpegLogCalls, TheCallersArgumentsAreNotUsedUp) {
    logTwice("%d of %d", 7, 9);
    EXPECT_THAT(mLog.lines(), testing::ElementsAre(Line{1, "first 7"}, Line{2, "first 7"}));
}

}  // namespace
}  // namespace vidorra
