// Which operations of a picture mark its memory as modified: the marks are counted in this program.

#include <gtest/gtest.h>

#include <stdexcept>

#include "picture_probe.h"
#include "support/counted_marks.h"
#include "vidorra/picture/picture.h"
#include "vidorra/picture/video_frame.h"

namespace vidorra {
namespace {

using test::FramePtr;
using test::noisePicture;
using test::pictureInSeparateBuffers;

constexpr Size kSize{16, 8};

template <class Call>
int marksOf(const Call& call) {
    const int before = test::modificationMarks();
    call();
    return test::modificationMarks() - before;
}

FramePtr frameOf(const Picture& picture) {
    FramePtr frame = makeAvPtr<AVFrame>();
    picture.fillAVFrame(frame.get());
    return frame;
}

TEST(MemBufferMarks, OnlyPrivateMemoryIsMarked) {
    MemBuffer buffer(16, true);
    EXPECT_EQ(marksOf([&] { buffer.markModified(); }), 1);
    const MemBuffer copy(buffer);
    EXPECT_EQ(marksOf([&] { EXPECT_THROW(buffer.markModified(), std::logic_error); }), 0);
    EXPECT_EQ(marksOf([&] { EXPECT_THROW(MemBuffer().markModified(), std::logic_error); }), 0);
}

TEST(PictureMarks, EachFullBufferIsMarkedOnce) {
    Picture whole = noisePicture(kSize, AV_PIX_FMT_YUV420P);
    EXPECT_EQ(marksOf([&] { whole.markModified(); }), 1);
    Picture separate = pictureInSeparateBuffers(kSize, AV_PIX_FMT_YUVA420P);
    EXPECT_EQ(marksOf([&] { separate.markModified(); }), 4);
    EXPECT_EQ(marksOf([&] { Picture().markModified(); }), 0);
}

TEST(PictureMarks, BuffersAreMarkedInTheirOrderUpToOneThatIsShared) {
    for (const int shared : {0, 1, 2}) {
        SCOPED_TRACE(shared);
        Picture picture = pictureInSeparateBuffers(kSize, AV_PIX_FMT_YUV420P);
        const FramePtr frame = frameOf(picture);
        for (int i : {0, 1, 2}) {
            if (i != shared) {
                av_buffer_unref(&frame->buf[i]);
            }
        }
        EXPECT_EQ(marksOf([&] { EXPECT_THROW(picture.markModified(), std::logic_error); }), shared);
    }
}

TEST(PictureMarks, NewMemoryIsNotMarked) {
    EXPECT_EQ(marksOf([] { Picture(kSize, AV_PIX_FMT_NV12, AVCOL_RANGE_MPEG, 32); }), 0);
}

TEST(PictureMarks, ACopyOfPlanesIsMarked) {
    const Picture source = noisePicture(kSize, AV_PIX_FMT_NV12);
    EXPECT_EQ(marksOf([&] {
                  Picture(kSize, source.data().data(), source.linesize().data(), AV_PIX_FMT_NV12,
                          AVCOL_RANGE_MPEG, 32);
              }),
              1);
}

TEST(PictureMarks, ACopyOfAFrameWithoutBuffersIsMarked) {
    const Picture source = noisePicture(kSize, AV_PIX_FMT_NV12);
    const FramePtr frame = frameOf(source);
    av_buffer_unref(&frame->buf[0]);
    EXPECT_EQ(marksOf([&] { Picture{frame.get()}; }), 1);
}

TEST(PictureMarks, WhatIsCopiedIntoAPictureMarksIt) {
    const Picture source = noisePicture(kSize, AV_PIX_FMT_YUV420P);
    Picture whole(kSize, AV_PIX_FMT_YUV420P, AVCOL_RANGE_MPEG, 32);
    Picture separate = pictureInSeparateBuffers(kSize, AV_PIX_FMT_YUV420P);
    EXPECT_EQ(marksOf([&] { whole.copyFrom(source); }), 1);
    EXPECT_EQ(marksOf([&] { separate.copyFrom(source); }), 3);
    EXPECT_EQ(marksOf([&] { whole.copyFrom(source.data().data(), source.linesize().data()); }), 1);
}

TEST(PictureMarks, ACopyThatIsNotMadeMarksNothing) {
    const Picture source = noisePicture(kSize, AV_PIX_FMT_YUV420P);
    Picture empty(Size{0, 8}, AV_PIX_FMT_YUV420P, AVCOL_RANGE_MPEG, 32);
    Picture other(Size{8, 8}, AV_PIX_FMT_YUV420P, AVCOL_RANGE_MPEG, 32);
    Picture shared = noisePicture(kSize, AV_PIX_FMT_YUV420P);
    const Picture holder(shared);
    EXPECT_EQ(marksOf([&] { empty.copyFrom(Picture()); }), 0);
    EXPECT_EQ(marksOf([&] { empty.copyFrom(source.data().data(), source.linesize().data()); }), 0);
    EXPECT_EQ(marksOf([&] { EXPECT_THROW(other.copyFrom(source), std::runtime_error); }), 0);
    EXPECT_EQ(marksOf([&] { EXPECT_THROW(shared.copyFrom(source), std::runtime_error); }), 0);
}

TEST(PictureMarks, SharingAndDetachingMarkNothing) {
    const Picture source = noisePicture(kSize, AV_PIX_FMT_YUV420P);
    const Picture alpha = noisePicture(kSize, AV_PIX_FMT_GRAY8);
    const FramePtr frame = frameOf(source);
    EXPECT_EQ(marksOf([&] {
                  Picture copy(source);
                  copy.makeEditable();
                  static_cast<void>(source.crop(Rect{2, 2, 4, 4}));
                  Picture(source, alpha);
                  Picture{frame.get()};
                  VideoFrame(source, Timestamp(), Frame::NoFlags).fillAVFrame(makeAvPtr<AVFrame>().get());
              }),
              0);
}

}  // namespace
}  // namespace vidorra
