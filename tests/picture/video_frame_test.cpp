#include "vidorra/picture/video_frame.h"

#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "picture_probe.h"
#include "support/throw_text.h"

namespace vidorra {
namespace {

using test::Arena;
using test::FramePtr;
using test::noisePicture;
using test::slotsOf;

static_assert(std::is_base_of_v<Frame, VideoFrame>);
static_assert(!std::is_abstract_v<VideoFrame>);
static_assert(std::is_copy_constructible_v<VideoFrame> && std::is_copy_assignable_v<VideoFrame>);
static_assert(!std::is_nothrow_copy_constructible_v<VideoFrame>);
// Frames move through queues and containers without a copy.
static_assert(std::is_nothrow_move_constructible_v<VideoFrame>);
static_assert(std::is_nothrow_move_assignable_v<VideoFrame>);
static_assert(std::is_nothrow_destructible_v<VideoFrame>);

constexpr Size kSize{16, 8};
const Timestamp kTime({1, 90000}, 180000);

VideoFrame describedFrame() {
    VideoFrame frame(noisePicture(kSize, AV_PIX_FMT_NV12), kTime, Frame::NoSignal);
    frame.setPosition({11, -12});
    frame.metadata().addValue("title", "one");
    return frame;
}

void expectDescribed(const VideoFrame& frame) {
    EXPECT_EQ(frame.timestamp().value, 180000);
    EXPECT_EQ(frame.timestamp().timebase, (Timebase{1, 90000}));
    EXPECT_EQ(frame.flags(), Frame::NoSignal);
    EXPECT_EQ(frame.position(), (Point{11, -12}));
    EXPECT_EQ(frame.metadata()["title"], "one");
}

TEST(VideoFrame, ByDefaultItIsEmpty) {
    const VideoFrame frame;
    EXPECT_TRUE(frame.empty());
    EXPECT_TRUE(frame.timestamp().isNull);
    EXPECT_EQ(frame.timestamp().value, 0);
    EXPECT_EQ(frame.timestamp().timebase, (Timebase{1, 1000000}));
    EXPECT_EQ(frame.flags(), Frame::NoFlags);
    EXPECT_TRUE(frame.picture().empty());
    EXPECT_EQ(frame.picture().frameSize(), (Size{0, 0}));
    EXPECT_EQ(frame.position(), (Point{0, 0}));
}

TEST(VideoFrame, IsVideo) {
    const VideoFrame video;
    const Frame& frame = video;
    EXPECT_TRUE(frame.isVideo());
    EXPECT_FALSE(frame.isAudio());
}

TEST(VideoFrame, SharesThePictureItIsMadeOf) {
    const Picture picture = noisePicture(kSize, AV_PIX_FMT_NV12);
    const VideoFrame frame(picture, kTime, Frame::LastFrame);
    EXPECT_EQ(frame.picture().data(), picture.data());
    EXPECT_EQ(slotsOf(picture)[0].references, 2);
    EXPECT_EQ(frame.timestamp(), kTime);
    EXPECT_EQ(frame.timestamp().timebase, (Timebase{1, 90000}));
    EXPECT_EQ(frame.flags(), Frame::LastFrame);
    EXPECT_EQ(frame.position(), (Point{0, 0}));
    EXPECT_FALSE(frame.empty());
}

TEST(VideoFrame, TakesThePictureItIsGiven) {
    Picture picture = noisePicture(kSize, AV_PIX_FMT_NV12);
    const Picture::Planes planes = picture.data();
    const VideoFrame frame(std::move(picture), kTime, Frame::LastFrame);
    EXPECT_TRUE(picture.empty());
    EXPECT_EQ(picture.frameSize(), kSize);
    EXPECT_EQ(frame.picture().data(), planes);
    EXPECT_TRUE(frame.picture().editable());
    EXPECT_EQ(frame.timestamp().value, 180000);
    EXPECT_EQ(frame.flags(), Frame::LastFrame);
    EXPECT_EQ(frame.position(), (Point{0, 0}));
}

TEST(VideoFrame, ACopyHasEverythingAndSharesThePicture) {
    VideoFrame frame = describedFrame();
    const VideoFrame copy(frame);
    expectDescribed(copy);
    expectDescribed(frame);
    EXPECT_EQ(copy.picture().data(), frame.picture().data());
    EXPECT_FALSE(copy.picture().editable());
    EXPECT_FALSE(frame.picture().editable());

    frame.metadata().addValue("title", "two");
    EXPECT_EQ(copy.metadata()["title"], "one") << "strings are copied, not shared";
}

TEST(VideoFrame, ACopyCanBeAssigned) {
    const VideoFrame frame = describedFrame();
    VideoFrame copy = VideoFrame(noisePicture(kSize, AV_PIX_FMT_RGBA), Timestamp(), Frame::LastFrame);
    copy = frame;
    expectDescribed(copy);
    EXPECT_EQ(copy.picture().data(), frame.picture().data());
}

TEST(VideoFrame, MovingTakesStringsAndPictureAndCopiesTheRest) {
    VideoFrame frame = describedFrame();
    const Picture::Planes planes = frame.picture().data();
    const VideoFrame moved(std::move(frame));
    expectDescribed(moved);
    EXPECT_EQ(moved.picture().data(), planes);
    EXPECT_TRUE(moved.picture().editable());

    EXPECT_TRUE(frame.empty());
    EXPECT_FALSE(frame.metadata().hasKey("title"));
    EXPECT_EQ(frame.timestamp().value, 180000);
    EXPECT_FALSE(frame.timestamp().isNull);
    EXPECT_EQ(frame.flags(), Frame::NoSignal);
    EXPECT_EQ(frame.position(), (Point{11, -12}));
    EXPECT_EQ(frame.picture().frameSize(), kSize);
}

TEST(VideoFrame, MoveAssignmentDropsTheOldPicture) {
    Arena arena(64);
    std::uint8_t* planes[4] = {arena.at(0)};
    const int linesizes[4] = {8};
    VideoFrame target(Picture(MemBuffer(arena.buffer(0, 64).get()), Size{8, 8}, planes, linesizes,
                              AV_PIX_FMT_GRAY8, AVCOL_RANGE_JPEG),
                      Timestamp(), Frame::NoFlags);
    VideoFrame frame = describedFrame();
    target = std::move(frame);
    EXPECT_EQ(arena.freed(), 1);
    expectDescribed(target);
    EXPECT_TRUE(frame.empty());
}

TEST(VideoFrame, GrowingAVectorOfFramesDoesNotShareThem) {
    std::vector<VideoFrame> frames;
    for (int i = 0; i < 20; ++i) {
        frames.push_back(describedFrame());
    }
    for (const VideoFrame& frame : frames) {
        EXPECT_TRUE(frame.picture().editable());
    }
}

TEST(VideoFrame, DestructionThroughTheBaseReleasesThePicture) {
    Arena arena(64);
    std::uint8_t* planes[4] = {arena.at(0)};
    const int linesizes[4] = {8};
    std::unique_ptr<Frame> frame =
        std::make_unique<VideoFrame>(Picture(MemBuffer(arena.buffer(0, 64).get()), Size{8, 8}, planes,
                                             linesizes, AV_PIX_FMT_GRAY8, AVCOL_RANGE_JPEG),
                                     Timestamp(), Frame::NoFlags);
    EXPECT_FALSE(frame->empty());
    frame.reset();
    EXPECT_EQ(arena.freed(), 1);
}

TEST(VideoFrame, IsEmptyAsItsPictureIs) {
    EXPECT_TRUE(
        VideoFrame(Picture(Size{0, 8}, AV_PIX_FMT_NV12, AVCOL_RANGE_MPEG, 1), kTime, Frame::NoFlags).empty());
    EXPECT_FALSE(describedFrame().empty());
}

TEST(VideoFrame, FillsAnAVFrameWithItsPictureAndTheCountOfItsTime) {
    for (const Timestamp& time : {kTime, Timestamp({1, 25}, -7), Timestamp({0, 0}, INT64_MAX), Timestamp()}) {
        const VideoFrame video(noisePicture(kSize, AV_PIX_FMT_NV12), time, Frame::LastFrame);
        const Frame& frame = video;
        const FramePtr avFrame = makeAvPtr<AVFrame>();
        frame.fillAVFrame(avFrame.get());
        EXPECT_EQ(avFrame->pts, time.value);
        EXPECT_EQ(avFrame->width, 16);
        EXPECT_EQ(avFrame->height, 8);
        EXPECT_EQ(avFrame->format, AV_PIX_FMT_NV12);
        EXPECT_EQ(avFrame->color_range, AVCOL_RANGE_MPEG);
        EXPECT_EQ(avFrame->data[1], video.picture().data()[1]);
        EXPECT_FALSE(video.picture().editable());
    }
}

TEST(VideoFrame, WithoutAPictureItFillsNoAVFrame) {
    const FramePtr avFrame = makeAvPtr<AVFrame>();
    noisePicture(kSize, AV_PIX_FMT_NV12).fillAVFrame(avFrame.get());
    avFrame->pts = 4711;
    const AVBufferRef* buffer = avFrame->buf[0];
    const VideoFrame sizeOnly(Picture(Size{0, 8}, AV_PIX_FMT_NV12, AVCOL_RANGE_MPEG, 1), kTime,
                              Frame::NoFlags);
    EXPECT_THROW_TEXT(std::runtime_error, "Can not fill AVFrame from empty frame",
                      VideoFrame().fillAVFrame(avFrame.get()));
    EXPECT_THROW_TEXT(std::runtime_error, "Can not fill AVFrame from empty frame",
                      sizeOnly.fillAVFrame(avFrame.get()));
    EXPECT_EQ(avFrame->pts, 4711);
    EXPECT_EQ(avFrame->buf[0], buffer);
}

TEST(VideoFrameText, OfAFrameWithoutAPictureSaysSo) {
    EXPECT_EQ(VideoFrame().debugDescription(), "empty video frame, pts null pts, flags none");
    const VideoFrame frame(Picture(), Timestamp({1, 1000000}, 1500000), Frame::LastFrame);
    EXPECT_EQ(frame.debugDescription(), "empty video frame, pts 1.500000, flags LastFrame");
}

TEST(VideoFrameText, NamesPictureTimeAndFlags) {
    Picture picture = noisePicture(kSize, AV_PIX_FMT_NV12);
    const VideoFrame frame(std::move(picture), kTime, Frame::LastFrame | Frame::NoSignal);
    EXPECT_EQ(frame.debugDescription(), "video frame 16x8, nv12 (tv,editable), pts " +
                                            kTime.debugDescription() + ", flags LastFrame+NoSignal");
    EXPECT_EQ(kTime.debugDescription(), "2.000000 (1/90000)");
    const VideoFrame copy(frame);
    EXPECT_EQ(copy.debugDescription(),
              "video frame 16x8, nv12 (tv), pts 2.000000 (1/90000), flags LastFrame+NoSignal");
}

TEST(VideoFrameText, WithAColourRangeWithoutNameThrows) {
    const VideoFrame frame(Picture(kSize, AV_PIX_FMT_NV12, AVCOL_RANGE_NB, 1), kTime, Frame::NoFlags);
    EXPECT_THROW_TEXT(std::logic_error, "basic_string: construction from null is not valid",
                      static_cast<void>(frame.debugDescription()));
}

TEST(VideoFrameText, IsWhatStreamOutputWrites) {
    const VideoFrame video;
    const Frame& frame = video;
    std::ostringstream stream;
    stream << frame << '|' << video;
    EXPECT_EQ(stream.str(),
              "empty video frame, pts null pts, flags none|empty video frame, pts null pts, flags none");
}

std::string flagsText(std::uint32_t flags) {
    VideoFrame frame;
    frame.setFlags(static_cast<Frame::FrameFlags>(flags));
    return frame.debugDescriptionOfFlags();
}

// Named bits by name, all others as one number.
std::string expectedFlagsText(std::uint32_t flags) {
    std::vector<std::string> words;
    if (flags % 4 >= 2) {
        words.emplace_back("LastFrame");
    }
    if (flags % 8 >= 4) {
        words.emplace_back("NoSignal");
    }
    const std::uint32_t rest = flags - flags % 8 + flags % 2;
    if (rest != 0) {
        std::ostringstream number;
        number << std::hex << rest;
        words.push_back(number.str());
    }
    std::string text;
    for (const std::string& word : words) {
        text += (text.empty() ? "" : "+") + word;
    }
    return text.empty() ? "none" : text;
}

TEST(VideoFrameFlagsText, OfKnownValues) {
    struct Row {
        std::uint32_t flags;
        const char* text;
    };
    for (const Row& row :
         {Row{0, "none"}, Row{1, "1"}, Row{2, "LastFrame"}, Row{3, "LastFrame+1"}, Row{4, "NoSignal"},
          Row{5, "NoSignal+1"}, Row{6, "LastFrame+NoSignal"}, Row{7, "LastFrame+NoSignal+1"}, Row{8, "8"},
          Row{9, "9"}, Row{16, "10"}, Row{0xabcdef08U, "abcdef08"}, Row{0x80000000U, "80000000"},
          Row{0xffffffffU, "LastFrame+NoSignal+fffffff9"}}) {
        EXPECT_EQ(flagsText(row.flags), row.text);
    }
}

TEST(VideoFrameFlagsText, OfEachLowValueWithEachHighBit) {
    for (std::uint32_t low = 0; low < 16; ++low) {
        EXPECT_EQ(flagsText(low), expectedFlagsText(low));
        for (int bit = 4; bit < 32; ++bit) {
            const std::uint32_t flags = low | std::uint32_t{1} << bit;
            EXPECT_EQ(flagsText(flags), expectedFlagsText(flags));
            EXPECT_EQ(flagsText(~flags), expectedFlagsText(~flags));
        }
    }
}

}  // namespace
}  // namespace vidorra
