// Which operations mark the picture that they write as modified; this program counts the marks.

#include <gtest/gtest.h>

#include <cstdlib>
#include <limits>
#include <stdexcept>
#include <vector>

#include "support/counted_marks.h"
#include "vidorra/picture/default_picture_allocator.h"
#include "vidorra/process/apply_lut.h"
#include "vidorra/process/chroma_keying.h"
#include "vidorra/process/compose.h"
#include "vidorra/process/drawing.h"
#include "vidorra/process/scaler.h"

namespace vidorra {
namespace {

constexpr Color kRed{255, 0, 0, 255};
constexpr AVColorRange kLimited = AVCOL_RANGE_MPEG;
constexpr AVColorRange kFull = AVCOL_RANGE_JPEG;

// In one buffer, which is one mark.
Picture picture(AVPixelFormat format, AVColorRange range = kLimited) {
    return Picture(Size{16, 16}, format, range, 32);
}

template <class Call>
int marksOf(const Call& call) {
    const int before = test::modificationMarks();
    call();
    return test::modificationMarks() - before;
}

TEST(ModificationMarks, FillRectangleMarksThePictureOnce) {
    for (const AVPixelFormat format : {AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUVA420P, AV_PIX_FMT_NV12}) {
        Picture target = picture(format);
        EXPECT_EQ(marksOf([&] { fillRectangle(target, {2, 2, 4, 4}, kRed); }), 1);
        EXPECT_EQ(marksOf([&] { fillRectangle(target, kRed); }), 1);
    }
}

TEST(ModificationMarks, FillRectangleMarksAlsoWhereRoundingLeavesNothing) {
    Picture target = picture(AV_PIX_FMT_YUV420P);
    EXPECT_EQ(marksOf([&] { fillRectangle(target, {3, 3, 1, 1}, kRed); }), 1);
}

TEST(ModificationMarks, FillRectangleOutsideThePictureMarksNothing) {
    Picture target = picture(AV_PIX_FMT_YUV420P);
    EXPECT_EQ(marksOf([&] { fillRectangle(target, {16, 0, 4, 4}, kRed); }), 0);
    EXPECT_EQ(marksOf([&] { fillRectangle(target, {0, 0, 4, 0}, kRed); }), 0);
}

TEST(ModificationMarks, AFailedFillRectangleMarksNothing) {
    Picture packed = picture(AV_PIX_FMT_YUYV422);
    EXPECT_EQ(marksOf([&] { EXPECT_THROW(fillRectangle(packed, kRed), std::runtime_error); }), 0);
}

TEST(ModificationMarks, FillWithDebugDataMarksNothing) {
    Picture target = picture(AV_PIX_FMT_NV12);
    EXPECT_EQ(marksOf([&] { fillWithDebugData(target); }), 0);
}

TEST(ModificationMarks, ApplyLutMarksNothing) {
    Picture target = picture(AV_PIX_FMT_NV12);
    EXPECT_EQ(marksOf([&] { applyLUT(target, 0, std::vector<unsigned char>(256, 9)); }), 0);
}

TEST(ModificationMarks, ChromaKeyingMarksNothingOfItsOwn) {
    Picture target = picture(AV_PIX_FMT_YUVA420P);
    EXPECT_EQ(marksOf([&] { chromaKeyingInPlace(target, kRed, 0, 0); }), 0);
    EXPECT_EQ(marksOf([&] { (void)chromaKeying(target, kRed, 0, 0); }), 0);
}

TEST(ModificationMarks, ScaleMarksWhatLibswscaleMade) {
    Scaler scaler;
    const Picture src = picture(AV_PIX_FMT_NV12);
    EXPECT_EQ(marksOf([&] { (void)scaler.scale(src, {8, 8}); }), 1);
    EXPECT_EQ(marksOf([&] { (void)scaler.scale(src, {16, 16}, AV_PIX_FMT_RGB24, kFull); }), 1);
}

TEST(ModificationMarks, ScaleMarksNothingWhereNothingIsMade) {
    Scaler scaler;
    const Picture src = picture(AV_PIX_FMT_NV12);
    EXPECT_EQ(marksOf([&] { (void)scaler.scale(src, {16, 16}); }), 0);
    EXPECT_EQ(marksOf([&] { (void)scaler.scale(src, {16, 16}, AV_PIX_FMT_NV12, kLimited); }), 0);
    EXPECT_EQ(marksOf([&] { (void)scaler.scale(src, {0, 8}); }), 0);
}

TEST(ModificationMarks, TheConversionByTablesMarksItsPicture) {
    const Picture src = picture(AV_PIX_FMT_NV12);
    EXPECT_EQ(marksOf([&] {
                  (void)tryConvertColorRange(getDefaultPictureAllocator(), src, AV_PIX_FMT_YUV420P, kFull);
              }),
              1);
    Scaler scaler;
    EXPECT_EQ(marksOf([&] { (void)scaler.scale(src, {16, 16}, AV_PIX_FMT_YUV420P, kFull); }), 1);
}

TEST(ModificationMarks, ComposeMarksTheDestinationOfACopyAndOfABlend) {
    Picture dst = picture(AV_PIX_FMT_NV12);
    const Picture overlay = picture(AV_PIX_FMT_NV12);
    EXPECT_EQ(marksOf([&] { compose(dst, overlay, {4, 4}, CheckColorRange::Yes, 1.0, 1); }), 1);
    EXPECT_EQ(marksOf([&] { compose(dst, overlay, {4, 4}, CheckColorRange::Yes, 0.5, 2); }), 1);
}

TEST(ModificationMarks, ComposeMarksAlsoWhereTheOpacityIsTooLittleToDraw) {
    Picture dst = picture(AV_PIX_FMT_NV12);
    const Picture overlay = picture(AV_PIX_FMT_NV12);
    for (const double opacity : {0.001, std::numeric_limits<double>::quiet_NaN()}) {
        EXPECT_EQ(marksOf([&] {
                      compose(dst, overlay, {4, 4}, CheckColorRange::Yes, opacity, 1);
                  }),
                  1)
            << opacity;
    }
}

TEST(ModificationMarks, AComposeWhoseBlendFailsMarksNothing) {
    Picture dst = picture(AV_PIX_FMT_NV12);
    const Picture overlay = picture(AV_PIX_FMT_NV12);
    setenv("VDR_ALPHABLEND_NUM_THREADS", "some", 1);
    EXPECT_EQ(
        marksOf([&] {
            EXPECT_THROW(compose(dst, overlay, {0, 0}, CheckColorRange::Yes, 0.5, 1), std::invalid_argument);
        }),
        0);
    unsetenv("VDR_ALPHABLEND_NUM_THREADS");
    // The view of the visible part has been released.
    EXPECT_TRUE(overlay.editable());
}

TEST(ModificationMarks, ComposeMarksNothingWhereNothingShows) {
    Picture dst = picture(AV_PIX_FMT_NV12);
    const Picture overlay = picture(AV_PIX_FMT_NV12);
    EXPECT_EQ(marksOf([&] { compose(dst, overlay, {16, 0}, CheckColorRange::Yes, 1.0, 1); }), 0);
    EXPECT_EQ(marksOf([&] { compose(dst, overlay, {0, 0}, CheckColorRange::Yes, 0.0, 1); }), 0);
}

TEST(ModificationMarks, AComposeThatIsRefusedMarksNothing) {
    Picture dst = picture(AV_PIX_FMT_YUV420P);
    const Picture overlay = picture(AV_PIX_FMT_YUV420P);
    EXPECT_EQ(
        marksOf([&] {
            EXPECT_THROW(compose(dst, overlay, {0, 0}, CheckColorRange::Yes, 0.5, 1), std::runtime_error);
        }),
        0);
}

}  // namespace
}  // namespace vidorra
