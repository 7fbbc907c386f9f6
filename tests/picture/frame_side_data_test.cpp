#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <utility>
#include <vector>

#include "picture_probe.h"
#include "support/throw_text.h"
#include "vidorra/picture/audio_frame.h"
#include "vidorra/picture/video_frame.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/frame.h>
}

namespace vidorra {
namespace {

using test::noisePicture;

constexpr Timebase k25(1, 25);
const SMPTE12Timecode kFirst(1, 2, 3, 4, false, k25);
const SMPTE12Timecode kSecond(5, 6, 7, 8, true, k25);

VideoFrame videoFrame() {
    return VideoFrame(noisePicture({16, 8}, AV_PIX_FMT_YUV420P), Timestamp(k25, 42), Frame::NoFlags);
}

AudioFrame audioFrame() {
    AudioBuffer buffer(AV_CH_LAYOUT_STEREO, AV_SAMPLE_FMT_S16);
    buffer.setSampleRate(48000);
    buffer.resize(64);
    return AudioFrame(buffer, Timestamp(k25, 43));
}

TEST(FrameSideData, IsNoneAtFirst) {
    EXPECT_TRUE(VideoFrame().sideData().empty());
}

TEST(FrameSideData, HasOneTimecodeTheLatest) {
    VideoFrame frame = videoFrame();
    frame.addSideData(kFirst);
    ASSERT_EQ(frame.sideData().size(), 1U);
    EXPECT_EQ(std::get<SMPTE12Timecode>(frame.sideData()[0]), kFirst);
    frame.addSideData(kSecond);
    ASSERT_EQ(frame.sideData().size(), 1U);
    EXPECT_EQ(std::get<SMPTE12Timecode>(frame.sideData()[0]), kSecond);
}

TEST(FrameSideData, GoesWithCopiesAndMoves) {
    VideoFrame frame = videoFrame();
    frame.addSideData(kFirst);
    VideoFrame copy = frame;
    EXPECT_EQ(copy.sideData(), frame.sideData());
    copy.addSideData(kSecond);
    EXPECT_EQ(std::get<SMPTE12Timecode>(frame.sideData()[0]), kFirst) << "it is copied, not shared";
    const VideoFrame moved = std::move(frame);
    EXPECT_EQ(std::get<SMPTE12Timecode>(moved.sideData().at(0)), kFirst);
    EXPECT_TRUE(frame.sideData().empty()) << "it is moved, not copied";
    AudioFrame audio = audioFrame();
    audio.addSideData(kFirst);
    EXPECT_EQ(AudioFrame(audio).sideData().size(), 1U);
}

TEST(ToAvFrame, SharesThePictureAndHasItsTime) {
    const VideoFrame frame = videoFrame();
    const AvPtr<AVFrame> made = frame.toAvFrame();
    ASSERT_NE(made, nullptr);
    EXPECT_EQ(made->pts, 42);
    EXPECT_EQ(made->width, 16);
    EXPECT_EQ(made->height, 8);
    EXPECT_EQ(made->format, AV_PIX_FMT_YUV420P);
    for (std::size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(made->data[i], frame.picture().data()[i]);
    }
    EXPECT_FALSE(frame.picture().editable());
}

TEST(ToAvFrame, IsReleasedByItsHandle) {
    const VideoFrame frame = videoFrame();
    static_cast<void>(frame.toAvFrame());
    EXPECT_TRUE(frame.picture().editable());
}

TEST(ToAvFrame, HasTheSamplesOfAudio) {
    const AvPtr<AVFrame> made = audioFrame().toAvFrame();
    EXPECT_EQ(made->pts, 43);
    EXPECT_EQ(made->nb_samples, 64);
    EXPECT_EQ(made->sample_rate, 48000);
    EXPECT_EQ(made->format, AV_SAMPLE_FMT_S16);
}

TEST(ToAvFrame, AddsNoSideDataWhereThereIsNone) {
    EXPECT_EQ(videoFrame().toAvFrame()->nb_side_data, 0);
}

TEST(ToAvFrame, AddsATimecode) {
    VideoFrame frame = videoFrame();
    frame.addSideData(kFirst);
    frame.addSideData(kSecond);
    const AvPtr<AVFrame> made = frame.toAvFrame();
    ASSERT_EQ(made->nb_side_data, 1);
    const AVFrameSideData* added = av_frame_get_side_data(made.get(), AV_FRAME_DATA_S12M_TIMECODE);
    ASSERT_NE(added, nullptr);
    EXPECT_EQ(static_cast<std::size_t>(added->size), 16U);
    std::uint32_t words[2];
    std::memcpy(words, added->data, sizeof(words));
    EXPECT_EQ(words[0], 1U);
    EXPECT_EQ(words[1], 0x48070605U);
    EXPECT_EQ(words[1], kSecond.toBinaryCodedDecimal());
}

TEST(ToAvFrame, OfAnEmptyFrameFails) {
    EXPECT_THROW_TEXT(std::runtime_error, "Can not fill AVFrame from empty frame",
                      (void)VideoFrame().toAvFrame());
    EXPECT_THROW_TEXT(std::runtime_error, "Can not fill AVFrame from empty audio frame",
                      (void)AudioFrame().toAvFrame());
}

}  // namespace
}  // namespace vidorra
