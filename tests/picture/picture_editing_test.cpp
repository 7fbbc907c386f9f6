// Making pictures private and writing into them.

#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>
#include <vector>

#include "picture_probe.h"
#include "support/throw_text.h"
#include "vidorra/core/enum_text.h"
#include "vidorra/picture/picture.h"

namespace vidorra {
namespace {

using test::Arena;
using test::bufferCount;
using test::FramePtr;
using test::newFrame;
using test::noisePicture;
using test::pictureInSeparateBuffers;
using test::pixelsOf;
using test::slotsOf;

constexpr const char* kNotEditable = "copyFrom: picture is not editable";
constexpr const char* kMismatch = "copyFrom: mismath picture size / pixel format";

TEST(PictureMakeEditable, LeavesAPictureAloneThatNobodyShares) {
    for (const bool separate : {false, true}) {
        SCOPED_TRACE(separate);
        Picture picture = separate ? pictureInSeparateBuffers(Size{34, 18}, AV_PIX_FMT_YUV420P)
                                   : noisePicture(Size{34, 18}, AV_PIX_FMT_YUV420P);
        const Picture::Planes planes = picture.data();
        picture.makeEditable();
        EXPECT_EQ(picture.data(), planes);
        EXPECT_TRUE(picture.editable());
    }
}

TEST(PictureMakeEditable, LeavesAnEmptyPictureEmpty) {
    Picture picture;
    picture.makeEditable();
    EXPECT_TRUE(picture.empty());
    EXPECT_FALSE(picture.editable());
}

TEST(PictureMakeEditable, GivesACopyPixelsOfItsOwn) {
    const Picture source = noisePicture(Size{34, 18}, AV_PIX_FMT_YUV420P);
    const Picture::Planes planes = source.data();
    const std::vector<std::uint8_t> pixels = pixelsOf(source);
    Picture copy(source);
    copy.makeEditable();

    EXPECT_EQ(source.data(), planes);
    EXPECT_TRUE(source.editable());
    EXPECT_TRUE(copy.editable());
    EXPECT_EQ(copy.frameSize(), source.frameSize());
    EXPECT_EQ(copy.pixelFormat(), source.pixelFormat());
    EXPECT_EQ(copy.colorRange(), source.colorRange());
    EXPECT_EQ(copy.linesize(), source.linesize());
    EXPECT_EQ(pixelsOf(copy), pixels);

    const auto sourceSlot = slotsOf(source)[0];
    const auto copySlot = slotsOf(copy)[0];
    EXPECT_NE(copySlot.data, sourceSlot.data);
    EXPECT_EQ(copySlot.size, sourceSlot.size) << "the spare bytes are copied too";
    EXPECT_EQ(bufferCount(copy), 1) << "one copy for all three planes";
    for (int plane : {0, 1, 2}) {
        EXPECT_EQ(copy.data()[plane] - copySlot.data, source.data()[plane] - sourceSlot.data);
    }
    EXPECT_EQ(copy.data()[3], nullptr);

    test::fillWithNoise(copy, 2);
    EXPECT_EQ(pixelsOf(source), pixels);
}

TEST(PictureMakeEditable, DetachesEachBufferOfACopy) {
    for (const AVPixelFormat format : {AV_PIX_FMT_YUVA420P, NVA12}) {
        const Picture source = pictureInSeparateBuffers(Size{34, 18}, format);
        Picture copy(source);
        copy.makeEditable();
        EXPECT_TRUE(copy.editable());
        EXPECT_TRUE(source.editable());
        EXPECT_EQ(pixelsOf(copy), pixelsOf(source));
        EXPECT_EQ(bufferCount(copy), bufferCount(source));
        for (int plane = 0; plane < 4; ++plane) {
            EXPECT_EQ(copy.data()[plane] == nullptr, source.data()[plane] == nullptr);
            if (source.data()[plane] != nullptr) {
                EXPECT_NE(copy.data()[plane], source.data()[plane]);
            }
        }
    }
}

TEST(PictureMakeEditable, CopiesOnlyTheBufferThatIsShared) {
    for (const int shared : {0, 1, 2}) {
        SCOPED_TRACE(shared);
        Picture picture = pictureInSeparateBuffers(Size{34, 18}, AV_PIX_FMT_YUV420P);
        const std::vector<std::uint8_t> pixels = pixelsOf(picture);
        const auto before = slotsOf(picture);
        const Picture::Planes planes = picture.data();
        const FramePtr frame = makeAvPtr<AVFrame>();
        picture.fillAVFrame(frame.get());
        for (int i : {0, 1, 2}) {
            if (i != shared) {
                av_buffer_unref(&frame->buf[i]);
            }
        }
        picture.makeEditable();
        EXPECT_TRUE(picture.editable());
        EXPECT_EQ(av_buffer_get_ref_count(frame->buf[shared]), 1);
        const auto after = slotsOf(picture);
        for (int i : {0, 1, 2}) {
            EXPECT_EQ(after[i].data == before[i].data, i != shared);
        }
        for (int plane : {0, 1, 2}) {
            EXPECT_EQ(picture.data()[plane] == planes[plane], planes[plane] != before[shared].data);
        }
        EXPECT_EQ(pixelsOf(picture), pixels);
    }
}

// Two buffers side by side, so that the second begins where the first ends.
TEST(PictureMakeEditable, DoesNotMoveAPlaneThatStandsAtTheEndOfTheSharedBuffer) {
    Arena arena(200);
    FramePtr frame = newFrame(Size{8, 8}, AV_PIX_FMT_NV12);
    frame->buf[0] = arena.buffer(0, 100).release();
    frame->buf[1] = arena.buffer(100, 100).release();
    frame->data[0] = arena.at(0);
    frame->data[1] = arena.at(100);
    Picture picture(frame.get());
    av_buffer_unref(&frame->buf[1]);
    picture.makeEditable();
    EXPECT_NE(picture.data()[0], arena.at(0));
    EXPECT_EQ(picture.data()[1], arena.at(100));
    EXPECT_TRUE(picture.editable());
}

TEST(PictureMakeEditable, MovesPlanesOnTheFirstAndLastByteAndNoOthers) {
    Arena arena(300);
    std::uint8_t* planes[4] = {arena.at(100), arena.at(199), arena.at(99), arena.at(200)};
    const int linesizes[4] = {};
    const MemBuffer buffer(arena.buffer(100, 100).get());
    Picture picture(buffer, Size{8, 8}, planes, linesizes, AV_PIX_FMT_YUVA420P, AVCOL_RANGE_JPEG);
    picture.makeEditable();
    const auto slot = slotsOf(picture)[0];
    EXPECT_NE(slot.data, arena.at(100));
    EXPECT_EQ(picture.data(),
              (Picture::Planes{const_cast<std::uint8_t*>(slot.data),
                               const_cast<std::uint8_t*>(slot.data) + 99, arena.at(99), arena.at(200)}));
    EXPECT_EQ(buffer.useCount(), 1);
}

TEST(PictureMakeEditable, CopiesReadOnlyMemory) {
    Arena arena(64);
    std::memset(arena.at(0), 5, 64);
    std::uint8_t* planes[4] = {arena.at(0)};
    const int linesizes[4] = {8};
    Picture picture(MemBuffer(arena.buffer(0, 64, AV_BUFFER_FLAG_READONLY).get()), Size{8, 8}, planes,
                    linesizes, AV_PIX_FMT_GRAY8, AVCOL_RANGE_JPEG);
    EXPECT_FALSE(picture.empty());
    EXPECT_FALSE(picture.editable());
    picture.makeEditable();
    EXPECT_TRUE(picture.editable());
    EXPECT_EQ(pixelsOf(picture), std::vector<std::uint8_t>(64, 5));
    EXPECT_EQ(arena.freed(), 1);
}

TEST(PictureMakeEditable, OfAPictureThatHoldsOneBufferTwiceMakesItEditable) {
    Arena arena(100);
    FramePtr frame = newFrame(Size{8, 8}, AV_PIX_FMT_NV12);
    frame->buf[0] = arena.buffer(0, 100).release();
    frame->buf[1] = av_buffer_ref(frame->buf[0]);
    frame->data[0] = arena.at(0);
    frame->data[1] = arena.at(64);
    frame->linesize[0] = frame->linesize[1] = 8;
    for (std::size_t i = 0; i < 100; ++i) {
        *arena.at(i) = static_cast<std::uint8_t>(i);
    }
    Picture picture(frame.get());
    const std::vector<std::uint8_t> pixels = pixelsOf(picture);
    frame.reset();
    EXPECT_FALSE(picture.editable());
    picture.makeEditable();
    EXPECT_TRUE(picture.editable());
    EXPECT_EQ(pixelsOf(picture), pixels);
}

TEST(PictureMakeEditable, OfACropCopiesTheWholeBufferAndKeepsThePlace) {
    const Picture source = noisePicture(Size{34, 18}, AV_PIX_FMT_YUVA420P);
    Picture part = source.crop(Rect{4, 6, 10, 8});
    const std::vector<std::uint8_t> pixels = pixelsOf(part);
    const std::ptrdiff_t offset = part.data()[3] - slotsOf(source)[0].data;
    part.makeEditable();
    EXPECT_TRUE(part.editable());
    EXPECT_TRUE(source.editable());
    EXPECT_EQ(pixelsOf(part), pixels);
    EXPECT_EQ(slotsOf(part)[0].size, slotsOf(source)[0].size);
    EXPECT_EQ(part.data()[3] - slotsOf(part)[0].data, offset);
}

TEST(PictureCopyFrom, CopiesThePixelsAndKeepsItsOwnRangeAndLayout) {
    for (const AVPixelFormat format :
         {AV_PIX_FMT_YUV420P, AV_PIX_FMT_NV12, NVA12, AV_PIX_FMT_PAL8, AV_PIX_FMT_RGBA, AV_PIX_FMT_GRAY8,
          AV_PIX_FMT_P010, AV_PIX_FMT_YUV410P}) {
        SCOPED_TRACE(testing::Message() << format);
        const Picture source = noisePicture(Size{33, 17}, format, 1, 1);
        Picture target(Size{33, 17}, format, AVCOL_RANGE_JPEG, 64);
        const Picture::Planes planes = target.data();
        const Picture::Linesizes linesizes = target.linesize();
        target.copyFrom(source);
        EXPECT_EQ(pixelsOf(target), pixelsOf(source));
        EXPECT_EQ(target.colorRange(), AVCOL_RANGE_JPEG);
        EXPECT_EQ(target.data(), planes);
        EXPECT_EQ(target.linesize(), linesizes);
        EXPECT_TRUE(target.editable());
        EXPECT_TRUE(source.editable());
    }
}

TEST(PictureCopyFrom, TakesASharedSource) {
    const Picture source = noisePicture(Size{33, 17}, AV_PIX_FMT_YUV420P);
    const Picture copy(source);
    Picture target(Size{33, 17}, AV_PIX_FMT_YUV420P, AVCOL_RANGE_MPEG, 32);
    target.copyFrom(source);
    EXPECT_EQ(pixelsOf(target), pixelsOf(copy));
}

TEST(PictureCopyFrom, WritesOnlyInsideAView) {
    Picture whole(Size{32, 16}, AV_PIX_FMT_NV12, AVCOL_RANGE_MPEG, 1);
    std::memset(whole.data()[0], 0x11, 32 * 16);
    std::memset(whole.data()[1], 0x11, 32 * 8);
    Picture part = whole.crop(Rect{4, 2, 6, 4});
    const Picture source = noisePicture(Size{6, 4}, AV_PIX_FMT_NV12);
    std::uint8_t* first = whole.data()[0];
    std::uint8_t* second = whole.data()[1];
    whole = Picture();
    part.copyFrom(source);
    EXPECT_EQ(pixelsOf(part), pixelsOf(source));
    for (int y = 0; y < 16; ++y) {
        for (int x = 0; x < 32; ++x) {
            if (x < 4 || x >= 10 || y < 2 || y >= 6) {
                ASSERT_EQ(first[32 * y + x], 0x11) << x << ", " << y;
            }
            if (y < 8 && (x < 4 || x >= 10 || y < 1 || y >= 3)) {
                ASSERT_EQ(second[32 * y + x], 0x11) << x << ", " << y;
            }
        }
    }
}

TEST(PictureCopyFrom, BetweenEmptyPicturesDoesNothing) {
    Picture target(Size{0, 17}, AV_PIX_FMT_YUV420P, AVCOL_RANGE_JPEG, 1);
    const Picture source(Size{33, 0}, AV_PIX_FMT_RGBA, AVCOL_RANGE_MPEG, 1);
    EXPECT_NO_THROW(target.copyFrom(source));
    EXPECT_TRUE(target.empty());
    EXPECT_EQ(target.frameSize(), (Size{0, 17}));
    EXPECT_EQ(target.pixelFormat(), AV_PIX_FMT_YUV420P);
    EXPECT_EQ(target.colorRange(), AVCOL_RANGE_JPEG);
}

TEST(PictureCopyFrom, IntoAnEmptyPictureIsRefusedAsNotEditable) {
    Picture target;
    EXPECT_THROW_TEXT(std::runtime_error, kNotEditable,
                      target.copyFrom(noisePicture(Size{33, 17}, AV_PIX_FMT_YUV420P)));
}

TEST(PictureCopyFrom, IntoASharedPictureIsRefusedBeforeSizesAreCompared) {
    Picture target = noisePicture(Size{33, 17}, AV_PIX_FMT_YUV420P);
    const Picture other(target);
    const std::vector<std::uint8_t> pixels = pixelsOf(target);
    for (const Picture& source : {noisePicture(Size{33, 17}, AV_PIX_FMT_YUV420P, 2),
                                  noisePicture(Size{16, 16}, AV_PIX_FMT_RGBA), Picture()}) {
        EXPECT_THROW_TEXT(std::runtime_error, kNotEditable, target.copyFrom(source));
    }
    EXPECT_EQ(pixelsOf(target), pixels);
}

TEST(PictureCopyFrom, OfAnotherSizeOrFormatIsRefused) {
    Picture target = noisePicture(Size{33, 17}, AV_PIX_FMT_YUV420P);
    const std::vector<std::uint8_t> pixels = pixelsOf(target);
    for (const Picture& source :
         {noisePicture(Size{34, 17}, AV_PIX_FMT_YUV420P), noisePicture(Size{33, 18}, AV_PIX_FMT_YUV420P),
          noisePicture(Size{33, 17}, AV_PIX_FMT_YUVA420P), noisePicture(Size{17, 33}, AV_PIX_FMT_YUV420P),
          Picture()}) {
        EXPECT_THROW_TEXT(std::runtime_error, kMismatch, target.copyFrom(source));
    }
    EXPECT_EQ(pixelsOf(target), pixels);
}

TEST(PictureCopyFrom, OfItselfKeepsThePixels) {
    Picture picture = noisePicture(Size{33, 17}, AV_PIX_FMT_YUV420P);
    const std::vector<std::uint8_t> pixels = pixelsOf(picture);
    picture.copyFrom(picture);
    EXPECT_EQ(pixelsOf(picture), pixels);
}

TEST(PictureCopyFrom, PlanesWithLineSizesOfTheirOwn) {
    const Picture source = noisePicture(Size{33, 17}, AV_PIX_FMT_YUV420P, 1, 1);
    Picture target(Size{33, 17}, AV_PIX_FMT_YUV420P, AVCOL_RANGE_JPEG, 64);
    target.copyFrom(source.data().data(), source.linesize().data());
    EXPECT_EQ(pixelsOf(target), pixelsOf(source));
    EXPECT_EQ(target.colorRange(), AVCOL_RANGE_JPEG);
}

TEST(PictureCopyFrom, PlanesIntoAnEmptyPictureDoesNothingAndReadsNothing) {
    const std::uint8_t* planes[4] = {};
    const int linesizes[4] = {};
    Picture target(Size{33, 0}, AV_PIX_FMT_YUV420P, AVCOL_RANGE_JPEG, 64);
    EXPECT_NO_THROW(target.copyFrom(planes, linesizes));
    EXPECT_TRUE(target.empty());
    EXPECT_NO_THROW(target.copyFrom(nullptr, nullptr));
}

TEST(PictureCopyFrom, PlanesIntoASharedPictureIsRefused) {
    const Picture source = noisePicture(Size{33, 17}, AV_PIX_FMT_YUV420P, 2);
    Picture target = noisePicture(Size{33, 17}, AV_PIX_FMT_YUV420P);
    const Picture other(target);
    const std::vector<std::uint8_t> pixels = pixelsOf(target);
    EXPECT_THROW_TEXT(std::runtime_error, kNotEditable,
                      target.copyFrom(source.data().data(), source.linesize().data()));
    EXPECT_EQ(pixelsOf(target), pixels);
}

}  // namespace
}  // namespace vidorra
