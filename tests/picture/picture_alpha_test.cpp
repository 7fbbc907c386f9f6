// Pictures made of the colour of one and the alpha of another.

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "picture_probe.h"
#include "support/throw_text.h"
#include "vidorra/core/enum_text.h"
#include "vidorra/picture/picture.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

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

constexpr Size kSize{34, 18};
const std::string kName = "Picture(const Picture& picture, const Picture& alpha): ";
const std::string kBadColour = kName + "Unsupported pixel format for picture: ";
const std::string kBadAlpha = kName + "Unsupported pixel format for alpha: ";
constexpr const char* kSizesDiffer = "Images picture and alpha have different frameSize() value";
constexpr const char* kNoSlot = "No free slot for alpha buffer was found.";
constexpr const char* kStray = "Buffer for alpha alpha wasn't  found.";

Picture grayPicture() {
    return noisePicture(kSize, AV_PIX_FMT_GRAY8, 7);
}

// The bytes of plane 3.
std::vector<std::uint8_t> alphaOf(const Picture& picture) {
    std::vector<std::uint8_t> bytes;
    for (int y = 0; y < picture.frameSize().height; ++y) {
        const std::uint8_t* row = picture.data()[3] + static_cast<std::ptrdiff_t>(y) * picture.linesize()[3];
        bytes.insert(bytes.end(), row, row + picture.frameSize().width);
    }
    return bytes;
}

// A picture whose four buffers are one and the same, so that colour planes lie in each of them.
Picture pictureWithoutFreeSlot(Arena& arena, AVPixelFormat format) {
    const FramePtr frame = newFrame(Size{4, 4}, format);
    const test::BufferPtr ref = arena.buffer(0, 64);
    for (int i = 0; i < 4; ++i) {
        frame->buf[i] = av_buffer_ref(ref.get());
        frame->data[i] = arena.at(16 * i);
        frame->linesize[i] = 4;
    }
    return Picture(frame.get());
}

TEST(PictureWithAlpha, HasTheFormatThatAddsAlphaToTheColour) {
    struct Row {
        AVPixelFormat colour;
        AVPixelFormat result;
    };
    for (const Row& row :
         {Row{AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUVA420P}, Row{AV_PIX_FMT_YUVA420P, AV_PIX_FMT_YUVA420P},
          Row{AV_PIX_FMT_NV12, NVA12}, Row{NVA12, NVA12}}) {
        SCOPED_TRACE(testing::Message() << row.colour);
        const Picture colour = noisePicture(kSize, row.colour);
        const Picture alpha = grayPicture();
        const Picture result(colour, alpha);
        EXPECT_EQ(result.pixelFormat(), row.result);
        EXPECT_EQ(result.frameSize(), kSize);
        EXPECT_TRUE(result.hasAlpha());
        for (int plane : {0, 1, 2}) {
            EXPECT_EQ(result.data()[plane], colour.data()[plane]);
            EXPECT_EQ(result.linesize()[plane], colour.linesize()[plane]);
        }
        EXPECT_EQ(result.data()[3], alpha.data()[0]);
        EXPECT_EQ(result.linesize()[3], alpha.linesize()[0]);
        EXPECT_EQ(alphaOf(result), pixelsOf(alpha));
        EXPECT_EQ(bufferCount(result), 2);
    }
}

TEST(PictureWithAlpha, SharesTheMemoryOfBoth) {
    const Picture colour = pictureInSeparateBuffers(kSize, AV_PIX_FMT_YUV420P);
    const Picture alpha = grayPicture();
    {
        const Picture result(colour, alpha);
        EXPECT_FALSE(result.editable());
        EXPECT_FALSE(colour.editable());
        EXPECT_FALSE(alpha.editable());
        EXPECT_EQ(bufferCount(result), 4);
        for (const test::Slot& slot : slotsOf(result)) {
            EXPECT_EQ(slot.references, 2);
        }
        EXPECT_EQ(slotsOf(result)[3].data, slotsOf(alpha)[0].data);
    }
    EXPECT_TRUE(colour.editable());
    EXPECT_TRUE(alpha.editable());
}

TEST(PictureWithAlpha, IsEditableWhenBothHaveGone) {
    Picture colour = noisePicture(kSize, AV_PIX_FMT_NV12);
    Picture alpha = grayPicture();
    Picture result(colour, alpha);
    colour = Picture();
    EXPECT_FALSE(result.editable());
    alpha = Picture();
    EXPECT_TRUE(result.editable());
    EXPECT_NO_THROW(result.markModified());
}

TEST(PictureWithAlpha, HasTheColourRangeOfTheColour) {
    const Picture colour(kSize, AV_PIX_FMT_NV12, AVCOL_RANGE_MPEG, 1);
    const Picture alpha(kSize, AV_PIX_FMT_GRAY8, AVCOL_RANGE_JPEG, 1);
    EXPECT_EQ(Picture(colour, alpha).colorRange(), AVCOL_RANGE_MPEG);
}

TEST(PictureWithAlpha, KeepsTheLineSizeOfTheAlphaItself) {
    const Picture colour = noisePicture(kSize, AV_PIX_FMT_YUV420P, 1, 64);
    const Picture alpha = noisePicture(kSize, AV_PIX_FMT_GRAY8, 2, 1);
    const Picture result(colour, alpha);
    EXPECT_EQ(result.linesize(), (Picture::Linesizes{64, 64, 64, 34}));
}

TEST(PictureWithAlpha, ReplacesAnAlphaPlaneInTheColoursBuffer) {
    for (const AVPixelFormat format : {AV_PIX_FMT_YUVA420P, NVA12}) {
        const Picture colour = noisePicture(kSize, format);
        const Picture alpha = grayPicture();
        const Picture result(colour, alpha);
        EXPECT_EQ(bufferCount(result), 2);
        EXPECT_EQ(result.data()[3], alpha.data()[0]);
        EXPECT_NE(colour.data()[3], alpha.data()[0]) << "the source keeps its own";
    }
}

TEST(PictureWithAlpha, AppliedToItsOwnResultReplacesTheAlphaAndDropsItsBuffer) {
    const Picture colour = noisePicture(kSize, AV_PIX_FMT_YUV420P);
    const Picture first = grayPicture();
    const Picture second = noisePicture(kSize, AV_PIX_FMT_GRAY8, 8);
    Picture result(colour, first);
    result = Picture(result, second);
    EXPECT_EQ(result.pixelFormat(), AV_PIX_FMT_YUVA420P);
    EXPECT_EQ(result.data()[3], second.data()[0]);
    EXPECT_EQ(bufferCount(result), 2);
    EXPECT_TRUE(first.editable());
    EXPECT_FALSE(second.editable());
}

TEST(PictureWithAlpha, OfFourBuffersMakesRoomByDroppingTheOldAlpha) {
    const Picture colour = pictureInSeparateBuffers(kSize, AV_PIX_FMT_YUVA420P);
    const Picture alpha = grayPicture();
    ASSERT_EQ(bufferCount(colour), 4);
    const Picture result(colour, alpha);
    EXPECT_EQ(bufferCount(result), 4);
    EXPECT_EQ(alphaOf(result), pixelsOf(alpha));
    EXPECT_EQ(slotsOf(result)[3].data, slotsOf(alpha)[0].data);
}

TEST(PictureWithAlpha, PutsTheAlphaBufferInTheFirstFreeSlotWithoutSorting) {
    Arena arena(300);
    const FramePtr frame = newFrame(Size{8, 8}, AV_PIX_FMT_NV12);
    frame->buf[0] = arena.buffer(200, 100).release();
    frame->buf[1] = arena.buffer(100, 100).release();
    frame->data[0] = arena.at(200);
    frame->data[1] = arena.at(100);
    std::uint8_t* planes[4] = {arena.at(10)};
    const int linesizes[4] = {8};
    const Picture alpha(MemBuffer(arena.buffer(0, 100).get()), Size{8, 8}, planes, linesizes,
                        AV_PIX_FMT_GRAY8, AVCOL_RANGE_JPEG);
    const Picture result(Picture(frame.get()), alpha);
    const auto slots = slotsOf(result);
    EXPECT_EQ(slots[0].data, arena.at(100));
    EXPECT_EQ(slots[1].data, arena.at(200));
    EXPECT_EQ(slots[2].data, arena.at(0));
    EXPECT_EQ(slots[3].data, nullptr);
    EXPECT_EQ(result.data()[3], arena.at(10));
}

TEST(PictureWithAlpha, TakesOfTheAlphasBuffersTheOneThatHoldsItsPixels) {
    Arena arena(200);
    const FramePtr frame = newFrame(kSize, AV_PIX_FMT_GRAY8);
    frame->buf[0] = arena.buffer(0, 100).release();
    frame->buf[1] = arena.buffer(100, 100).release();
    frame->data[0] = arena.at(100);
    frame->data[1] = arena.at(0);
    const Picture alpha(frame.get());
    ASSERT_EQ(bufferCount(alpha), 2);
    const Picture result(noisePicture(kSize, AV_PIX_FMT_NV12), alpha);
    EXPECT_EQ(bufferCount(result), 2);
    EXPECT_EQ(slotsOf(result)[1].data, arena.at(100));
    EXPECT_EQ(result.data()[3], arena.at(100));
}

TEST(PictureWithAlpha, TakesAnAlphaThatIsAPartOfAPicture) {
    const Picture gray = noisePicture(Size{64, 64}, AV_PIX_FMT_GRAY8, 3);
    const Picture alpha = gray.crop(Rect{5, 7, kSize.width, kSize.height});
    const Picture result(noisePicture(kSize, AV_PIX_FMT_YUV420P), alpha);
    EXPECT_EQ(alphaOf(result), pixelsOf(alpha));
    EXPECT_EQ(slotsOf(result)[1].data, slotsOf(gray)[0].data);
}

TEST(PictureWithAlpha, MadeEditableHasColourAndAlphaOfItsOwn) {
    const Picture colour = noisePicture(kSize, AV_PIX_FMT_NV12);
    const Picture alpha = grayPicture();
    Picture result(colour, alpha);
    const std::vector<std::uint8_t> pixels = pixelsOf(result);
    result.makeEditable();
    EXPECT_TRUE(result.editable());
    EXPECT_TRUE(colour.editable());
    EXPECT_TRUE(alpha.editable());
    EXPECT_EQ(pixelsOf(result), pixels);
}

TEST(PictureWithAlpha, RefusesEachOtherFormatAsColourAndNamesItsNumber) {
    int formats = 0;
    for (const AVPixFmtDescriptor* descriptor = av_pix_fmt_desc_next(nullptr); descriptor != nullptr;
         descriptor = av_pix_fmt_desc_next(descriptor)) {
        const AVPixelFormat format = av_pix_fmt_desc_get_id(descriptor);
        if (format == AV_PIX_FMT_YUV420P || format == AV_PIX_FMT_YUVA420P || format == AV_PIX_FMT_NV12 ||
            format == NVA12) {
            continue;
        }
        // Without pixels, since only the formats count here.
        const Picture colour(Size{0, 0}, format, AVCOL_RANGE_MPEG, 1);
        EXPECT_THROW_TEXT(std::logic_error, kBadColour + std::to_string(static_cast<int>(format)),
                          Picture(colour, grayPicture()));
        ++formats;
    }
    EXPECT_GT(formats, 150);
    EXPECT_THROW_TEXT(std::logic_error, kBadColour + "-1", Picture(Picture(), grayPicture()));
}

TEST(PictureWithAlpha, RefusesRgbaAsColourWithTheNumberAtTheEnd) {
    EXPECT_THROW_TEXT(std::logic_error,
                      "Picture(const Picture& picture, const Picture& alpha): Unsupported pixel format for "
                      "picture: " +
                          std::to_string(AV_PIX_FMT_RGBA),
                      Picture(noisePicture(kSize, AV_PIX_FMT_RGBA), grayPicture()));
}

TEST(PictureWithAlpha, RefusesOtherFormatsAsAlphaAndNamesTheirNumber) {
    const Picture colour = noisePicture(kSize, AV_PIX_FMT_YUV420P);
    for (const AVPixelFormat format :
         {AV_PIX_FMT_NONE, AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUVA420P, AV_PIX_FMT_PAL8, AV_PIX_FMT_GRAY10,
          AV_PIX_FMT_YA8, NVA12, AV_PIX_FMT_MONOBLACK}) {
        EXPECT_THROW_TEXT(std::logic_error, kBadAlpha + std::to_string(static_cast<int>(format)),
                          Picture(colour, Picture(Size{0, 0}, format, AVCOL_RANGE_MPEG, 1)));
    }
    EXPECT_TRUE(colour.editable()) << "a failure lets go of the colour";
}

TEST(PictureWithAlpha, RefusesAlphaOfAnotherSize) {
    const Picture colour = noisePicture(kSize, AV_PIX_FMT_YUV420P);
    for (const Size size : {Size{35, 18}, Size{34, 17}, Size{18, 34}}) {
        EXPECT_THROW_TEXT(std::logic_error, kSizesDiffer,
                          Picture(colour, noisePicture(size, AV_PIX_FMT_GRAY8)));
    }
    EXPECT_TRUE(colour.editable()) << "a failure lets go of the colour";
}

TEST(PictureWithAlpha, RefusesAlphaWithoutABuffer) {
    const Picture colour = noisePicture(kSize, AV_PIX_FMT_YUV420P);
    std::uint8_t stray[kSize.width * kSize.height] = {};
    std::uint8_t* planes[4] = {stray};
    const int linesizes[4] = {kSize.width};
    const Picture unowned(MemBuffer(), kSize, planes, linesizes, AV_PIX_FMT_GRAY8, AVCOL_RANGE_MPEG);
    EXPECT_THROW_TEXT(std::logic_error, kStray, Picture(colour, unowned));
    const Picture elsewhere(MemBuffer(64, true), kSize, planes, linesizes, AV_PIX_FMT_GRAY8,
                            AVCOL_RANGE_MPEG);
    EXPECT_THROW_TEXT(std::logic_error, kStray, Picture(colour, elsewhere));
    EXPECT_TRUE(colour.editable()) << "a failure lets go of the colour";
    EXPECT_TRUE(elsewhere.editable());
}

TEST(PictureWithAlpha, RefusesAlphaThatStandsAtTheEndOfItsBuffer) {
    Arena arena(128);
    std::uint8_t* planes[4] = {arena.at(64)};
    const int linesizes[4] = {8};
    const Picture alpha(MemBuffer(arena.buffer(0, 64).get()), Size{8, 8}, planes, linesizes, AV_PIX_FMT_GRAY8,
                        AVCOL_RANGE_MPEG);
    EXPECT_THROW_TEXT(std::logic_error, kStray, Picture(noisePicture(Size{8, 8}, AV_PIX_FMT_NV12), alpha));
}

TEST(PictureWithAlpha, RefusesColourThatFillsAllSlots) {
    Arena arena(64);
    {
        const Picture colour = pictureWithoutFreeSlot(arena, AV_PIX_FMT_YUVA420P);
        ASSERT_EQ(bufferCount(colour), 4);
        EXPECT_THROW_TEXT(std::logic_error, kNoSlot,
                          Picture(colour, noisePicture(Size{4, 4}, AV_PIX_FMT_GRAY8)));
        EXPECT_EQ(slotsOf(colour)[0].references, 4) << "a failure lets go of the colour";
    }
    EXPECT_EQ(arena.freed(), 1);
}

// Each row is wrong in what it names and in everything after it.
TEST(PictureWithAlpha, ChecksColourThenAlphaThenSizesThenSlotsThenTheAlphasBuffer) {
    Arena arena(64);
    const Picture full = pictureWithoutFreeSlot(arena, AV_PIX_FMT_YUV420P);
    const Picture wrongColour = pictureWithoutFreeSlot(arena, AV_PIX_FMT_YUV444P);
    const Size other{5, 5};
    const Picture wrongAlpha(Size{0, 4}, AV_PIX_FMT_RGB24, AVCOL_RANGE_MPEG, 1);
    std::uint8_t* planes[4] = {};
    const int linesizes[4] = {};
    const Picture wrongSize(MemBuffer(), other, planes, linesizes, AV_PIX_FMT_GRAY8, AVCOL_RANGE_MPEG);
    const Picture stray(MemBuffer(), Size{4, 4}, planes, linesizes, AV_PIX_FMT_GRAY8, AVCOL_RANGE_MPEG);
    EXPECT_THROW_TEXT(std::logic_error, kBadColour + std::to_string(AV_PIX_FMT_YUV444P),
                      Picture(wrongColour, wrongAlpha));
    EXPECT_THROW_TEXT(std::logic_error, kBadAlpha + std::to_string(AV_PIX_FMT_RGB24),
                      Picture(full, wrongAlpha));
    EXPECT_THROW_TEXT(std::logic_error, kSizesDiffer, Picture(full, wrongSize));
    EXPECT_THROW_TEXT(std::logic_error, kNoSlot, Picture(full, stray));
}

}  // namespace
}  // namespace vidorra
