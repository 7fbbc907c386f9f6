#include "vidorra/picture/audio_frame.h"

#include <gmock/gmock.h>

#include <cstring>
#include <sstream>
#include <stdexcept>
#include <type_traits>
#include <utility>

#include "ffmpeg/channels.h"
#include "picture/av_frames.h"
#include "support/throw_text.h"

namespace vidorra {
namespace {

using testing::ElementsAre;

static_assert(std::is_base_of_v<Frame, AudioFrame>);
static_assert(std::is_copy_constructible_v<AudioFrame> && std::is_copy_assignable_v<AudioFrame>);
static_assert(sizeof(AudioFrame) == sizeof(AudioBuffer) + sizeof(Frame));

constexpr Timestamp kOneSecond(Timebase(), 1000000);

AudioBuffer twoSamples() {
    AudioBuffer buffer(AV_CH_LAYOUT_STEREO, AV_SAMPLE_FMT_S16);
    buffer.loadSamples({5, -5});
    buffer.setSampleRate(48000);
    return buffer;
}

template <class Method>
std::uintptr_t slotOf(Method method) {
    std::uintptr_t offset = 0;
    static_assert(sizeof(method) >= sizeof(offset));
    std::memcpy(&offset, &method, sizeof(offset));
    // The lowest bit says "virtual" where the instruction set leaves it free.
    return (offset & ~std::uintptr_t{1}) / sizeof(void*);
}

TEST(AudioFrame, HasItsVirtualOperationsInTheOrderOfAllFrames) {
    // Two slots are the destructor's.
    EXPECT_EQ(slotOf(&AudioFrame::fillAVFrame), 2U);
    EXPECT_EQ(slotOf(static_cast<bool (AudioFrame::*)() const>(&AudioFrame::empty)), 3U);
    EXPECT_EQ(slotOf(&AudioFrame::debugDescription), 4U);
    EXPECT_EQ(slotOf(&AudioFrame::isAudio), 5U);
    EXPECT_EQ(slotOf(&AudioFrame::isVideo), 6U);
}

TEST(AudioFrame, IsEmptyByDefault) {
    const AudioFrame frame;
    EXPECT_TRUE(frame.empty());
    EXPECT_TRUE(frame.timestamp().isNull);
    EXPECT_EQ(frame.flags(), Frame::NoFlags);
}

TEST(AudioFrame, IsAudio) {
    const AudioFrame frame;
    EXPECT_TRUE(frame.isAudio());
    EXPECT_FALSE(frame.isVideo());
}

TEST(AudioFrame, TakesOverBufferAndTimeWithoutFlags) {
    AudioBuffer buffer = twoSamples();
    const std::uint8_t* plane = buffer.getPointersToPlanes().front();
    const AudioFrame frame(std::move(buffer), kOneSecond);
    EXPECT_FALSE(frame.empty());
    EXPECT_EQ(frame.timestamp(), kOneSecond);
    EXPECT_EQ(frame.flags(), Frame::NoFlags);
    EXPECT_THAT(frame.audioBuffer().getPointersToPlanes(), ElementsAre(plane));
    // NOLINTNEXTLINE(bugprone-use-after-move): the moved-from state is part of the behaviour.
    EXPECT_TRUE(buffer.empty());
}

TEST(AudioFrame, IsAsEmptyAsItsBuffer) {
    EXPECT_TRUE(AudioFrame(AudioBuffer(), kOneSecond).empty());
    EXPECT_FALSE(AudioFrame(AudioBuffer(AV_CH_LAYOUT_MONO, AV_SAMPLE_FMT_S16), kOneSecond).empty());
}

TEST(AudioFrame, SharesSamplesWithItsCopies) {
    AudioFrame frame(twoSamples(), kOneSecond);
    const AudioFrame copy = frame;
    frame.audioBuffer().setSample_s16({1, 2}, 0);
    EXPECT_THAT(copy.audioBuffer().getSample_s16(0), ElementsAre(1, 2));
}

TEST(AudioFrame, FillsAFrameWithItsSamplesAndItsTime) {
    const AudioFrame frame(twoSamples(), kOneSecond);
    const auto target = makeAvPtr<AVFrame>();
    frame.fillAVFrame(target.get());
    EXPECT_EQ(target->pts, 1000000);
    EXPECT_EQ(target->nb_samples, 2);
    EXPECT_EQ(target->sample_rate, 48000);
    EXPECT_EQ(target->format, AV_SAMPLE_FMT_S16);
    EXPECT_EQ(ffmpeg_ext::channelMask(*target), static_cast<std::uint64_t>(AV_CH_LAYOUT_STEREO));
    EXPECT_EQ(test::planesOf(*target, 1, 8), test::planesOf(frame.audioBuffer(), 8));
    EXPECT_NE(target->data[0], frame.audioBuffer().getPointersToPlanes().front());
}

TEST(AudioFrame, FillsInTheCountOfItsTimeAsItStands) {
    for (const Timestamp& time :
         {Timestamp({1, 48000}, 96000), Timestamp({1001, 30000}, -7), Timestamp({1, 1}, 5, true)}) {
        const auto target = makeAvPtr<AVFrame>();
        AudioFrame(twoSamples(), time).fillAVFrame(target.get());
        EXPECT_EQ(target->pts, time.value);
    }
}

TEST(AudioFrame, DoesNotFillAFrameWhenItIsEmpty) {
    const auto target = makeAvPtr<AVFrame>();
    target->pts = 77;
    EXPECT_THROW_TEXT(std::runtime_error, "Can not fill AVFrame from empty audio frame",
                      AudioFrame(AudioBuffer(), kOneSecond).fillAVFrame(target.get()));
    EXPECT_EQ(target->pts, 77);
}

TEST(AudioFrame, FillsAFrameWithoutSamples) {
    const AudioFrame frame(AudioBuffer(AV_CH_LAYOUT_MONO, AV_SAMPLE_FMT_S16), kOneSecond);
    const auto target = makeAvPtr<AVFrame>();
    frame.fillAVFrame(target.get());
    EXPECT_EQ(target->nb_samples, 0);
    EXPECT_EQ(target->pts, 1000000);
}

TEST(AudioFrame, DescribesItself) {
    AudioFrame frame(twoSamples(), kOneSecond);
    EXPECT_EQ(frame.debugDescription(), "audio frame 2 samples 48000Hz stereo s16, pts 1.000000");
    frame.setTimestamp(Timestamp({1, 90000}, 45000));
    EXPECT_EQ(frame.debugDescription(), "audio frame 2 samples 48000Hz stereo s16, pts 0.500000 (1/90000)");
    frame.setTimestamp(Timestamp());
    EXPECT_EQ(frame.debugDescription(), "audio frame 2 samples 48000Hz stereo s16, pts null pts");
}

TEST(AudioFrame, DescribesAnEmptyOne) {
    EXPECT_EQ(AudioFrame().debugDescription(), "empty audio frame, pts null pts");
    EXPECT_EQ(AudioFrame(AudioBuffer(), kOneSecond).debugDescription(), "empty audio frame, pts 1.000000");
}

TEST(AudioFrame, WritesItsDescriptionToAStream) {
    std::ostringstream stream;
    stream << AudioFrame(twoSamples(), kOneSecond);
    EXPECT_EQ(stream.str(), "audio frame 2 samples 48000Hz stereo s16, pts 1.000000");
}

}  // namespace
}  // namespace vidorra
