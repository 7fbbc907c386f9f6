// AVFrames that share the content of a picture.

#include <gtest/gtest.h>

#include "picture_probe.h"
#include "vidorra/picture/picture.h"

namespace vidorra {
namespace {

using test::Arena;
using test::bufferCount;
using test::FramePtr;
using test::noisePicture;
using test::slotsOf;

FramePtr frameOf(const Picture& picture) {
    FramePtr frame = makeAvPtr<AVFrame>();
    picture.fillAVFrame(frame.get());
    return frame;
}

TEST(PictureToFrame, SharesTheMemoryAndSetsEightFields) {
    const Picture picture = test::pictureInSeparateBuffers(Size{33, 17}, AV_PIX_FMT_YUVA420P);
    const FramePtr frame = frameOf(picture);
    EXPECT_EQ(frame->width, 33);
    EXPECT_EQ(frame->height, 17);
    EXPECT_EQ(frame->format, AV_PIX_FMT_YUVA420P);
    EXPECT_EQ(frame->color_range, AVCOL_RANGE_MPEG);
    for (int i = 0; i < 4; ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(frame->data[i], picture.data()[i]);
        EXPECT_EQ(frame->linesize[i], picture.linesize()[i]);
        ASSERT_NE(frame->buf[i], nullptr);
        EXPECT_EQ(av_buffer_get_ref_count(frame->buf[i]), 2);
        EXPECT_EQ(frame->buf[i]->data, slotsOf(picture)[i].data);
    }
    EXPECT_FALSE(picture.editable());
}

TEST(PictureToFrame, TouchesNothingElseOfTheFrame) {
    const Picture picture = noisePicture(Size{16, 8}, AV_PIX_FMT_GRAY8);
    const FramePtr frame = makeAvPtr<AVFrame>();
    std::uint8_t marks[4];
    std::uint8_t* extended[1] = {marks};
    for (int i = 0; i < 4; ++i) {
        frame->data[4 + i] = &marks[i];
        frame->linesize[4 + i] = 77;
    }
    std::uint8_t** own = frame->extended_data;
    frame->extended_data = extended;
    frame->pts = 4711;
    frame->sample_aspect_ratio = {3, 4};
    picture.fillAVFrame(frame.get());
    EXPECT_EQ(frame->extended_data, extended);
    frame->extended_data = own;
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(frame->data[4 + i], &marks[i]);
        EXPECT_EQ(frame->linesize[4 + i], 77);
        EXPECT_EQ(frame->buf[4 + i], nullptr);
    }
    EXPECT_EQ(frame->pts, 4711);
    EXPECT_EQ(frame->sample_aspect_ratio.num, 3);
    EXPECT_EQ(frame->sample_aspect_ratio.den, 4);
}

TEST(PictureToFrame, ReleasesWhatTheFrameHeldBefore) {
    Arena arena(8);
    const FramePtr frame = makeAvPtr<AVFrame>();
    for (int i = 0; i < 8; ++i) {
        frame->buf[i] = arena.buffer(i, 1).release();
    }
    const Picture picture = noisePicture(Size{16, 8}, AV_PIX_FMT_GRAY8);
    picture.fillAVFrame(frame.get());
    EXPECT_EQ(arena.freed(), 8);
    EXPECT_NE(frame->buf[0], nullptr);
    for (int i = 1; i < 8; ++i) {
        EXPECT_EQ(frame->buf[i], nullptr);
    }
}

TEST(PictureToFrame, StopsReleasingAtTheFirstGap) {
    Arena arena(8);
    const FramePtr frame = makeAvPtr<AVFrame>();
    frame->buf[0] = arena.buffer(0, 1).release();
    frame->buf[6] = arena.buffer(6, 1).release();
    noisePicture(Size{16, 8}, AV_PIX_FMT_GRAY8).fillAVFrame(frame.get());
    EXPECT_EQ(arena.freed(), 1);
    EXPECT_NE(frame->buf[6], nullptr);
}

TEST(PictureToFrame, TheMemoryGoesWhenPictureAndFrameHaveGone) {
    for (const bool frameFirst : {false, true}) {
        SCOPED_TRACE(frameFirst);
        Arena arena(64);
        std::uint8_t* planes[4] = {arena.at(0)};
        const int linesizes[4] = {8};
        Picture picture(MemBuffer(arena.buffer(0, 64).get()), Size{8, 8}, planes, linesizes, AV_PIX_FMT_GRAY8,
                        AVCOL_RANGE_JPEG);
        FramePtr frame = frameOf(picture);
        if (frameFirst) {
            frame.reset();
            EXPECT_EQ(arena.freed(), 0);
            EXPECT_TRUE(picture.editable());
            picture = Picture();
        } else {
            picture = Picture();
            EXPECT_EQ(arena.freed(), 0);
            frame.reset();
        }
        EXPECT_EQ(arena.freed(), 1);
    }
}

TEST(PictureToFrame, OfAnEmptyPictureClearsTheFrame) {
    Arena arena(8);
    const FramePtr frame = makeAvPtr<AVFrame>();
    frame->buf[0] = arena.buffer(0, 1).release();
    frame->data[0] = arena.at(0);
    frame->width = 4;
    Picture().fillAVFrame(frame.get());
    EXPECT_EQ(arena.freed(), 1);
    EXPECT_EQ(frame->buf[0], nullptr);
    EXPECT_EQ(frame->data[0], nullptr);
    EXPECT_EQ(frame->width, 0);
    EXPECT_EQ(frame->format, AV_PIX_FMT_NONE);
}

TEST(PictureToFrame, RoundTripKeepsBuffersPlanesAndFields) {
    const Picture original = test::pictureInSeparateBuffers(Size{33, 17}, AV_PIX_FMT_YUV420P);
    FramePtr frame = frameOf(original);
    const Picture picture(frame.get());
    frame.reset();
    EXPECT_EQ(picture.data(), original.data());
    EXPECT_EQ(picture.linesize(), original.linesize());
    EXPECT_EQ(picture.frameSize(), original.frameSize());
    EXPECT_EQ(picture.pixelFormat(), original.pixelFormat());
    EXPECT_EQ(picture.colorRange(), original.colorRange());
    const auto slots = slotsOf(picture);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(slots[i].data, slotsOf(original)[i].data);
        EXPECT_EQ(slots[i].references, 2);
    }
    EXPECT_EQ(bufferCount(picture), 3);
}

}  // namespace
}  // namespace vidorra
