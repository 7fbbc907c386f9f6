#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <future>
#include <string>

#include "clips.h"
#include "support/loopback_server.h"
#include "vidorra/core/ffmpeg_error.h"

extern "C" {
#include <libavutil/error.h>
}

namespace vidorra {
namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;

// Long enough for any machine, and far below what the sources would wait.
constexpr auto kSoon = 5s;

std::string fifo(const std::string& name) {
    std::string path = test::temporaryFolder() / name;
    EXPECT_EQ(mkfifo(path.c_str(), 0600), 0);
    return path;
}

// The begin of a transport stream, of which more is to come.
std::string beginOfAStream() {
    const std::string path = test::mediaFile(
        "begin.ts", {"-f", "lavfi", "-i", "testsrc2=s=64x48:r=25:d=8", "-c:v", "mpeg2video", "-b:v", "2M"});
    return test::fileContent(path);
}

ClipOptions withoutTimeouts() {
    ClipOptions options;
    options.openTimeout = options.readTimeout = 0s;
    return options;
}

void expectCode(int code, ClipReader& reader) {
    try {
        reader.open();
        ADD_FAILURE() << "nothing was thrown";
    } catch (const FFmpegError& error) {
        EXPECT_EQ(error.error().code(), code) << error.what();
    }
}

TEST(ClipReaderStop, EndsTheWaitForASilentServer) {
    const test::LoopbackServer server("");
    ClipReader reader(server.url(), withoutTimeouts());
    auto opening = std::async(std::launch::async, [&reader] { expectCode(AVERROR_EXIT, reader); });
    EXPECT_EQ(opening.wait_for(100ms), std::future_status::timeout);
    const auto start = steady_clock::now();
    reader.stop();
    opening.get();
    EXPECT_LT(steady_clock::now() - start, kSoon);
    EXPECT_TRUE(reader.stopped());
}

TEST(ClipReaderStop, EndsTheWaitForMoreOfAStream) {
    const test::LoopbackServer server(beginOfAStream());
    ClipReader reader(server.url(), withoutTimeouts());
    std::atomic<int> frames{0};
    auto reading = std::async(std::launch::async, [&] {
        while (reader.read()) {
            ++frames;
        }
    });
    while (frames == 0 && reading.wait_for(1ms) == std::future_status::timeout) {
    }
    EXPECT_GT(frames, 0);
    EXPECT_EQ(reading.wait_for(300ms), std::future_status::timeout) << "nobody has said that it ends";
    const auto start = steady_clock::now();
    reader.stop();
    reading.get();
    EXPECT_LT(steady_clock::now() - start, kSoon);
    EXPECT_FALSE(reader.read());
}

TEST(ClipReaderStop, EndsTheWaitForAFifoWithoutAWriter) {
    ClipReader reader(fifo("silent.fifo"), withoutTimeouts());
    auto opening = std::async(std::launch::async, [&reader] { return static_cast<bool>(reader.read()); });
    EXPECT_EQ(opening.wait_for(100ms), std::future_status::timeout);
    const auto start = steady_clock::now();
    reader.stop();
    EXPECT_FALSE(opening.get());
    EXPECT_LT(steady_clock::now() - start, kSoon);
}

TEST(ClipReaderStop, BeforeTheFirstCallOpensNothing) {
    ClipReader reader(test::clip());
    reader.stop();
    EXPECT_FALSE(reader.read());
    expectCode(AVERROR_EXIT, reader);
    EXPECT_THROW(reader.seek(test::microseconds(0)), FFmpegError);
}

TEST(ClipReaderStop, EndsALoop) {
    ClipOptions options;
    options.passes = 0;
    ClipReader reader(test::clip(), options);
    auto reading = std::async(std::launch::async, [&reader] {
        while (reader.read()) {
        }
    });
    EXPECT_EQ(reading.wait_for(50ms), std::future_status::timeout);
    reader.stop();
    reading.get();
}

TEST(ClipReaderTimeout, EndsOpening) {
    const test::LoopbackServer server("");
    ClipOptions options;
    options.openTimeout = 100ms;
    ClipReader reader(server.url(), options);
    const auto start = steady_clock::now();
    expectCode(AVERROR(ETIMEDOUT), reader);
    EXPECT_LT(steady_clock::now() - start, kSoon);
    EXPECT_GE(steady_clock::now() - start, 100ms);
}

TEST(ClipReaderTimeout, EndsTheOpeningOfAFifo) {
    ClipOptions options;
    options.openTimeout = 100ms;
    ClipReader reader(fifo("late.fifo"), options);
    const auto start = steady_clock::now();
    expectCode(AVERROR(ETIMEDOUT), reader);
    EXPECT_LT(steady_clock::now() - start, kSoon);
}

TEST(ClipReaderTimeout, EndsReadingAfterTheFramesThatAreThere) {
    const test::LoopbackServer server(beginOfAStream());
    ClipOptions options;
    options.readTimeout = 200ms;
    ClipReader reader(server.url(), options);
    int frames = 0;
    try {
        while (reader.read()) {
            ++frames;
        }
        ADD_FAILURE() << "nothing was thrown";
    } catch (const FFmpegError& error) {
        EXPECT_EQ(error.error().code(), AVERROR(ETIMEDOUT)) << error.what();
    }
    EXPECT_GT(frames, 150);
}

}  // namespace
}  // namespace vidorra
