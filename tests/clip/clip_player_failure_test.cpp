// What a player does with sources that fail, and how it stops.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>
#include <filesystem>
#include <functional>
#include <future>
#include <stdexcept>
#include <thread>

#include "live_server.h"
#include "playing.h"
#include "support/log_capture.h"

extern "C" {
#include <libavutil/error.h>
}

namespace vidorra {
namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;
using test::kSoon;
using test::LiveServer;
using test::microseconds;
using State = PlayStatus::State;

std::string stream() {
    return test::fileContent(test::mediaFile(
        "stream.ts", {"-f", "lavfi", "-i", "testsrc2=s=64x48:r=25:d=2", "-c:v", "mpeg2video", "-b:v", "1M"}));
}

// Gives bytes, and then does something else.
class BadSource : public ByteSource {
public:
    BadSource(std::string bytes, std::function<void()> then)
        : mBytes(std::move(bytes)), mThen(std::move(then)) {}

    std::optional<std::size_t> read(std::uint8_t* target, std::size_t size) override {
        if (mPosition == mBytes.size()) {
            mThen();
            return std::nullopt;
        }
        const std::size_t count = std::min(size, mBytes.size() - mPosition);
        std::memcpy(target, mBytes.data() + mPosition, count);
        mPosition += count;
        return count;
    }

private:
    const std::string mBytes;
    const std::function<void()> mThen;
    std::size_t mPosition = 0;
};

// Runs something that has to end soon.
void expectSoon(const std::function<void()>& operation) {
    const auto start = steady_clock::now();
    operation();
    EXPECT_LT(steady_clock::now() - start, 5s);
}

// Waits until so many threads of destroyed players are left.
void expectThreads(std::size_t count) {
    const auto start = steady_clock::now();
    while (ClipPlayer::unfinishedThreads() != count && steady_clock::now() - start < kSoon) {
        std::this_thread::yield();
    }
    EXPECT_EQ(ClipPlayer::unfinishedThreads(), count);
}

TEST(ClipPlayerFailure, OfOpeningIsAStatus) {
    const test::LogCapture log;
    ClipPlayer player("/nowhere/clip.mp4");
    EXPECT_FALSE(player.waitUntil(State::Ready, kSoon));
    const PlayStatus status = player.status();
    EXPECT_EQ(status.state, State::Failed);
    EXPECT_EQ(status.error.code(), AVERROR(ENOENT));
    EXPECT_NE(status.message.find("/nowhere/clip.mp4"), std::string::npos) << status.message;
    EXPECT_NE(status.message.find("No such file"), std::string::npos) << status.message;
    EXPECT_TRUE(player.getVideoFrame(microseconds(0), kSoon).empty());
    EXPECT_TRUE(player.getAudioFrame(microseconds(0), kSoon).empty());
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(log.lines()[0].level, 2);
    EXPECT_NE(log.lines()[0].text.find(status.message), std::string::npos) << log.lines()[0].text;
}

TEST(ClipPlayerFailure, OfReadingComesAfterTheFramesThatWereRead) {
    const test::LogCapture log;
    ClipPlayer player(std::make_shared<BadSource>(stream(), [] { throw std::runtime_error("cable cut"); }));
    ASSERT_TRUE(player.waitUntil(State::Ready, kSoon));
    std::int64_t tick = 0;
    for (; tick < 50; ++tick) {
        const VideoFrame picture = player.getVideoFrame(microseconds(tick * 40000), kSoon);
        ASSERT_EQ(picture.timestamp().value, tick * 40000);
    }
    // Waits for the next one, so that the failure has happened then.
    EXPECT_EQ(player.getVideoFrame(microseconds(1999999), kSoon).timestamp().value, 1960000);
    EXPECT_EQ(player.status().message, "cable cut");
    EXPECT_EQ(player.status().error, AvError::Unknown);
    EXPECT_EQ(player.status().state, State::Ready) << "the last picture still shows";
    EXPECT_FALSE(player.getVideoFrame(microseconds(2000000)).empty());
    EXPECT_EQ(player.status().state, State::Failed);
}

TEST(ClipPlayerFailure, MayBeAnyException) {
    const test::LogCapture log;
    ClipPlayer player(std::make_shared<BadSource>("", [] { throw 42; }));
    EXPECT_TRUE(player.waitUntil(State::Failed, kSoon));
    EXPECT_EQ(player.status().message, "unknown exception");
}

TEST(ClipPlayerFailure, OfGarbage) {
    const test::LogCapture log;
    ClipPlayer player(std::make_shared<BadSource>(std::string(100000, 'x'), [] {}));
    EXPECT_TRUE(player.waitUntil(State::Failed, kSoon));
    EXPECT_EQ(player.status().error, AvError::InvalidData);
    EXPECT_NE(player.status().message.find("byte source"), std::string::npos);
}

TEST(ClipPlayerFailure, ATimeoutEndsTheWaitForAServer) {
    const test::LogCapture log;
    const LiveServer server(LiveServer::Manner::Stall, "");
    PlayOptions options;
    options.clip.openTimeout = 50ms;
    ClipPlayer player(server.url(), options);
    EXPECT_TRUE(player.waitUntil(State::Failed, kSoon));
    EXPECT_EQ(player.status().error.code(), AVERROR(ETIMEDOUT));
}

TEST(ClipPlayerReconnect, ContinuesOnTheClockOfTheCaller) {
    const test::LogCapture log;
    const LiveServer server(LiveServer::Manner::Cut, stream());
    PlayOptions options;
    options.reconnect = true;
    ClipPlayer player(server.url(), options);
    std::int64_t last = -1;
    for (std::int64_t tick = 0; tick < 50; ++tick) {
        last = player.getVideoFrame(microseconds(tick * 40000), kSoon).timestamp().value;
        ASSERT_EQ(last, tick * 40000);
    }
    // A clock that goes on through the outage, until a new picture comes.
    std::int64_t time = 2000000;
    const auto start = steady_clock::now();
    for (; last < 2000000 && steady_clock::now() - start < kSoon; time += 40000) {
        last = player.getVideoFrame(microseconds(time), 10ms).timestamp().value;
    }
    EXPECT_GE(last, 2000000);
    EXPECT_GE(player.status().counters.reconnections, 1U);
    EXPECT_GE(server.clients(), 2);
    // The gap before it is filled by the nearest picture, as any gap.
    for (time = last; time < last + 1000000; time += 40000) {
        const VideoFrame picture = player.getVideoFrame(microseconds(time + 1), kSoon);
        EXPECT_EQ(picture.timestamp().value, time);
        EXPECT_EQ(player.status().state, State::Ready);
    }
}

TEST(ClipPlayerReconnect, GoesOnUntilAServerAnswers) {
    const test::LogCapture log;
    std::string url;
    PlayOptions options;
    options.reconnect = true;
    { url = LiveServer(LiveServer::Manner::Stall, "").url(); }
    ClipPlayer player(url, options);
    EXPECT_TRUE(player.waitUntil(State::Reconnecting, kSoon));
    EXPECT_EQ(player.status().error.code(), AVERROR(ECONNREFUSED));
    const auto start = steady_clock::now();
    while (log.lines().size() < 3 && steady_clock::now() - start < kSoon) {
        EXPECT_FALSE(player.waitUntil(State::Ready, 10ms));
    }
    EXPECT_GE(steady_clock::now() - start, 100ms + 200ms - 50ms) << "pauses grow";
    EXPECT_FALSE(player.waitUntil(State::Failed, 0ms));
    expectSoon([&player] { player.stop(); });
    EXPECT_TRUE(player.waitUntil(State::Stopped, 0ms));
}

TEST(ClipPlayerStop, EndsEveryWait) {
    const LiveServer server(LiveServer::Manner::Stall, "");
    ClipPlayer player(server.url());
    auto picture =
        std::async(std::launch::async, [&] { return player.getVideoFrame(microseconds(0), 1h).empty(); });
    auto sound =
        std::async(std::launch::async, [&] { return player.getAudioFrame(microseconds(0), 1h).empty(); });
    auto ready = std::async(std::launch::async, [&] { return player.waitUntil(State::Ready, 1h); });
    EXPECT_EQ(picture.wait_for(50ms), std::future_status::timeout);
    expectSoon([&] {
        player.stop();
        EXPECT_TRUE(picture.get());
        EXPECT_TRUE(sound.get());
        EXPECT_FALSE(ready.get());
    });
    EXPECT_EQ(player.status().state, State::Stopped);
    player.stop();
}

TEST(ClipPlayerStop, GivesNothingAfterwards) {
    ClipPlayer player(test::clip());
    ASSERT_FALSE(player.getVideoFrame(microseconds(0), kSoon).empty());
    player.stop();
    EXPECT_TRUE(player.getVideoFrame(microseconds(40000), kSoon).empty());
    EXPECT_TRUE(player.getAudioFrame(microseconds(40000), kSoon).empty());
    EXPECT_EQ(player.status().bufferedBytes, 0U);
}

TEST(ClipPlayerStop, DoesNotWaitForASourceThatCannotBeInterrupted) {
    std::promise<void> inside;
    std::promise<void> release;
    auto source = std::make_shared<BadSource>("", [&] {
        inside.set_value();
        release.get_future().wait();
    });
    // Those of other tests end by themselves.
    expectThreads(0);
    auto player = std::make_unique<ClipPlayer>(std::move(source));
    inside.get_future().wait();
    expectSoon([&player] { player.reset(); });
    EXPECT_EQ(ClipPlayer::unfinishedThreads(), 1U);
    release.set_value();
    expectThreads(0);
}

struct Source {
    const char* name;
    LiveServer::Manner manner;
    bool hasContent;
};

class ClipPlayerDestructor : public testing::TestWithParam<Source> {};

// At moments from the connection on to the middle of playing.
TEST_P(ClipPlayerDestructor, IsPromptWhateverTheServerDoes) {
    const test::LogCapture log;
    const LiveServer server(GetParam().manner, GetParam().hasContent ? stream() : "");
    for (int moment = 0; moment < 12; ++moment) {
        PlayOptions options;
        options.reconnect = moment % 2 == 1;
        auto player = std::make_unique<ClipPlayer>(server.url(), options);
        EXPECT_FALSE(player->waitUntil(State::Stopped, std::chrono::milliseconds(moment * 3)));
        expectSoon([&player] { player.reset(); });
    }
}

INSTANTIATE_TEST_SUITE_P(Servers, ClipPlayerDestructor,
                         testing::Values(Source{"Silent", LiveServer::Manner::Stall, false},
                                         Source{"Stalling", LiveServer::Manner::Stall, true},
                                         Source{"Trickling", LiveServer::Manner::Trickle, true},
                                         Source{"Cutting", LiveServer::Manner::Cut, true},
                                         Source{"Garbage", LiveServer::Manner::Garbage, false}),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(ClipPlayerStop, EndsTheWaitForAFifoWithoutAWriter) {
    const std::string path = test::temporaryFolder() / "player.fifo";
    std::filesystem::remove(path);
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    auto player = std::make_unique<ClipPlayer>(path);
    EXPECT_FALSE(player->waitUntil(State::Buffering, 50ms));
    EXPECT_EQ(player->status().state, State::Opening);
    expectSoon([&player] { player.reset(); });
}

}  // namespace
}  // namespace vidorra
