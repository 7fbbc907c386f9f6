#include "clip/play_buffer.h"

#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <utility>

extern "C" {
#include <libavutil/buffer.h>
}

namespace vidorra {
namespace {

using namespace std::chrono_literals;
using State = PlayStatus::State;

Timestamp milliseconds(std::int64_t count) {
    return {Timebase(), count * 1000};
}

ClipFrame clipFrame(VideoFrame picture) {
    ClipFrame frame;
    frame.content = std::move(picture);
    frame.duration = milliseconds(40);
    return frame;
}

ClipFrame picture(std::int64_t time) {
    return clipFrame(
        {Picture(Size{16, 16}, AV_PIX_FMT_GRAY8, AVCOL_RANGE_JPEG, 1), milliseconds(time), Frame::NoFlags});
}

// A picture that does something when it is released.
ClipFrame picture(std::int64_t time, std::function<void()>& atEnd) {
    constexpr int kBytes = 256;
    AVBufferRef* ref = av_buffer_create(
        static_cast<std::uint8_t*>(av_malloc(kBytes)), kBytes,
        [](void* action, std::uint8_t* data) {
            (*static_cast<std::function<void()>*>(action))();
            av_free(data);
        },
        &atEnd, 0);
    std::uint8_t* planes[4] = {ref->data};
    const int linesize[4] = {16};
    MemBuffer buffer(&ref);
    return clipFrame(
        {Picture(std::move(buffer), Size{16, 16}, planes, linesize, AV_PIX_FMT_GRAY8, AVCOL_RANGE_JPEG),
         milliseconds(time), Frame::NoFlags});
}

ClipFrame sound(std::int64_t time) {
    AudioBuffer samples(0x4, AV_SAMPLE_FMT_S16);
    samples.setSampleRate(8000);
    samples.resize(320);
    ClipFrame frame;
    frame.content = AudioFrame(std::move(samples), milliseconds(time));
    frame.duration = milliseconds(40);
    return frame;
}

TEST(PlayBuffer, ReleasesFramesWhereTheyMayUseIt) {
    PlayBuffer buffer{PlayOptions()};
    int released = 0;
    std::function<void()> atEnd = [&buffer, &released] {
        released += buffer.status().counters.pictures > 0 ? 1 : 0;
    };
    buffer.begin(false, true, {});
    for (std::int64_t time = 0; time <= 520; time += 40) {
        ASSERT_TRUE(buffer.push(picture(time, atEnd), {}));
    }
    EXPECT_FALSE(buffer.picture(milliseconds(0), 0s).empty());
    EXPECT_FALSE(buffer.picture(milliseconds(200), 0s).empty());
    EXPECT_EQ(released, 5);
    atEnd = [&buffer, &released] {
        ++released;
        buffer.stop();
    };
    buffer.stop();
    EXPECT_EQ(released, 14);
}

TEST(PlayBuffer, IsReadyWhereOneKindIsFarAhead) {
    PlayBuffer buffer{PlayOptions()};
    buffer.begin(true, true, {});
    for (std::int64_t time = 0; time < 2000; time += 40) {
        ASSERT_TRUE(buffer.push(picture(time), {}));
        ASSERT_EQ(buffer.status().state, State::Buffering) << time;
    }
    ASSERT_TRUE(buffer.push(picture(2000), {}));
    EXPECT_EQ(buffer.status().state, State::Ready);
    // The sound is still to be had.
    ASSERT_TRUE(buffer.push(picture(2040), {}));
    ASSERT_TRUE(buffer.push(sound(0), {}));
    EXPECT_EQ(buffer.sound(milliseconds(0), 0s).timestamp(), milliseconds(0));
}

TEST(PlayBuffer, SoundAnswersFromItsStartToItsEnd) {
    PlayBuffer buffer{PlayOptions()};
    buffer.begin(true, false, {});
    for (std::int64_t time = 0; time <= 520; time += 40) {
        ASSERT_TRUE(buffer.push(sound(time), {}));
    }
    const auto ask = [&buffer](std::int64_t microseconds) {
        return buffer.sound(Timestamp(Timebase(), microseconds), 0s).timestamp().value;
    };
    EXPECT_EQ(ask(0), 0);
    EXPECT_TRUE(buffer.sound(Timestamp(Timebase(), 39994), 0s).empty());
    EXPECT_EQ(ask(39995), 40000) << "5 microseconds early is near enough";
    EXPECT_EQ(ask(119999), 80000);
    EXPECT_EQ(ask(160000), 160000) << "the one before has ended";
    EXPECT_EQ(buffer.status().counters.skippedSounds, 1U);
}

TEST(PlayBuffer, ConnectionsContinueAfterTheTimesAskedFor) {
    PlayBuffer buffer{PlayOptions()};
    buffer.begin(false, true, {});
    for (std::int64_t time = 0; time <= 520; time += 40) {
        ASSERT_TRUE(buffer.push(picture(time), {}));
    }
    EXPECT_EQ(buffer.picture(milliseconds(7000), 0s).timestamp(), milliseconds(7000))
        << "the start of the clock";
    EXPECT_TRUE(buffer.lose(PlayBuffer::Failure{AvError::Eof, "gone"}, 0s));
    EXPECT_EQ(buffer.status().state, State::Reconnecting);
    EXPECT_EQ(buffer.picture(milliseconds(12000), 0s).timestamp(), milliseconds(7520)) << "the last one";
    buffer.begin(false, true, {});
    EXPECT_EQ(buffer.status().state, State::Buffering);
    EXPECT_EQ(buffer.status().message, "gone");
    ASSERT_TRUE(buffer.push(picture(0), {}));
    EXPECT_EQ(buffer.picture(milliseconds(12500), 0s).timestamp(), milliseconds(12500))
        << "half a second later";
}

TEST(PlayBuffer, TakesExtremeTimesForFarAwayOnes) {
    PlayBuffer buffer{PlayOptions()};
    buffer.begin(false, true, {});
    ASSERT_TRUE(buffer.push(picture(0), {}));
    ASSERT_TRUE(buffer.push(picture(40), {}));
    buffer.finish(std::nullopt);
    EXPECT_FALSE(buffer.picture(milliseconds(0), 0s).empty());
    EXPECT_EQ(buffer.picture(Timestamp(Timebase(), INT64_MAX), 1us).timestamp(), milliseconds(40));
    EXPECT_EQ(buffer.status().state, State::Ended);
}

}  // namespace
}  // namespace vidorra
