// Pictures that were moved from keep size, format and plane pointers, but are empty: nothing is done with the
// memory, which belongs to others.

#include <gtest/gtest.h>

#include <optional>
#include <stdexcept>
#include <utility>

#include "picture_probe.h"
#include "support/throw_text.h"
#include "vidorra/core/enum_text.h"
#include "vidorra/picture/picture.h"

namespace vidorra {
namespace {

using test::noisePicture;

constexpr Size kSize{16, 8};

struct Moved {
    explicit Moved(AVPixelFormat format) : from(noisePicture(kSize, format)), to(std::move(from)) {}
    Picture from;
    Picture to;
};

TEST(PictureMovedFrom, IsEmptyAndKeepsItsShape) {
    const Moved picture(AV_PIX_FMT_NV12);
    EXPECT_TRUE(picture.from.empty());
    EXPECT_FALSE(picture.from.editable());
    EXPECT_EQ(picture.from.frameSize(), kSize);
    EXPECT_EQ(picture.from.data(), picture.to.data());
    EXPECT_EQ(picture.from.bytesInBuffer(0), std::nullopt);
}

TEST(PictureMovedFrom, IsNotCopiedFrom) {
    const Moved picture(AV_PIX_FMT_NV12);
    Picture target = noisePicture(kSize, AV_PIX_FMT_NV12, 9);
    const auto before = test::pixelsOf(target);
    EXPECT_THROW_TEXT(std::runtime_error, "copyFrom: mismath picture size / pixel format",
                      target.copyFrom(picture.from));
    EXPECT_EQ(test::pixelsOf(target), before);
}

TEST(PictureMovedFrom, GivesAFrameNeitherBuffersNorPlanes) {
    const Moved picture(AV_PIX_FMT_YUVA420P);
    const test::FramePtr frame = makeAvPtr<AVFrame>();
    picture.from.fillAVFrame(frame.get());
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(frame->buf[i], nullptr);
        EXPECT_EQ(frame->data[i], nullptr);
    }
    EXPECT_EQ(frame->width, 16);
    EXPECT_EQ(frame->format, AV_PIX_FMT_YUVA420P);
}

TEST(PictureMovedFrom, IsNeitherColourNorAlphaOfAnother) {
    const Moved colour(AV_PIX_FMT_NV12);
    const Moved alpha(AV_PIX_FMT_GRAY8);
    EXPECT_THROW_TEXT(std::logic_error,
                      "Picture(const Picture& picture, const Picture& alpha): The picture has no pixels",
                      Picture(colour.from, alpha.to));
    EXPECT_THROW_TEXT(std::logic_error, "Buffer for alpha alpha wasn't  found.",
                      Picture(colour.to, alpha.from));
}

TEST(PictureBytesInBuffer, ReachFromTheFirstPixelToTheEndOfItsBuffer) {
    test::Arena arena(200);
    test::FramePtr frame = test::newFrame(Size{4, 2}, AV_PIX_FMT_NV12);
    frame->buf[0] = arena.buffer(0, 100).release();
    frame->buf[1] = arena.buffer(100, 60).release();
    frame->data[0] = arena.at(10);
    frame->data[1] = arena.at(159);
    frame->linesize[0] = frame->linesize[1] = 4;
    const Picture picture(frame.get());
    EXPECT_EQ(picture.bytesInBuffer(0), 90U);
    EXPECT_EQ(picture.bytesInBuffer(1), 1U);
    EXPECT_EQ(picture.bytesInBuffer(2), std::nullopt) << "there is no such plane";
    EXPECT_EQ(picture.crop(Rect{2, 0, 2, 2}).bytesInBuffer(0), 88U);
    const Picture elsewhere(MemBuffer(8, true), Size{4, 2}, picture.data().data(), picture.linesize().data(),
                            AV_PIX_FMT_NV12, AVCOL_RANGE_MPEG);
    EXPECT_EQ(elsewhere.bytesInBuffer(0), std::nullopt) << "the plane is not in the picture's buffer";
}

TEST(PictureBytesInBuffer, AreNoneBehindTheLastPixel) {
    test::Arena arena(8);
    test::FramePtr frame = test::newFrame(Size{4, 2}, AV_PIX_FMT_GRAY8);
    frame->buf[0] = arena.buffer(0, 8).release();
    frame->data[0] = arena.at(0);
    frame->linesize[0] = 4;
    const Picture picture(frame.get());
    EXPECT_EQ(picture.crop(Rect{0, 2, 4, 2}).bytesInBuffer(0), 0U);
    EXPECT_EQ(picture.crop(Rect{3, 1, 1, 1}).bytesInBuffer(0), 1U);
}

}  // namespace
}  // namespace vidorra
