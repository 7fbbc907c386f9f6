#include "vidorra/picture/picture.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <sstream>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "picture_probe.h"
#include "support/throw_text.h"
#include "vidorra/core/enum_text.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

namespace vidorra {
namespace {

using test::Arena;
using test::bufferCount;
using test::newFrame;
using test::noisePicture;
using test::pictureInSeparateBuffers;
using test::pixelsOf;
using test::slotsOf;

static_assert(std::is_nothrow_default_constructible_v<Picture>);
static_assert(std::is_nothrow_move_constructible_v<Picture>);
static_assert(std::is_nothrow_move_assignable_v<Picture>);
static_assert(std::is_copy_constructible_v<Picture> && std::is_copy_assignable_v<Picture>);
static_assert(sizeof(Picture) ==
              sizeof(Size) + 8 + 4 * sizeof(MemBuffer) + 4 * sizeof(void*) + 4 * sizeof(int));
static_assert(std::is_same_v<decltype(std::declval<const Picture&>().frameSize().width), std::int32_t>);

constexpr Picture::Planes kNoPlanes{};
constexpr Picture::Linesizes kNoLinesizes{};

void expectPlanes(const Picture& picture, const Picture::Planes& planes,
                  const Picture::Linesizes& linesizes) {
    EXPECT_EQ(picture.data(), planes);
    EXPECT_EQ(picture.linesize(), linesizes);
}

std::ptrdiff_t offsetIn(const Picture& picture, const void* field) {
    return static_cast<const char*>(field) - reinterpret_cast<const char*>(&picture);
}

TEST(Picture, ByDefaultItHasNothing) {
    const Picture picture;
    EXPECT_EQ(picture.frameSize(), (Size{0, 0}));
    EXPECT_EQ(picture.pixelFormat(), AV_PIX_FMT_NONE);
    EXPECT_EQ(picture.colorRange(), AVCOL_RANGE_UNSPECIFIED);
    expectPlanes(picture, kNoPlanes, kNoLinesizes);
    EXPECT_EQ(bufferCount(picture), 0);
    EXPECT_TRUE(picture.empty());
    EXPECT_FALSE(picture.editable());
    EXPECT_FALSE(picture.isBufferDMA());
    EXPECT_FALSE(picture.isBufferExternal());
}

TEST(Picture, ItsFieldsStandInTheOrderSizeFormatRangeBuffersPlanesLinesizes) {
    const Picture picture;
    EXPECT_EQ(offsetIn(picture, picture.data().data()), 48);
    EXPECT_EQ(offsetIn(picture, picture.linesize().data()), 80);
}

TEST(Picture, WithoutPixelsItHasNoMemoryButKeepsSizeFormatAndRange) {
    for (const Size size :
         {Size{0, 1080}, Size{1920, 0}, Size{0, 0}, Size{-5, 10}, Size{10, -5}, Size{INT32_MIN, INT32_MIN}}) {
        SCOPED_TRACE(testing::Message() << size);
        const Picture picture(size, AV_PIX_FMT_NV12, AVCOL_RANGE_JPEG, 32);
        EXPECT_EQ(picture.frameSize(), size);
        EXPECT_EQ(picture.pixelFormat(), AV_PIX_FMT_NV12);
        EXPECT_EQ(picture.colorRange(), AVCOL_RANGE_JPEG);
        EXPECT_TRUE(picture.empty());
        EXPECT_FALSE(picture.editable());
        EXPECT_FALSE(picture.isBufferDMA());
        EXPECT_FALSE(picture.isBufferExternal());
        expectPlanes(picture, kNoPlanes, kNoLinesizes);
    }
}

TEST(Picture, NewMemoryIsEditableAndNoDeviceMemory) {
    const Picture picture(Size{64, 48}, AV_PIX_FMT_YUV420P, AVCOL_RANGE_MPEG, 32);
    EXPECT_EQ(picture.frameSize(), (Size{64, 48}));
    EXPECT_EQ(picture.pixelFormat(), AV_PIX_FMT_YUV420P);
    EXPECT_EQ(picture.colorRange(), AVCOL_RANGE_MPEG);
    EXPECT_FALSE(picture.empty());
    EXPECT_TRUE(picture.editable());
    EXPECT_FALSE(picture.isBufferDMA());
    EXPECT_FALSE(picture.isBufferExternal());
    EXPECT_EQ(bufferCount(picture), 1);
}

TEST(Picture, CanLieInABufferOfTheCallersMaking) {
    Arena arena(4096);
    std::uint8_t* planes[4] = {arena.at(100), arena.at(1000), nullptr, arena.at(3000)};
    const int linesizes[4] = {40, -40, 7, 20};
    {
        const Picture picture(MemBuffer(arena.buffer(0, 4096).get()), Size{32, 16}, planes, linesizes, NVA12,
                              AVCOL_RANGE_JPEG);
        EXPECT_EQ(picture.frameSize(), (Size{32, 16}));
        EXPECT_EQ(picture.pixelFormat(), NVA12);
        EXPECT_EQ(picture.colorRange(), AVCOL_RANGE_JPEG);
        expectPlanes(picture, {planes[0], planes[1], planes[2], planes[3]}, {40, -40, 7, 20});
        const auto slots = slotsOf(picture);
        EXPECT_EQ(slots[0].data, arena.at(0));
        EXPECT_EQ(slots[0].references, 1);
        EXPECT_EQ(bufferCount(picture), 1);
        EXPECT_TRUE(picture.editable());
    }
    EXPECT_EQ(arena.freed(), 1);
}

TEST(Picture, IsEmptyWithoutABufferWhateverElseItHas) {
    Arena arena(64);
    std::uint8_t* planes[4] = {arena.at(0)};
    const int linesizes[4] = {8};
    Picture picture(MemBuffer(), Size{8, 8}, planes, linesizes, AV_PIX_FMT_GRAY8, AVCOL_RANGE_JPEG);
    EXPECT_TRUE(picture.empty());
    EXPECT_FALSE(picture.editable());
    EXPECT_EQ(picture.data()[0], arena.at(0));
    EXPECT_EQ(picture.debugDescription(), "(empty picture)");
    EXPECT_NO_THROW(picture.markModified());
}

TEST(Picture, MovingEmptiesTheSourceAndLeavesItsOtherFields) {
    Picture source = noisePicture(Size{33, 17}, AV_PIX_FMT_YUV420P);
    const Picture::Planes planes = source.data();
    const Picture::Linesizes linesizes = source.linesize();
    const Picture moved(std::move(source));
    EXPECT_EQ(moved.data(), planes);
    EXPECT_EQ(moved.linesize(), linesizes);
    EXPECT_EQ(moved.frameSize(), (Size{33, 17}));
    EXPECT_EQ(moved.pixelFormat(), AV_PIX_FMT_YUV420P);
    EXPECT_EQ(moved.colorRange(), AVCOL_RANGE_MPEG);
    EXPECT_TRUE(moved.editable());

    EXPECT_TRUE(source.empty());
    EXPECT_EQ(bufferCount(source), 0);
    EXPECT_EQ(source.frameSize(), (Size{33, 17}));
    EXPECT_EQ(source.pixelFormat(), AV_PIX_FMT_YUV420P);
    EXPECT_EQ(source.colorRange(), AVCOL_RANGE_MPEG);
    expectPlanes(source, planes, linesizes);
}

TEST(Picture, MoveAssignmentDropsTheOldMemoryAndEmptiesTheSource) {
    Arena arena(64);
    std::uint8_t* planes[4] = {arena.at(0)};
    const int linesizes[4] = {8};
    Picture target(MemBuffer(arena.buffer(0, 64).get()), Size{8, 8}, planes, linesizes, AV_PIX_FMT_GRAY8,
                   AVCOL_RANGE_JPEG);
    Picture source = noisePicture(Size{16, 16}, AV_PIX_FMT_NV12);
    const Picture::Planes sourcePlanes = source.data();
    target = std::move(source);
    EXPECT_EQ(arena.freed(), 1);
    EXPECT_TRUE(source.empty());
    EXPECT_EQ(source.frameSize(), (Size{16, 16}));
    EXPECT_EQ(source.data(), sourcePlanes);
    EXPECT_EQ(target.data(), sourcePlanes);
    EXPECT_EQ(target.pixelFormat(), AV_PIX_FMT_NV12);
    EXPECT_TRUE(target.editable());
}

TEST(Picture, CopyAssignmentDropsTheOldMemoryAndSharesTheNew) {
    Arena arena(64);
    std::uint8_t* planes[4] = {arena.at(0)};
    const int linesizes[4] = {8};
    Picture target(MemBuffer(arena.buffer(0, 64).get()), Size{8, 8}, planes, linesizes, AV_PIX_FMT_GRAY8,
                   AVCOL_RANGE_JPEG);
    const Picture source = pictureInSeparateBuffers(Size{16, 16}, AV_PIX_FMT_YUV420P);
    target = source;
    EXPECT_EQ(arena.freed(), 1);
    EXPECT_EQ(target.data(), source.data());
    EXPECT_EQ(target.linesize(), source.linesize());
    EXPECT_EQ(target.frameSize(), source.frameSize());
    EXPECT_EQ(target.pixelFormat(), source.pixelFormat());
    EXPECT_EQ(target.colorRange(), source.colorRange());
    EXPECT_EQ(slotsOf(source)[2].references, 2);
}

TEST(Picture, AssignmentToItselfChangesNothing) {
    Picture picture = noisePicture(Size{16, 16}, AV_PIX_FMT_NV12);
    const std::vector<std::uint8_t> pixels = pixelsOf(picture);
    Picture& same = picture;
    picture = same;
    EXPECT_TRUE(picture.editable());
    picture = std::move(same);
    EXPECT_TRUE(picture.editable());
    EXPECT_EQ(pixelsOf(picture), pixels);
}

TEST(Picture, IsEditableOnlyWhenEveryBufferIsPrivate) {
    const Picture picture = pictureInSeparateBuffers(Size{16, 16}, AV_PIX_FMT_YUV420P);
    ASSERT_EQ(bufferCount(picture), 3);
    const test::FramePtr frame = makeAvPtr<AVFrame>();
    picture.fillAVFrame(frame.get());
    for (int i : {0, 1, 2}) {
        EXPECT_FALSE(picture.editable()) << "while buffer " << i << " is shared";
        av_buffer_unref(&frame->buf[i]);
    }
    EXPECT_TRUE(picture.editable());
}

TEST(Picture, MarkModifiedThrowsWhenAnyBufferIsShared) {
    for (const int shared : {0, 1, 2}) {
        SCOPED_TRACE(shared);
        Picture picture = pictureInSeparateBuffers(Size{16, 16}, AV_PIX_FMT_YUV420P);
        EXPECT_NO_THROW(picture.markModified());
        const test::FramePtr frame = makeAvPtr<AVFrame>();
        picture.fillAVFrame(frame.get());
        for (int i : {0, 1, 2}) {
            if (i != shared) {
                av_buffer_unref(&frame->buf[i]);
            }
        }
        EXPECT_THROW_TEXT(std::logic_error, "Cannot mark non-writeable buffer as modified",
                          picture.markModified());
    }
}

TEST(Picture, MarkModifiedAndFlushOfAnEmptyPictureDoNothing) {
    Picture picture;
    EXPECT_NO_THROW(picture.markModified());
    picture.flush();
    EXPECT_TRUE(picture.empty());
}

TEST(Picture, HasAlphaForPalettesAndForFormatsWithAnAlphaComponent) {
    struct Row {
        AVPixelFormat format;
        bool alpha;
    };
    for (const Row& row : {
             Row{AV_PIX_FMT_PAL8, true},
             Row{AV_PIX_FMT_YUVA420P, true},
             Row{NVA12, true},
             Row{AV_PIX_FMT_RGBA, true},
             Row{AV_PIX_FMT_ARGB, true},
             Row{AV_PIX_FMT_YA8, true},
             Row{AV_PIX_FMT_YUVA444P10, true},
             Row{AV_PIX_FMT_YUV420P, false},
             Row{AV_PIX_FMT_NV12, false},
             Row{AV_PIX_FMT_GRAY8, false},
             Row{AV_PIX_FMT_RGB24, false},
             Row{AV_PIX_FMT_RGB0, false},
             Row{AV_PIX_FMT_MONOWHITE, false},
             Row{AV_PIX_FMT_P010, false},
             Row{AV_PIX_FMT_NONE, false},
         }) {
        SCOPED_TRACE(testing::Message() << row.format);
        EXPECT_EQ(Picture(Size{0, 0}, row.format, AVCOL_RANGE_MPEG, 1).hasAlpha(), row.alpha);
    }
}

TEST(Picture, HasAlphaAgreesWithFFmpegForEachOfItsFormats) {
    int formats = 0;
    for (const AVPixFmtDescriptor* descriptor = av_pix_fmt_desc_next(nullptr); descriptor != nullptr;
         descriptor = av_pix_fmt_desc_next(descriptor)) {
        const AVPixelFormat format = av_pix_fmt_desc_get_id(descriptor);
        if (format == NVA12) {
            continue;
        }
        SCOPED_TRACE(descriptor->name);
        const bool alpha = format == AV_PIX_FMT_PAL8 || (descriptor->flags & AV_PIX_FMT_FLAG_ALPHA) != 0;
        EXPECT_EQ(Picture(Size{0, 0}, format, AVCOL_RANGE_MPEG, 1).hasAlpha(), alpha);
        ++formats;
    }
    EXPECT_GT(formats, 150);
}

TEST(PictureText, SaysSizeFormatRangeAndAttributes) {
    struct Row {
        Size size;
        AVPixelFormat format;
        AVColorRange range;
        const char* text;
    };
    for (const Row& row : {
             Row{{1920, 1080}, AV_PIX_FMT_NV12, AVCOL_RANGE_MPEG, "1920x1080, nv12 (tv,editable)"},
             Row{{16, 8}, AV_PIX_FMT_YUV420P, AVCOL_RANGE_JPEG, "16x8, yuv420p (pc,editable)"},
             Row{{1, 1}, AV_PIX_FMT_RGBA, AVCOL_RANGE_UNSPECIFIED, "1x1, rgba (unknown,editable)"},
             Row{{64, 48}, NVA12, AVCOL_RANGE_MPEG, "64x48, nva12 (tv,editable)"},
             Row{{0, 48}, AV_PIX_FMT_NV12, AVCOL_RANGE_MPEG, "(empty picture)"},
         }) {
        Picture picture(row.size, row.format, row.range, 32);
        EXPECT_EQ(picture.debugDescription(), row.text);
    }
    EXPECT_EQ(Picture().debugDescription(), "(empty picture)");
}

TEST(PictureText, ASharedPictureIsNotCalledEditable) {
    const Picture picture = noisePicture(Size{16, 8}, AV_PIX_FMT_GRAY8);
    const Picture copy(picture);
    EXPECT_EQ(picture.debugDescription(), "16x8, gray (tv)");
    EXPECT_EQ(copy.debugDescription(), "16x8, gray (tv)");
}

TEST(PictureText, AFormatWithoutDescriptorIsUnknown) {
    Arena arena(64);
    std::uint8_t* planes[4] = {arena.at(0)};
    const int linesizes[4] = {8};
    for (const AVPixelFormat format : {AV_PIX_FMT_NONE, AV_PIX_FMT_NB}) {
        const Picture picture(MemBuffer(arena.buffer(0, 64).get()), Size{8, 8}, planes, linesizes, format,
                              AVCOL_RANGE_JPEG);
        EXPECT_EQ(picture.debugDescription(), "8x8, (unknown) (pc,editable)");
    }
}

TEST(PictureText, AColourRangeWithoutNameThrows) {
    const Picture picture(Size{8, 8}, AV_PIX_FMT_GRAY8, AVCOL_RANGE_NB, 1);
    EXPECT_THROW_TEXT(std::logic_error, "basic_string: construction from null is not valid",
                      static_cast<void>(picture.debugDescription()));
    const Picture empty(Size{0, 8}, AV_PIX_FMT_GRAY8, AVCOL_RANGE_NB, 1);
    EXPECT_EQ(empty.debugDescription(), "(empty picture)");
}

TEST(PictureText, IsWhatStreamOutputWrites) {
    std::ostringstream stream;
    stream << Picture(Size{8, 4}, AV_PIX_FMT_RGB24, AVCOL_RANGE_JPEG, 1) << '|' << Picture();
    EXPECT_EQ(stream.str(), "8x4, rgb24 (pc,editable)|(empty picture)");
}

TEST(PictureBuffers, ABufferWithoutAPlaneIsDroppedAndTheOthersAreSorted) {
    Arena arena(400);
    const test::FramePtr frame = newFrame(Size{8, 8}, AV_PIX_FMT_YUV420P);
    frame->buf[0] = arena.buffer(200, 100).release();
    frame->buf[1] = arena.buffer(100, 100).release();
    frame->buf[2] = arena.buffer(0, 100).release();
    frame->data[0] = arena.at(200);
    frame->data[1] = arena.at(150);
    frame->data[2] = arena.at(99);
    Picture picture(frame.get());
    EXPECT_EQ(bufferCount(picture), 3);
    picture.removeUnusedBuffers();
    const auto slots = slotsOf(picture);
    EXPECT_EQ(slots[0].data, arena.at(0));
    EXPECT_EQ(slots[1].data, arena.at(100));
    EXPECT_EQ(slots[2].data, arena.at(200));
    EXPECT_EQ(slots[3].data, nullptr);
}

TEST(PictureBuffers, APlaneAtTheEndOfABufferDoesNotKeepIt) {
    Arena arena(200);
    std::uint8_t* planes[4] = {arena.at(100)};
    const int linesizes[4] = {8};
    Picture picture(MemBuffer(arena.buffer(0, 100).get()), Size{8, 8}, planes, linesizes, AV_PIX_FMT_GRAY8,
                    AVCOL_RANGE_JPEG);
    EXPECT_FALSE(picture.empty());
    picture.removeUnusedBuffers();
    EXPECT_TRUE(picture.empty());
    EXPECT_EQ(arena.freed(), 1);
    EXPECT_EQ(picture.data()[0], arena.at(100));
}

TEST(PictureBuffers, APlaneOnTheFirstOrTheLastByteKeepsTheBuffer) {
    Arena arena(200);
    for (const std::size_t offset : {std::size_t{50}, std::size_t{149}}) {
        std::uint8_t* planes[4] = {nullptr, nullptr, nullptr, arena.at(offset)};
        const int linesizes[4] = {};
        Picture picture(MemBuffer(arena.buffer(50, 100).get()), Size{8, 8}, planes, linesizes,
                        AV_PIX_FMT_GRAY8, AVCOL_RANGE_JPEG);
        picture.removeUnusedBuffers();
        EXPECT_FALSE(picture.empty());
    }
}

TEST(PictureBuffers, APlaneBelowABufferOrNoPlaneAtAllDoesNotKeepIt) {
    Arena arena(200);
    for (std::uint8_t* plane : {arena.at(49), static_cast<std::uint8_t*>(nullptr)}) {
        std::uint8_t* planes[4] = {plane};
        const int linesizes[4] = {8};
        Picture picture(MemBuffer(arena.buffer(50, 100).get()), Size{8, 8}, planes, linesizes,
                        AV_PIX_FMT_GRAY8, AVCOL_RANGE_JPEG);
        picture.removeUnusedBuffers();
        EXPECT_TRUE(picture.empty());
    }
}

}  // namespace
}  // namespace vidorra
