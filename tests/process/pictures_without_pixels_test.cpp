// Operations on pictures without pixels: moved-from pictures, which keep their size and their plane
// pointers, and views of a size of 0 or less.

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <utility>
#include <vector>

#include "support/throw_text.h"
#include "vidorra/core/enum_text.h"
#include "vidorra/picture/default_picture_allocator.h"
#include "vidorra/process/apply_lut.h"
#include "vidorra/process/chroma_keying.h"
#include "vidorra/process/compose.h"
#include "vidorra/process/drawing.h"
#include "vidorra/process/picture_analysis.h"
#include "vidorra/process/scaler.h"

namespace vidorra {
namespace {

constexpr Size kSize{16, 8};
const char* const kNotEditable = "chromaKeyingInPlace: Picture must be editable";

// The bytes of planes without padding, in formats whose planes follow each other.
std::vector<std::uint8_t> bytesOf(const Picture& picture) {
    return {picture.data()[0], picture.data()[0] + picture.bytesInBuffer(0).value()};
}

Picture filled(AVPixelFormat format, std::uint8_t value, AVColorRange range = AVCOL_RANGE_MPEG) {
    Picture picture(kSize, format, range, 1);
    std::memset(picture.data()[0], value, picture.bytesInBuffer(0).value());
    return picture;
}

// A moved-from picture, and the one that has its memory.
struct Moved {
    explicit Moved(AVPixelFormat format)
        : from(filled(format, 7)), to(std::move(from)), before(bytesOf(to)) {}
    Picture from;
    Picture to;
    std::vector<std::uint8_t> before;
};

TEST(PictureMovedFrom, IsNotMappedThroughATable) {
    Moved picture(AV_PIX_FMT_NV12);
    applyLUT(picture.from, 0, std::vector<unsigned char>(256, 99));
    EXPECT_EQ(bytesOf(picture.to), picture.before);
}

TEST(PictureMovedFrom, IsNotFilled) {
    Moved picture(AV_PIX_FMT_NV12);
    fillWithDebugData(picture.from);
    EXPECT_THROW(fillRectangle(picture.from, Color(1, 2, 3)), std::runtime_error);
    EXPECT_EQ(bytesOf(picture.to), picture.before);
}

TEST(PictureMovedFrom, IsNotDrawn) {
    for (const AVPixelFormat overlay : {AV_PIX_FMT_NV12, NVA12}) {
        const Moved picture(overlay);
        Picture screen = filled(AV_PIX_FMT_NV12, 200);
        const auto before = bytesOf(screen);
        for (const double opacity : {1.0, 0.5}) {
            compose(screen, picture.from, Point{2, 2}, CheckColorRange::Yes, opacity, 1);
            EXPECT_EQ(bytesOf(screen), before);
        }
    }
}

TEST(PictureMovedFrom, IsNotKeyed) {
    for (const AVPixelFormat format : {AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUVA420P, AV_PIX_FMT_NV12}) {
        Moved picture(format);
        EXPECT_THROW_TEXT(std::runtime_error, kNotEditable,
                          (void)chromaKeying(picture.from, Color(), 0.F, 0.F));
        EXPECT_THROW_TEXT(std::runtime_error, kNotEditable,
                          chromaKeyingInPlace(picture.from, Color(), 0.F, 0.F));
        EXPECT_EQ(bytesOf(picture.to), picture.before);
    }
}

TEST(PictureMovedFrom, IsNotConverted) {
    const Moved picture(AV_PIX_FMT_NV12);
    EXPECT_TRUE(
        tryConvertColorRange(getDefaultPictureAllocator(), picture.from, AV_PIX_FMT_YUV420P, AVCOL_RANGE_JPEG)
            .empty());
    Scaler scaler;
    EXPECT_TRUE(scaler.scale(picture.from, kSize, AV_PIX_FMT_YUV420P, AVCOL_RANGE_JPEG).empty());
    EXPECT_TRUE(scaler.scale(picture.from, Size{32, 16}, AV_PIX_FMT_RGBA, AVCOL_RANGE_JPEG).empty());
    EXPECT_TRUE(scaler.scale(picture.from, kSize).empty());
}

TEST(PictureMovedFrom, HasNothingToAnalyse) {
    const Moved picture(AV_PIX_FMT_RGBA);
    EXPECT_EQ(alphaTrimmedRect(picture.to), (Rect{0, 0, 16, 8}));
    EXPECT_EQ(alphaTrimmedRect(picture.from), Rect{});
    EXPECT_EQ(getPlanesMD5(picture.from), "");
    EXPECT_FALSE(comparePictures(picture.from, picture.from, 0, false, nullptr));
}

TEST(ChromaKeyingWithoutPixels, ThrowsForEachFormat) {
    for (const AVPixelFormat format :
         {AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUVA420P, AV_PIX_FMT_NV12, AV_PIX_FMT_RGBA}) {
        SCOPED_TRACE(to_string(format));
        EXPECT_THROW_TEXT(
            std::runtime_error, kNotEditable,
            (void)chromaKeying(Picture(Size{0, 0}, format, AVCOL_RANGE_MPEG, 1), Color(), 0.F, 0.F));
        const Picture source = filled(format, 7);
        for (const Rect& rect : {Rect{100, 100, 5, 5}, Rect{16, 2, 5, 5}, Rect{2, 8, 5, 5}}) {
            EXPECT_THROW_TEXT(std::runtime_error, kNotEditable,
                              (void)chromaKeying(source.crop(rect), Color(), 0.F, 0.F));
        }
    }
}

TEST(ChromaKeyingWithoutPixels, InPlaceLeavesAViewWithoutPixelsAlone) {
    for (const Rect& rect : {Rect{100, 100, 5, 5}, Rect{16, 2, 4, 4}, Rect{2, 8, 4, 4}}) {
        Picture source = filled(AV_PIX_FMT_YUVA420P, 7);
        Picture view = source.crop(rect);
        std::uint8_t* const alpha = source.data()[3];
        source = Picture();
        ASSERT_TRUE(view.editable());
        chromaKeyingInPlace(view, Color(), 0.F, 0.F);
        EXPECT_EQ(std::vector<std::uint8_t>(alpha, alpha + 16 * 8), std::vector<std::uint8_t>(16 * 8, 7));
    }
}

TEST(ComposeOnAViewOfNegativeSize, DrawsNothing) {
    for (const auto& [canvas, overlay] : {std::pair{AV_PIX_FMT_NV12, AV_PIX_FMT_NV12},
                                          {AV_PIX_FMT_NV12, NVA12},
                                          {AV_PIX_FMT_RGB24, AV_PIX_FMT_RGB24}}) {
        for (const Rect& rect : {Rect{8, 0, -4, 8}, Rect{0, 6, 16, -4}, Rect{8, 6, -4, -4}}) {
            Picture whole = filled(canvas, 200);
            Picture view = whole.crop(rect);
            ASSERT_TRUE(view.frameSize().width < 0 || view.frameSize().height < 0);
            const Picture logo = filled(overlay, 7);
            const auto before = bytesOf(whole);
            std::uint8_t* const pixels = whole.data()[0];
            whole = Picture();
            ASSERT_TRUE(view.editable());
            for (const Point& position : {Point{0, 0}, Point{-8, -6}, Point{-2, 0}}) {
                compose(view, logo, position, CheckColorRange::Yes, 1.0, 1);
            }
            EXPECT_EQ(std::vector<std::uint8_t>(pixels, pixels + before.size()), before);
        }
    }
}

TEST(ComposeOfAViewOfNegativeSize, DrawsNothing) {
    const Picture logo = filled(AV_PIX_FMT_NV12, 7);
    Picture screen = filled(AV_PIX_FMT_NV12, 200);
    const auto before = bytesOf(screen);
    for (const Rect& rect : {Rect{8, 0, -4, 8}, Rect{0, 6, 16, -4}, Rect{8, 6, -4, -4}}) {
        const Picture view = logo.crop(rect);
        for (const Point& position : {Point{0, 0}, Point{8, 6}, Point{16, 8}}) {
            compose(screen, view, position, CheckColorRange::Yes, 1.0, 1);
        }
    }
    EXPECT_EQ(bytesOf(screen), before);
}

}  // namespace
}  // namespace vidorra
