#include "vidorra/process/drawing.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/throw_text.h"
#include "vidorra/core/enum_text.h"

namespace vidorra {
namespace {

constexpr Color kRed{255, 0, 0, 130};
// Red by BT.601.
constexpr int kLimited[3] = {81, 90, 240};
constexpr int kFull[3] = {76, 84, 255};

Picture picture(AVPixelFormat format, int width, int height, AVColorRange range = AVCOL_RANGE_MPEG) {
    Picture result(Size{width, height}, format, range, 32);
    for (std::size_t plane = 0; plane < 4; ++plane) {
        if (result.data()[plane] != nullptr) {
            const int rows = plane == 1 || plane == 2 ? (height + 1) / 2 : height;
            std::memset(result.data()[plane], 7, static_cast<std::size_t>(result.linesize()[plane] * rows));
        }
    }
    return result;
}

// A plane of bytes as text, one line a row: '.' for the 7 of before.
std::vector<std::string> drawn(const Picture& picture, std::size_t plane, int width, int height, int value) {
    std::vector<std::string> rows;
    for (int y = 0; y < height; ++y) {
        std::string row;
        for (int x = 0; x < width; ++x) {
            const int byte = picture.data()[plane][y * picture.linesize()[plane] + x];
            row += byte == 7 ? '.' : byte == value ? '#' : '?';
        }
        rows.push_back(row);
    }
    return rows;
}

using Rows = std::vector<std::string>;

TEST(FillRectangle, RoundsPositionAndSizeDownToWholeChromaSamples) {
    Picture target = picture(AV_PIX_FMT_YUV420P, 6, 4);
    fillRectangle(target, {1, 1, 3, 3}, kRed);
    EXPECT_EQ(drawn(target, 0, 6, 4, kLimited[0]), (Rows{"##....", "##....", "......", "......"}));
    EXPECT_EQ(drawn(target, 1, 3, 2, kLimited[1]), (Rows{"#..", "..."}));
    EXPECT_EQ(drawn(target, 2, 3, 2, kLimited[2]), (Rows{"#..", "..."}));
}

TEST(FillRectangle, TakesTheColorInThePicturesRange) {
    for (const AVColorRange range : {AVCOL_RANGE_UNSPECIFIED, AVCOL_RANGE_MPEG, AVCOL_RANGE_JPEG}) {
        for (const AVPixelFormat format : {AV_PIX_FMT_YUV420P, AV_PIX_FMT_NV12}) {
            Picture target = picture(format, 4, 4, range);
            fillRectangle(target, kRed);
            const int* expected = range == AVCOL_RANGE_JPEG ? kFull : kLimited;
            EXPECT_EQ(target.data()[0][0], expected[0]) << range;
            EXPECT_EQ(target.data()[1][0], expected[1]) << range;
            EXPECT_EQ(format == AV_PIX_FMT_NV12 ? target.data()[1][1] : target.data()[2][0], expected[2])
                << range;
        }
    }
}

TEST(FillRectangle, WritesAlphaAsItIs) {
    for (const AVPixelFormat format : {AV_PIX_FMT_YUVA420P, NVA12}) {
        Picture target = picture(format, 4, 4);
        fillRectangle(target, {0, 0, 2, 2}, Color{255, 0, 0, 0});
        EXPECT_EQ(drawn(target, 3, 4, 4, 0), (Rows{"##..", "##..", "....", "...."})) << format;
        EXPECT_EQ(drawn(target, 0, 4, 4, kLimited[0]), (Rows{"##..", "##..", "....", "...."})) << format;
        fillRectangle(target, {2, 2, 2, 2}, kRed);
        EXPECT_EQ(target.data()[3][2 * target.linesize()[3] + 2], 130) << format;
    }
    Picture packed = picture(AV_PIX_FMT_ARGB, 3, 3);
    fillRectangle(packed, {1, 1, 1, 1}, kRed);
    const std::uint8_t pixel[4] = {130, 255, 0, 0};
    EXPECT_EQ(std::memcmp(packed.data()[0] + packed.linesize()[0] + 4, pixel, 4), 0);
    EXPECT_EQ(packed.data()[0][packed.linesize()[0] + 3], 7);
    EXPECT_EQ(packed.data()[0][packed.linesize()[0] + 8], 7);
}

TEST(FillRectangle, FillsThePartThatLiesOnThePicture) {
    Picture target = picture(AV_PIX_FMT_GRAY8, 5, 4);
    fillRectangle(target, {3, -5, INT_MAX - 3, 7}, Color{255, 255, 255});
    EXPECT_EQ(drawn(target, 0, 5, 4, 235), (Rows{"...##", "...##", ".....", "....."}));
}

TEST(FillRectangle, OutsideThePictureDoesNothing) {
    for (const Rect rect :
         {Rect{6, 0, 2, 2}, Rect{0, 4, 2, 2}, Rect{-2, 0, 2, 2}, Rect{1, 1, 0, 2}, Rect{1, 1, 2, 0},
          Rect{INT_MAX, INT_MAX, INT_MAX, INT_MAX}, Rect{INT_MIN, INT_MIN, 5, 5}}) {
        Picture target = picture(AV_PIX_FMT_YUV420P, 6, 4);
        fillRectangle(target, rect, kRed);
        EXPECT_EQ(drawn(target, 0, 6, 4, 0), (Rows{"......", "......", "......", "......"})) << rect;
    }
}

TEST(FillRectangle, NegativeSizesDrawNothing) {
    Picture target = picture(AV_PIX_FMT_YUV420P, 6, 4);
    fillRectangle(target, {4, 3, -2, -2}, kRed);
    fillRectangle(target, {4, 1, -2, 2}, kRed);
    EXPECT_EQ(drawn(target, 0, 6, 4, 0), (Rows{"......", "......", "......", "......"}));
}

TEST(FillRectangle, OutsideThePictureTheFormatDoesNotMatter) {
    Picture palette = picture(AV_PIX_FMT_YUYV422, 4, 4);
    EXPECT_NO_THROW(fillRectangle(palette, {9, 9, 1, 1}, kRed));
}

TEST(FillRectangle, WholePicturesKeepAnOddLastRowAndColumnOfSubsampledFormats) {
    Picture target = picture(AV_PIX_FMT_NV12, 5, 3);
    fillRectangle(target, kRed);
    EXPECT_EQ(drawn(target, 0, 5, 3, kLimited[0]), (Rows{"####.", "####.", "....."}));
}

TEST(FillRectangle, DrawsNothingWhereRoundingLeavesNothing) {
    Picture target = picture(AV_PIX_FMT_YUV420P, 6, 4);
    fillRectangle(target, {2, 2, 1, 1}, kRed);
    fillRectangle(target, {2, 2, 1, 2}, kRed);
    fillRectangle(target, {2, 2, 2, 1}, kRed);
    EXPECT_EQ(drawn(target, 0, 6, 4, 0), (Rows{"......", "......", "......", "......"}));
    EXPECT_EQ(drawn(target, 1, 3, 2, 0), (Rows{"...", "..."}));
}

TEST(FillRectangle, RoundsByTheLargestSubsamplingOfTheFormat) {
    Picture target = picture(AV_PIX_FMT_YUV422P, 6, 4);
    fillRectangle(target, {1, 1, 3, 1}, kRed);
    EXPECT_EQ(drawn(target, 0, 6, 4, kLimited[0]), (Rows{"......", "##....", "......", "......"}));
    EXPECT_EQ(drawn(target, 1, 3, 2, kLimited[1]), (Rows{"...", "#.."}));
}

TEST(FillRectangle, SharedPicturesAreRefused) {
    Picture target = picture(AV_PIX_FMT_YUV420P, 4, 4);
    const Picture other = target;
    EXPECT_THROW_TEXT(std::runtime_error, "fillRectangle: Picture must be editable",
                      fillRectangle(target, kRed));
    Picture nothing;
    EXPECT_THROW_TEXT(std::runtime_error, "fillRectangle: Picture must be editable",
                      fillRectangle(nothing, {9, 9, 1, 1}, kRed));
}

TEST(FillRectangle, NamesTheFormatThatItCannotDrawOn) {
    Picture target = picture(AV_PIX_FMT_YUYV422, 4, 4);
    EXPECT_THROW_TEXT(std::runtime_error, "Drawing is not supported for yuyv422",
                      fillRectangle(target, kRed));
    Picture unknown(MemBuffer(64, false), Size{4, 4}, target.data().data(), target.linesize().data(),
                    static_cast<AVPixelFormat>(99999), AVCOL_RANGE_MPEG);
    EXPECT_THROW_TEXT(std::runtime_error, "Drawing is not supported for AVPixelFormat(99999)",
                      fillRectangle(unknown, kRed));
}

TEST(FillWithDebugData, CountsByThePicturesWidthInEveryPlane) {
    Picture target = picture(AV_PIX_FMT_NV12, 6, 4);
    const Picture shared = target;
    fillWithDebugData(target);
    for (std::size_t plane = 0; plane < 2; ++plane) {
        for (int i = 0; i < target.linesize()[plane] * (plane == 0 ? 4 : 2); ++i) {
            ASSERT_EQ(target.data()[plane][i], i / 6 % 256) << "plane " << plane << " byte " << i;
        }
    }
}

TEST(FillWithDebugData, ChromaHasHalfTheRowsRoundedDownAndAlphaHasAll) {
    Picture target = picture(AV_PIX_FMT_YUVA420P, 6, 5);
    fillWithDebugData(target);
    for (std::size_t plane = 0; plane < 4; ++plane) {
        const bool isChroma = plane == 1 || plane == 2;
        const int bytes = target.linesize()[plane] * (isChroma ? 2 : 5);
        for (int i = 0; i < bytes; ++i) {
            ASSERT_EQ(target.data()[plane][i], i / 6 % 256) << "plane " << plane << " byte " << i;
        }
        if (isChroma) {
            EXPECT_EQ(target.data()[plane][bytes], 7) << "the third row of plane " << plane;
        }
    }
}

TEST(FillWithDebugData, StartsAgainAfter255) {
    Picture target = picture(AV_PIX_FMT_GRAY8, 1, 20);
    fillWithDebugData(target);
    for (int i = 0; i < target.linesize()[0] * 20; ++i) {
        ASSERT_EQ(target.data()[0][i], i % 256);
    }
}

TEST(FillWithDebugData, AWidthOfZeroGivesZeros) {
    std::vector<std::uint8_t> memory(64, 9);
    std::uint8_t* data[4] = {memory.data()};
    const int linesize[4] = {16, 0, 0, 0};
    Picture target(MemBuffer(64, false), Size{0, 3}, data, linesize, AV_PIX_FMT_GRAY8, AVCOL_RANGE_MPEG);
    fillWithDebugData(target);
    EXPECT_EQ(memory[0], 0);
    EXPECT_EQ(memory[47], 0);
    EXPECT_EQ(memory[48], 9);
}

TEST(FillWithDebugData, DoesNothingToAnEmptyPicture) {
    Picture nothing;
    fillWithDebugData(nothing);
    EXPECT_TRUE(nothing.empty());
}

}  // namespace
}  // namespace vidorra
