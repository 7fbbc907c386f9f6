// Pictures that share or copy the content of an AVFrame.

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "picture_probe.h"
#include "support/throw_text.h"
#include "vidorra/core/enum_text.h"
#include "vidorra/core/ffmpeg_error.h"
#include "vidorra/picture/picture.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

namespace vidorra {
namespace {

using test::Arena;
using test::bufferCount;
using test::ffmpegErrorText;
using test::FramePtr;
using test::newFrame;
using test::noisePicture;
using test::pixelsOf;
using test::slotsOf;

// A frame that points to the planes of a picture and owns none of them.
FramePtr frameWithoutBuffers(const Picture& picture) {
    FramePtr frame = newFrame(picture.frameSize(), picture.pixelFormat(), picture.colorRange());
    for (int i = 0; i < 4; ++i) {
        frame->data[i] = picture.data()[i];
        frame->linesize[i] = picture.linesize()[i];
    }
    return frame;
}

FramePtr frameOf(const Picture& picture) {
    FramePtr frame = makeAvPtr<AVFrame>();
    picture.fillAVFrame(frame.get());
    return frame;
}

TEST(PictureFromFrame, OfAFreshFrameIsTheDefaultPicture) {
    const FramePtr frame = makeAvPtr<AVFrame>();
    const Picture picture(frame.get());
    EXPECT_TRUE(picture.empty());
    EXPECT_EQ(picture.frameSize(), (Size{0, 0}));
    EXPECT_EQ(picture.pixelFormat(), AV_PIX_FMT_NONE);
    EXPECT_EQ(picture.colorRange(), AVCOL_RANGE_UNSPECIFIED);
    EXPECT_EQ(picture.data(), Picture::Planes{});
}

TEST(PictureFromFrame, SharesTheMemoryAndTakesAllFields) {
    Arena arena(1000);
    FramePtr frame = newFrame(Size{16, 8}, AV_PIX_FMT_YUV420P, AVCOL_RANGE_JPEG);
    frame->buf[0] = arena.buffer(0, 1000).release();
    frame->data[0] = arena.at(10);
    frame->data[1] = arena.at(500);
    frame->data[2] = arena.at(700);
    frame->linesize[0] = 24;
    frame->linesize[1] = 12;
    frame->linesize[2] = 13;
    frame->linesize[3] = 14;
    {
        const Picture picture(frame.get());
        EXPECT_EQ(picture.frameSize(), (Size{16, 8}));
        EXPECT_EQ(picture.pixelFormat(), AV_PIX_FMT_YUV420P);
        EXPECT_EQ(picture.colorRange(), AVCOL_RANGE_JPEG);
        EXPECT_EQ(picture.data(), (Picture::Planes{arena.at(10), arena.at(500), arena.at(700), nullptr}));
        EXPECT_EQ(picture.linesize(), (Picture::Linesizes{24, 12, 13, 14}));
        EXPECT_EQ(av_buffer_get_ref_count(frame->buf[0]), 2);
        EXPECT_FALSE(picture.editable());
        frame.reset();
        EXPECT_TRUE(picture.editable());
        EXPECT_EQ(arena.freed(), 0);
    }
    EXPECT_EQ(arena.freed(), 1);
}

TEST(PictureFromFrame, KeepsRowsThatStandBottomUpInSharedMemory) {
    Arena arena(64);
    FramePtr frame = newFrame(Size{8, 8}, AV_PIX_FMT_GRAY8);
    frame->buf[0] = arena.buffer(0, 64).release();
    frame->data[0] = arena.at(56);
    frame->linesize[0] = -8;
    const Picture picture(frame.get());
    EXPECT_EQ(picture.data()[0], arena.at(56));
    EXPECT_EQ(picture.linesize()[0], -8);
    EXPECT_FALSE(picture.empty());
}

TEST(PictureFromFrame, DropsAnUnrelatedBuffer) {
    Arena arena(1000);
    FramePtr frame = newFrame(Size{16, 8}, AV_PIX_FMT_YUV420P);
    frame->buf[0] = arena.buffer(500, 500).release();
    frame->buf[1] = arena.buffer(0, 500).release();
    frame->data[0] = arena.at(500);
    frame->data[1] = arena.at(700);
    frame->data[2] = arena.at(800);
    const Picture picture(frame.get());
    const auto slots = slotsOf(picture);
    EXPECT_EQ(slots[0].data, arena.at(500));
    EXPECT_EQ(slots[0].references, 2);
    EXPECT_EQ(bufferCount(picture), 1);
    EXPECT_EQ(av_buffer_get_ref_count(frame->buf[1]), 1);
}

TEST(PictureFromFrame, DropsAnUnrelatedFirstBuffer) {
    Arena arena(1000);
    FramePtr frame = newFrame(Size{16, 8}, AV_PIX_FMT_GRAY8);
    frame->buf[0] = arena.buffer(0, 500).release();
    frame->buf[1] = arena.buffer(500, 500).release();
    frame->data[0] = arena.at(500);
    const Picture picture(frame.get());
    EXPECT_FALSE(picture.empty());
    EXPECT_EQ(slotsOf(picture)[0].data, arena.at(500));
    EXPECT_EQ(bufferCount(picture), 1);
}

TEST(PictureFromFrame, SortsBuffersInDescendingOrder) {
    Arena arena(400);
    FramePtr frame = newFrame(Size{8, 8}, AV_PIX_FMT_YUVA420P);
    for (int i = 0; i < 4; ++i) {
        frame->buf[i] = arena.buffer(300 - 100 * i, 100).release();
        frame->data[i] = arena.at(300 - 100 * i);
        frame->linesize[i] = 8;
        std::memset(arena.at(300 - 100 * i), i + 1, 100);
    }
    const Picture picture(frame.get());
    const auto slots = slotsOf(picture);
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(slots[i].data, arena.at(100 * i));
        EXPECT_EQ(slots[i].references, 2);
        EXPECT_EQ(picture.data()[i], arena.at(300 - 100 * i));
        EXPECT_EQ(*picture.data()[i], i + 1);
    }
}

TEST(PictureFromFrame, ClosesAGapBetweenBuffers) {
    Arena arena(200);
    FramePtr frame = newFrame(Size{8, 8}, AV_PIX_FMT_NV12);
    frame->buf[0] = arena.buffer(100, 100).release();
    frame->buf[3] = arena.buffer(0, 100).release();
    frame->data[0] = arena.at(100);
    frame->data[1] = arena.at(0);
    {
        const Picture picture(frame.get());
        EXPECT_EQ(slotsOf(picture)[0].data, arena.at(0));
        EXPECT_EQ(slotsOf(picture)[1].data, arena.at(100));
        EXPECT_EQ(bufferCount(picture), 2);
    }
}

TEST(PictureFromFrame, ABufferWithADataPointerPastTheFourthOnlyIsDropped) {
    Arena arena(200);
    FramePtr frame = newFrame(Size{8, 8}, AV_PIX_FMT_GRAY8);
    frame->buf[0] = arena.buffer(0, 100).release();
    frame->buf[1] = arena.buffer(100, 100).release();
    frame->data[0] = arena.at(0);
    frame->data[5] = arena.at(100);
    const Picture picture(frame.get());
    EXPECT_EQ(bufferCount(picture), 1);
    EXPECT_EQ(av_buffer_get_ref_count(frame->buf[1]), 1);
}

TEST(PictureFromFrame, DoesNotLookAtBuffersPastTheFourth) {
    Arena arena(200);
    FramePtr frame = newFrame(Size{8, 8}, AV_PIX_FMT_NV12);
    frame->buf[0] = arena.buffer(0, 100).release();
    frame->buf[4] = arena.buffer(100, 100).release();
    frame->data[0] = arena.at(0);
    frame->data[1] = arena.at(100);
    const Picture picture(frame.get());
    EXPECT_EQ(bufferCount(picture), 1);
    EXPECT_EQ(picture.data()[1], arena.at(100));
    EXPECT_EQ(av_buffer_get_ref_count(frame->buf[4]), 1);
}

TEST(PictureFromFrame, WithoutAPlaneInABufferIsEmptyButKeepsThePlanes) {
    Arena arena(200);
    FramePtr frame = newFrame(Size{8, 8}, AV_PIX_FMT_GRAY8);
    frame->buf[0] = arena.buffer(0, 100).release();
    frame->data[0] = arena.at(100);
    const Picture picture(frame.get());
    EXPECT_TRUE(picture.empty());
    EXPECT_EQ(picture.data()[0], arena.at(100));
    EXPECT_EQ(picture.frameSize(), (Size{8, 8}));
}

TEST(PictureFromFrame, CopiesAFrameWithoutBuffersToLineSizesForAlignmentOne) {
    const Picture original = noisePicture(Size{33, 17}, AV_PIX_FMT_YUV420P, 1, 64);
    const FramePtr frame = frameWithoutBuffers(original);
    const Picture picture(frame.get());
    EXPECT_EQ(picture.linesize(), (Picture::Linesizes{33, 17, 17, 0}));
    EXPECT_EQ(bufferCount(picture), 1);
    EXPECT_TRUE(picture.editable());
    EXPECT_TRUE(original.editable());
    EXPECT_EQ(picture.colorRange(), AVCOL_RANGE_MPEG);
    EXPECT_EQ(pixelsOf(picture), pixelsOf(original));
}

TEST(PictureFromFrame, CopiesAFrameWithoutAFirstBufferWhateverTheOthersAre) {
    Arena arena(100);
    const Picture original = noisePicture(Size{8, 8}, AV_PIX_FMT_GRAY8);
    const FramePtr frame = frameWithoutBuffers(original);
    frame->buf[1] = arena.buffer(0, 100).release();
    const Picture picture(frame.get());
    EXPECT_NE(picture.data()[0], original.data()[0]);
    EXPECT_TRUE(picture.editable());
    EXPECT_EQ(av_buffer_get_ref_count(frame->buf[1]), 1);
    EXPECT_EQ(pixelsOf(picture), pixelsOf(original));
}

TEST(PictureFromFrame, CopiesRowsThatStandBottomUpTopDown) {
    const Picture original = noisePicture(Size{33, 17}, AV_PIX_FMT_RGB24);
    const FramePtr frame = frameWithoutBuffers(original);
    frame->data[0] += 16 * frame->linesize[0];
    frame->linesize[0] = -frame->linesize[0];
    const Picture flipped(frame.get());
    EXPECT_EQ(flipped.linesize()[0], 99);
    for (int row = 0; row < 17; ++row) {
        EXPECT_EQ(std::memcmp(flipped.data()[0] + 99 * row,
                              original.data()[0] + original.linesize()[0] * (16 - row), 99),
                  0)
            << "row " << row;
    }
}

TEST(PictureFromFrame, CopiesAFrameOfNva12WithItsAlpha) {
    const Picture original = noisePicture(Size{33, 17}, NVA12, 1, 64);
    const FramePtr frame = frameWithoutBuffers(original);
    const Picture picture(frame.get());
    EXPECT_EQ(picture.linesize(), (Picture::Linesizes{33, 34, 0, 33}));
    EXPECT_EQ(pixelsOf(picture), pixelsOf(original));
}

TEST(PictureFromFrame, CopiesAPalettedFrameWithAndWithoutItsPalette) {
    const Picture original = noisePicture(Size{33, 17}, AV_PIX_FMT_PAL8);
    const FramePtr frame = frameWithoutBuffers(original);
    EXPECT_EQ(pixelsOf(Picture(frame.get())), pixelsOf(original));
    frame->data[1] = nullptr;
    const std::vector<std::uint8_t> pixels = pixelsOf(Picture(frame.get()));
    const std::vector<std::uint8_t> expected = pixelsOf(original);
    EXPECT_TRUE(std::equal(expected.begin(), expected.begin() + 33 * 17, pixels.begin()));
}

TEST(PictureFromFrame, CopiesNothingFromAFrameWithoutPixels) {
    const FramePtr frame = newFrame(Size{0, 17}, AV_PIX_FMT_YUV420P, AVCOL_RANGE_JPEG);
    const Picture picture(frame.get());
    EXPECT_TRUE(picture.empty());
    EXPECT_EQ(picture.frameSize(), (Size{0, 17}));
    EXPECT_EQ(picture.pixelFormat(), AV_PIX_FMT_YUV420P);
    EXPECT_EQ(picture.colorRange(), AVCOL_RANGE_JPEG);
}

TEST(PictureFromFrame, OfAFrameWithoutBuffersAndPlanesHasPrivateMemoryAllTheSame) {
    for (const AVPixelFormat format : {AV_PIX_FMT_YUV420P, AV_PIX_FMT_PAL8, AV_PIX_FMT_RGBA}) {
        const FramePtr frame = newFrame(Size{33, 17}, format);
        const Picture picture(frame.get());
        EXPECT_FALSE(picture.empty());
        EXPECT_TRUE(picture.editable());
        EXPECT_NE(picture.data()[0], nullptr);
    }
}

TEST(PictureFromFrame, RefusesAFrameWithoutBuffersInAnUnknownFormat) {
    const FramePtr frame = newFrame(Size{8, 8}, AV_PIX_FMT_NONE);
    EXPECT_THROW_TEXT(FFmpegError, ffmpegErrorText("Failed to get size of image: ", AVERROR(EINVAL)),
                      Picture(frame.get()));
}

TEST(PictureFromFrame, RefusesTheFormatToWhichFFmpegGaveTheNumberOfNva12) {
    const char* name = av_get_pix_fmt_name(NVA12);
    ASSERT_NE(name, nullptr);
    ASSERT_STRNE(name, "nva12") << "this FFmpeg has the format itself";
    FramePtr frame = newFrame(Size{16, 8}, NVA12);
    ASSERT_EQ(av_frame_get_buffer(frame.get(), 0), 0);
    ASSERT_EQ(frame->data[3], nullptr);
    try {
        const Picture picture(frame.get());
        FAIL() << "a frame in the format " << name << " was taken for NVA12";
    } catch (const FFmpegError& error) {
        EXPECT_EQ(error.error(), AvError::InvalidArgument);
    }
    EXPECT_EQ(av_buffer_get_ref_count(frame->buf[0]), 1);
}

TEST(PictureFromFrame, TakesOurOwnNva12) {
    const Picture original = noisePicture(Size{33, 17}, NVA12);
    const FramePtr frame = frameOf(original);
    const Picture picture(frame.get());
    EXPECT_EQ(picture.pixelFormat(), NVA12);
    EXPECT_EQ(picture.data(), original.data());
    EXPECT_EQ(picture.linesize(), original.linesize());
}

}  // namespace
}  // namespace vidorra
