// Pictures too large for FFmpeg or for the memory there is.

#include <gtest/gtest.h>

#include <climits>
#include <new>
#include <string>
#include <vector>

#include "picture_probe.h"
#include "support/throw_text.h"
#include "vidorra/core/enum_text.h"
#include "vidorra/core/ffmpeg_error.h"
#include "vidorra/picture/picture.h"
#include "vidorra/picture/video_frame.h"

namespace vidorra {
namespace {

using test::AllocationLimit;
using test::Arena;
using test::ffmpegErrorText;
using test::FramePtr;
using test::kNothing;
using test::newFrame;
using test::noisePicture;
using test::pixelsOf;
using test::slotsOf;

constexpr Size kSize{34, 18};

struct HugeRow {
    const char* name;
    Size size;
    AVPixelFormat format;
    int alignment;
};

std::string nameOf(const testing::TestParamInfo<HugeRow>& info) {
    return info.param.name;
}

class PictureTooLarge : public testing::TestWithParam<HugeRow> {};

TEST_P(PictureTooLarge, IsRefusedByFFmpeg) {
    const HugeRow& row = GetParam();
    // No row comes so far as to need memory; the limit sees to it that a mistake does not take gigabytes.
    const AllocationLimit limit(1 << 20);
    EXPECT_THROW_TEXT(FFmpegError, ffmpegErrorText("Failed to get size of image: ", AVERROR(EINVAL)),
                      Picture(row.size, row.format, AVCOL_RANGE_MPEG, row.alignment));
}

INSTANTIATE_TEST_SUITE_P(
    Picture, PictureTooLarge,
    testing::Values(
        HugeRow{
            .name = "bothSides", .size = {INT_MAX, INT_MAX}, .format = AV_PIX_FMT_YUV420P, .alignment = 1},
        HugeRow{.name = "width", .size = {INT_MAX, 1}, .format = AV_PIX_FMT_GRAY8, .alignment = 1},
        HugeRow{.name = "height", .size = {1, INT_MAX}, .format = AV_PIX_FMT_GRAY8, .alignment = 1},
        HugeRow{.name = "area", .size = {65536, 65536}, .format = AV_PIX_FMT_RGBA, .alignment = 32},
        HugeRow{.name = "nva12Sides", .size = {INT_MAX, INT_MAX}, .format = NVA12, .alignment = 1},
        HugeRow{.name = "nva12Width", .size = {INT_MAX, 1}, .format = NVA12, .alignment = 64},
        HugeRow{.name = "nva12Area", .size = {65536, 65536}, .format = NVA12, .alignment = 1},
        // Sides that FFmpeg takes, but planes that are more than an int counts: 2 to the power of 31 bytes.
        HugeRow{.name = "planes", .size = {16384, 8192}, .format = AV_PIX_FMT_GBRAPF32, .alignment = 1},
        // The colour of these fits; the alpha plane after it does not.
        HugeRow{.name = "nva12AlphaByLines", .size = {1, 1000}, .format = NVA12, .alignment = 1 << 20},
        HugeRow{.name = "nva12AlphaAtTheLimit", .size = {1, 819}, .format = NVA12, .alignment = 1 << 20}),
    nameOf);

class PictureBeyondInt : public testing::TestWithParam<HugeRow> {};

TEST_P(PictureBeyondInt, HasNoMemoryAndDoesNotOverflow) {
    const HugeRow& row = GetParam();
    const AllocationLimit limit(1 << 20);
    EXPECT_THROW(Picture(row.size, row.format, AVCOL_RANGE_MPEG, row.alignment), std::bad_alloc);
}

// 16 bytes for a pixel in four planes come closer to the limit than any other format.
INSTANTIATE_TEST_SUITE_P(
    Picture, PictureBeyondInt,
    testing::Values(
        HugeRow{
            .name = "bySeventeenBytes", .size = {511, 262657}, .format = AV_PIX_FMT_GBRAPF32, .alignment = 1},
        HugeRow{.name = "byOneByte", .size = {16382, 8193}, .format = AV_PIX_FMT_GBRAPF32, .alignment = 1},
        HugeRow{.name = "byNothingAndStillTooMuch",
                .size = {7204, 18631},
                .format = AV_PIX_FMT_GBRAPF32,
                .alignment = 1}),
    nameOf);

TEST(PictureShortage, OfANewPictureIsBadAlloc) {
    const AllocationLimit limit(600);
    EXPECT_NO_THROW(Picture(Size{8, 8}, AV_PIX_FMT_GRAY8, AVCOL_RANGE_MPEG, 1));
    EXPECT_THROW(Picture(kSize, AV_PIX_FMT_GRAY8, AVCOL_RANGE_MPEG, 1), std::bad_alloc);
}

TEST(PictureShortage, CountsTheSpareBytes) {
    const AllocationLimit limit(24 * 24);
    EXPECT_THROW(Picture(Size{24, 24}, AV_PIX_FMT_GRAY8, AVCOL_RANGE_MPEG, 1), std::bad_alloc);
    EXPECT_NO_THROW(Picture(Size{24, 22}, AV_PIX_FMT_GRAY8, AVCOL_RANGE_MPEG, 1));
}

TEST(PictureShortage, LeavesAPictureWithoutMemoryThatCanBeAllocatedLater) {
    Picture source = noisePicture(kSize, AV_PIX_FMT_YUV420P);
    const Picture stolen(std::move(source));
    ASSERT_TRUE(source.empty());
    {
        const AllocationLimit limit(kNothing);
        EXPECT_THROW(source.allocBuffer(32), std::bad_alloc);
    }
    EXPECT_TRUE(source.empty());
    EXPECT_EQ(source.frameSize(), kSize);
    source.allocBuffer(32);
    EXPECT_TRUE(source.editable());
    EXPECT_NE(source.data()[0], stolen.data()[0]);
}

TEST(PictureShortage, OfANewAllocationLeavesTheOldPicture) {
    Picture picture = noisePicture(kSize, AV_PIX_FMT_YUV420P, 1, 1);
    const std::vector<std::uint8_t> pixels = pixelsOf(picture);
    {
        const AllocationLimit limit(kNothing);
        EXPECT_THROW(picture.allocBuffer(64), std::bad_alloc);
    }
    EXPECT_EQ(picture.linesize(), (Picture::Linesizes{34, 17, 17, 0}));
    EXPECT_TRUE(picture.editable());
    EXPECT_EQ(pixelsOf(picture), pixels);
}

TEST(PictureShortage, OfACopyOfPlanesIsBadAlloc) {
    const Picture source = noisePicture(kSize, AV_PIX_FMT_YUV420P);
    {
        const AllocationLimit limit(600);
        EXPECT_THROW(Picture(kSize, source.data().data(), source.linesize().data(), AV_PIX_FMT_YUV420P,
                             AVCOL_RANGE_MPEG, 1),
                     std::bad_alloc);
    }
    EXPECT_TRUE(source.editable());
}

TEST(PictureShortage, OfReferencesFailsEachOperationThatSharesAndLeavesTheSource) {
    const Picture source = noisePicture(kSize, AV_PIX_FMT_YUV420P);
    const VideoFrame frame(noisePicture(kSize, AV_PIX_FMT_NV12), Timestamp(), Frame::NoFlags);
    const Picture alpha = noisePicture(kSize, AV_PIX_FMT_GRAY8);
    Picture target = noisePicture(Size{8, 8}, AV_PIX_FMT_GRAY8);
    {
        const AllocationLimit limit(kNothing);
        EXPECT_THROW(Picture{source}, std::bad_alloc);
        EXPECT_THROW(target = source, std::bad_alloc);
        EXPECT_THROW(VideoFrame(source, Timestamp(), Frame::NoFlags), std::bad_alloc);
        EXPECT_THROW(VideoFrame{frame}, std::bad_alloc);
        EXPECT_THROW(static_cast<void>(source.crop(Rect{2, 2, 4, 4})), std::bad_alloc);
        EXPECT_THROW(static_cast<void>(source.crop(Rect{0, 0, 34, 18})), std::bad_alloc);
        EXPECT_THROW(Picture(source, alpha), std::bad_alloc);
    }
    EXPECT_TRUE(source.editable());
    EXPECT_TRUE(frame.picture().editable());
    EXPECT_TRUE(alpha.editable());
}

TEST(PictureShortage, OfReferencesDoesNotConcernMoving) {
    Picture source = noisePicture(kSize, AV_PIX_FMT_YUV420P);
    const AllocationLimit limit(kNothing);
    Picture moved(std::move(source));
    VideoFrame frame(std::move(moved), Timestamp(), Frame::NoFlags);
    const VideoFrame other(std::move(frame));
    EXPECT_TRUE(other.picture().editable());
}

TEST(PictureShortage, OfAReferenceToAFrameLeavesTheFrame) {
    Arena arena(64);
    const FramePtr frame = newFrame(Size{8, 8}, AV_PIX_FMT_GRAY8);
    frame->buf[0] = arena.buffer(0, 64).release();
    frame->data[0] = arena.at(0);
    {
        const AllocationLimit limit(kNothing);
        EXPECT_THROW(Picture(frame.get()), std::bad_alloc);
    }
    EXPECT_EQ(av_buffer_get_ref_count(frame->buf[0]), 1);
}

TEST(PictureShortage, OfACopyOfAFrameIsBadAlloc) {
    const Picture source = noisePicture(kSize, AV_PIX_FMT_GRAY8);
    const FramePtr frame = newFrame(kSize, AV_PIX_FMT_GRAY8);
    frame->data[0] = source.data()[0];
    frame->linesize[0] = source.linesize()[0];
    const AllocationLimit limit(600);
    EXPECT_THROW(Picture(frame.get()), std::bad_alloc);
}

TEST(PictureShortage, InFillAVFrameLeavesNoReferenceInTheFrame) {
    Arena arena(8);
    const Picture picture = noisePicture(kSize, AV_PIX_FMT_GRAY8);
    const FramePtr frame = makeAvPtr<AVFrame>();
    frame->buf[0] = arena.buffer(0, 8).release();
    {
        const AllocationLimit limit(kNothing);
        EXPECT_THROW(picture.fillAVFrame(frame.get()), std::bad_alloc);
    }
    EXPECT_EQ(arena.freed(), 1);
    EXPECT_EQ(frame->buf[0], nullptr);
    EXPECT_TRUE(picture.editable());
}

// Three buffers; the second is too large for the available memory.
TEST(PictureShortage, InMakeEditableKeepsWhatIsDetachedAndLeavesTheRestShared) {
    Arena arena(5000);
    FramePtr frame = newFrame(Size{8, 8}, AV_PIX_FMT_YUV420P);
    const std::size_t starts[] = {0, 100, 4900};
    const std::size_t sizes[] = {100, 4800, 100};
    for (int i : {0, 1, 2}) {
        frame->buf[i] = arena.buffer(starts[i], sizes[i]).release();
        frame->data[i] = arena.at(starts[i] + 20);
        frame->linesize[i] = 8;
        *arena.at(starts[i] + 20) = static_cast<std::uint8_t>(i + 1);
    }
    Picture picture(frame.get());
    {
        const AllocationLimit limit(1000);
        EXPECT_THROW(picture.makeEditable(), std::bad_alloc);
    }
    const auto slots = slotsOf(picture);
    EXPECT_EQ(slots[0].references, 1);
    EXPECT_EQ(slots[1].references, 2);
    EXPECT_EQ(slots[2].references, 2);
    EXPECT_EQ(picture.data()[0], slots[0].data + 20);
    EXPECT_NE(picture.data()[0], arena.at(20));
    EXPECT_EQ(*picture.data()[0], 1);
    EXPECT_EQ(picture.data()[1], arena.at(120));
    EXPECT_EQ(picture.data()[2], arena.at(4920));
    EXPECT_FALSE(picture.editable());

    picture.makeEditable();
    EXPECT_TRUE(picture.editable());
    EXPECT_EQ(picture.data()[0], slots[0].data + 20) << "what is detached is not copied again";
    EXPECT_EQ(*picture.data()[1], 2);
    EXPECT_EQ(*picture.data()[2], 3);
}

}  // namespace
}  // namespace vidorra
