#include "vidorra/process/z5/picture_scaler.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <new>
#include <stdexcept>
#include <string>

#include "process/z5/device_pictures.h"
#include "process/z5/fake_accelerator.h"
#include "support/counted_marks.h"
#include "support/throw_text.h"
#include "vidorra/picture/default_picture_allocator.h"

namespace vidorra::z5 {
namespace {

using test::devicePicture;
using test::DevicePictureAllocator;
using test::events;
using test::FakeAccelerator;
using test::fakeAccelerator;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kNotEditable = "z5 hw scaler: destination picture is not editable";
constexpr const char* kBadDestination = "z5 hw scaler: incompatible destination picture";
constexpr const char* kBadSource = "z5 hw scaler: incompatible source picture";
constexpr const char* kFormats = "z5 hw scaler: mismatch source and destination pixel format";
constexpr const char* kNoAllocator = "z5 hw scaler: picture allocator is not specified";

class PictureScalerTest : public testing::Test {
protected:
    PictureScalerTest() {
        events().clear();
        fakeAccelerator() = {};
        test::modificationMarks() = 0;
    }

    PictureScaler mScaler{"null"};
    DevicePictureAllocator mAllocator;
};

TEST_F(PictureScalerTest, HandsBothPicturesToTheAcceleratorAsAWhole) {
    for (const AVPixelFormat format : {AV_PIX_FMT_NV12, NVA12}) {
        fakeAccelerator().scalings.clear();
        Picture dst = devicePicture("dst", {.size = {63, 31}, .format = format, .linesize = 96});
        const Picture src = devicePicture("src", {.size = {101, 7}, .format = format, .linesize = 128});
        mScaler.scaleTo(dst, src, false);
        ASSERT_EQ(fakeAccelerator().scalings.size(), 1u);
        const FakeAccelerator::Scaling& call = fakeAccelerator().scalings[0];
        EXPECT_EQ(call.dst.luma, dst.data()[0]);
        EXPECT_EQ(call.dst.chroma, dst.data()[1]);
        EXPECT_EQ(call.dst.alpha, dst.data()[3]);
        EXPECT_EQ(call.dst.linesize, 96);
        EXPECT_EQ(call.dst.width, 63);
        EXPECT_EQ(call.dst.height, 31);
        EXPECT_EQ(call.src.luma, src.data()[0]);
        EXPECT_EQ(call.src.chroma, src.data()[1]);
        EXPECT_EQ(call.src.alpha, src.data()[3]);
        EXPECT_EQ(call.src.linesize, 128);
        EXPECT_EQ(call.src.width, 101);
        EXPECT_EQ(call.src.height, 7);
        EXPECT_EQ(call.dst.alpha != nullptr, format == NVA12);
    }
}

TEST_F(PictureScalerTest, TurnsTheFlagIntoTheAcceleratorsFlags) {
    Picture dst = devicePicture("dst", {.size = {64, 32}});
    const Picture src = devicePicture("src", {.size = {16, 16}});
    mScaler.setPictureAllocator(&mAllocator);
    for (const bool flag : {false, true}) {
        mScaler.scaleTo(dst, src, flag);
        EXPECT_EQ(fakeAccelerator().scalings.back().flags, flag ? 56u : 0u);
        EXPECT_FALSE(mScaler.scale(src, {4, 4}, flag).empty());
        EXPECT_EQ(fakeAccelerator().scalings.back().flags, flag ? 56u : 0u);
    }
    EXPECT_EQ(fakeAccelerator().scalings.size(), 4u);
}

TEST_F(PictureScalerTest, FlushesTheSourceOnlyAndMarksNothing) {
    Picture dst = devicePicture("dst", {.size = {64, 32}});
    mScaler.scaleTo(dst, devicePicture("src", {.size = {16, 16}}), false);
    EXPECT_THAT(events(), ElementsAre("flush src", "process"));
    EXPECT_EQ(test::modificationMarks(), 0);
    // The count counts.
    dst.markModified();
    EXPECT_EQ(test::modificationMarks(), 1);
}

TEST_F(PictureScalerTest, ChecksInOneOrderAndFlushesNothingBefore) {
    for (int failures = 0; failures < 16; ++failures) {
        const bool shared = (failures & 1) != 0;
        const bool badDestination = (failures & 2) != 0;
        const bool badSource = (failures & 4) != 0;
        const bool otherFormat = (failures & 8) != 0;
        Picture dst = devicePicture("dst", {.size = {64, 32}, .dma = !badDestination});
        const Picture second = shared ? dst : Picture();
        const Picture src = devicePicture(
            "src", {.size = {16, 16}, .format = otherFormat ? NVA12 : AV_PIX_FMT_NV12, .dma = !badSource});
        if (failures == 0) {
            EXPECT_NO_THROW(mScaler.scaleTo(dst, src, false));
            events().clear();
            continue;
        }
        const char* const text = shared           ? kNotEditable
                                 : badDestination ? kBadDestination
                                 : badSource      ? kBadSource
                                                  : kFormats;
        EXPECT_THROW_TEXT(std::invalid_argument, text, mScaler.scaleTo(dst, src, false));
        EXPECT_THAT(events(), IsEmpty()) << failures;
    }
}

TEST_F(PictureScalerTest, RefusesEitherFormatForTheOther) {
    Picture dst = devicePicture("dst", {.size = {64, 32}, .format = NVA12});
    EXPECT_THROW_TEXT(std::invalid_argument, kFormats,
                      mScaler.scaleTo(dst, devicePicture("src", {.size = {16, 16}}), false));
}

TEST_F(PictureScalerTest, RefusesEmptyPictures) {
    Picture dst = devicePicture("dst", {.size = {64, 32}});
    Picture empty;
    EXPECT_THROW_TEXT(std::invalid_argument, kNotEditable, mScaler.scaleTo(empty, dst, false));
    EXPECT_THROW_TEXT(std::invalid_argument, kBadSource, mScaler.scaleTo(dst, empty, false));
}

TEST_F(PictureScalerTest, TakesTheResultFromItsAllocatorInEvenSizesAndTheFormatAndRangeOfTheSource) {
    mScaler.setPictureAllocator(&mAllocator);
    const Picture first =
        mScaler.scale(devicePicture("src", {.size = {16, 16}, .format = NVA12, .range = AVCOL_RANGE_JPEG}),
                      {33, 21}, false);
    const Picture second = mScaler.scale(devicePicture("src", {.size = {15, 15}}), {64, 20}, false);
    EXPECT_THAT(mAllocator.requests,
                ElementsAre(DevicePictureAllocator::Request{{32, 20}, NVA12, AVCOL_RANGE_JPEG},
                            DevicePictureAllocator::Request{{64, 20}, AV_PIX_FMT_NV12, AVCOL_RANGE_MPEG}));
    EXPECT_EQ(first.frameSize(), (Size{32, 20}));
    EXPECT_EQ(first.pixelFormat(), NVA12);
    EXPECT_EQ(first.colorRange(), AVCOL_RANGE_JPEG);
    EXPECT_TRUE(first.editable());
    EXPECT_EQ(second.frameSize(), (Size{64, 20}));
    EXPECT_THAT(events(), ElementsAre("flush src", "process", "flush src", "process"));
    ASSERT_EQ(fakeAccelerator().scalings.size(), 2u);
    EXPECT_EQ(fakeAccelerator().scalings[0].dst.luma, first.data()[0]);
    EXPECT_EQ(fakeAccelerator().scalings[0].dst.width, 32);
    EXPECT_EQ(fakeAccelerator().scalings[0].dst.height, 20);
    EXPECT_EQ(fakeAccelerator().scalings[0].src.width, 16);
}

TEST_F(PictureScalerTest, RefusesToScaleWithoutAnAllocatorBeforeAnyOtherCheck) {
    EXPECT_THROW_TEXT(std::runtime_error, kNoAllocator, (void)mScaler.scale(Picture(), {4, 4}, false));
    mScaler.setPictureAllocator(&mAllocator);
    mScaler.setPictureAllocator(nullptr);
    const Picture src = devicePicture("src", {.size = {16, 16}});
    EXPECT_THROW_TEXT(std::runtime_error, kNoAllocator, (void)mScaler.scale(src, {4, 4}, false));
    EXPECT_THAT(mAllocator.requests, IsEmpty());
    EXPECT_THAT(events(), IsEmpty());
}

TEST_F(PictureScalerTest, NeedsNoAllocatorToFillAPictureOfTheCallers) {
    Picture dst = devicePicture("dst", {.size = {64, 32}});
    EXPECT_NO_THROW(mScaler.scaleTo(dst, devicePicture("src", {.size = {16, 16}}), false));
}

TEST_F(PictureScalerTest, AllocatesBeforeItChecksTheSource) {
    mScaler.setPictureAllocator(&mAllocator);
    const Picture heap({16, 16}, AV_PIX_FMT_NV12, AVCOL_RANGE_MPEG, 32);
    EXPECT_THROW_TEXT(std::invalid_argument, kBadSource, (void)mScaler.scale(heap, {4, 4}, false));
    EXPECT_EQ(mAllocator.requests.size(), 1u);
}

TEST_F(PictureScalerTest, RefusesPicturesOfAnAllocatorThatTheDeviceDoesNotReach) {
    mScaler.setPictureAllocator(getDefaultPictureAllocator());
    const Picture src = devicePicture("src", {.size = {16, 16}});
    EXPECT_THROW_TEXT(std::invalid_argument, kBadDestination, (void)mScaler.scale(src, {4, 4}, false));
}

TEST_F(PictureScalerTest, PassesOnWhatTheAllocatorThrows) {
    mAllocator.fails = true;
    mScaler.setPictureAllocator(&mAllocator);
    const Picture src = devicePicture("src", {.size = {16, 16}});
    EXPECT_THROW((void)mScaler.scale(src, {4, 4}, false), std::bad_alloc);
    EXPECT_THAT(events(), IsEmpty());
}

TEST_F(PictureScalerTest, PassesOnWhatTheAcceleratorThrowsAndReleasesThePictures) {
    Picture dst = devicePicture("dst", {.size = {64, 32}});
    const Picture src = devicePicture("src", {.size = {16, 16}});
    fakeAccelerator().fails = true;
    EXPECT_THROW_TEXT(FakeAccelerator::Error, "the accelerator failed", mScaler.scaleTo(dst, src, false));
    EXPECT_TRUE(dst.editable());
    EXPECT_TRUE(src.editable());
}

}  // namespace
}  // namespace vidorra::z5
