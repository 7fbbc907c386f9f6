#include <gtest/gtest.h>

#include <new>

#include "encode/encoder_calls.h"
#include "vidorra/picture/video_frame.h"

extern "C" {
#include <libavutil/frame.h>
}

namespace vidorra {
namespace {

using test::encoderCalls;

VideoFrame frameWithTimecode() {
    VideoFrame frame(Picture({16, 8}, AV_PIX_FMT_GRAY8, AVCOL_RANGE_JPEG, 1), Timestamp(), Frame::NoFlags);
    frame.addSideData(SMPTE12Timecode(1, 2, 3, 4, false, Timebase(1, 25)));
    return frame;
}

TEST(ToAvFrameCalls, AskForSideDataOfFourWords) {
    int calls = 0;
    const auto add =
        encoderCalls().avFrameNewSideData.replace([&calls](void* frame, int type, std::size_t size) {
            EXPECT_EQ(type, AV_FRAME_DATA_S12M_TIMECODE);
            EXPECT_EQ(size, 16U);
            ++calls;
            return encoderCalls().avFrameNewSideData.real(frame, type, size);
        });
    static_cast<void>(frameWithTimecode().toAvFrame());
    EXPECT_EQ(calls, 1);
}

TEST(ToAvFrameCalls, WithoutMemoryForAFrameAreABadAlloc) {
    const VideoFrame frame = frameWithTimecode();
    const auto alloc = encoderCalls().avFrameAlloc.replace([] { return nullptr; });
    EXPECT_THROW(static_cast<void>(frame.toAvFrame()), std::bad_alloc);
}

TEST(ToAvFrameCalls, WithoutMemoryForSideDataAreABadAllocAndKeepNothing) {
    const VideoFrame frame = frameWithTimecode();
    const auto add =
        encoderCalls().avFrameNewSideData.replace([](void*, int, std::size_t) { return nullptr; });
    EXPECT_THROW(static_cast<void>(frame.toAvFrame()), std::bad_alloc);
    EXPECT_TRUE(frame.picture().editable());
}

}  // namespace
}  // namespace vidorra
