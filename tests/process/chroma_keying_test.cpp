#include "vidorra/process/chroma_keying.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <stdexcept>
#include <utility>
#include <vector>

#include "support/throw_text.h"
#include "vidorra/core/enum_text.h"
#include "vidorra/process/color_space_converter.h"

namespace vidorra {
namespace {

using Bytes = std::vector<std::uint8_t>;

const Color kGreen(0, 255, 0);
constexpr std::array<std::uint8_t, 4> kMarker = {0xfe, 0xed, 0x0b, 0xad};

Picture randomPicture(AVPixelFormat format, int width, int height, AVColorRange range = AVCOL_RANGE_MPEG) {
    static std::mt19937 random(8);
    Picture result(Size{width, height}, format, range, 16);
    for (std::size_t plane = 0; plane < 4; ++plane) {
        const int rows = plane == 1 || plane == 2 ? (height + 1) / 2 : height;
        if (result.data()[plane] != nullptr) {
            for (int i = 0; i < rows * result.linesize()[plane]; ++i) {
                result.data()[plane][i] = static_cast<std::uint8_t>(random());
            }
        }
    }
    return result;
}

// The pixels of a plane of a YUV420P or YUVA420P picture.
Bytes plane(const Picture& picture, std::size_t index) {
    const Size size = picture.frameSize();
    const bool chroma = index == 1 || index == 2;
    const int width = chroma ? (size.width + 1) / 2 : size.width;
    const int height = chroma ? (size.height + 1) / 2 : size.height;
    Bytes result;
    for (int y = 0; y < height; ++y) {
        const std::uint8_t* row = picture.data()[index] + y * picture.linesize()[index];
        result.insert(result.end(), row, row + width);
    }
    return result;
}

std::array<Bytes, 3> colour(const Picture& picture) {
    return {plane(picture, 0), plane(picture, 1), plane(picture, 2)};
}

Bytes markedPlane(Size size) {
    Bytes result(static_cast<std::size_t>(size.width * size.height));
    std::copy(kMarker.begin(), kMarker.end(), result.begin());
    return result;
}

TEST(ChromaKeying, SharesTheColourOfPlanarPicturesAndAddsAClearAlphaPlaneWithItsMarker) {
    for (const AVPixelFormat format : {AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUVA420P}) {
        for (const Size size : {Size{38, 20}, Size{37, 19}, Size{4, 1}, Size{16, 2}}) {
            SCOPED_TRACE(to_string(format));
            const Picture src = randomPicture(format, size.width, size.height, AVCOL_RANGE_JPEG);
            const Picture before(size, src.data().data(), src.linesize().data(), format, AVCOL_RANGE_JPEG, 1);
            const Picture result = chromaKeying(src, kGreen, 0.1F, 0.2F);
            EXPECT_EQ(result.pixelFormat(), AV_PIX_FMT_YUVA420P);
            EXPECT_EQ(result.frameSize(), size);
            EXPECT_EQ(result.colorRange(), AVCOL_RANGE_JPEG);
            for (const std::size_t shared : {0, 1, 2}) {
                EXPECT_EQ(result.data()[shared], src.data()[shared]);
            }
            EXPECT_EQ(colour(result), colour(before));
            EXPECT_EQ(result.linesize()[3], size.width);
            EXPECT_EQ(plane(result, 3), markedPlane(size));
            if (format == AV_PIX_FMT_YUVA420P) {
                EXPECT_EQ(plane(src, 3), plane(before, 3));
                EXPECT_NE(result.data()[3], src.data()[3]);
            }
        }
    }
}

TEST(ChromaKeying, MarksASmallPlaneOverItsEnd) {
    const Picture result = chromaKeying(randomPicture(AV_PIX_FMT_YUV420P, 1, 2), kGreen, 0, 0);
    EXPECT_EQ(plane(result, 3), (Bytes{0xfe, 0xed}));
}

TEST(ChromaKeying, GivesTheSameForAnyKeyAndNumbers) {
    const Picture src = randomPicture(AV_PIX_FMT_YUV420P, 20, 6);
    constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
    for (const Color& key : {Color(), Color(255, 255, 255, 0), Color(12, 200, 77)}) {
        for (const auto& [first, second] : {std::pair{0.F, 0.F}, {1.F, -5.F}, {kNan, kNan}, {1e30F, 0.5F}}) {
            EXPECT_EQ(plane(chromaKeying(src, key, first, second), 3), markedPlane({20, 6}));
        }
    }
}

TEST(ChromaKeying, ConvertsOtherFormatsInTheirRange) {
    for (const AVPixelFormat format :
         {AV_PIX_FMT_NV12, AV_PIX_FMT_RGB24, AV_PIX_FMT_RGBA, AV_PIX_FMT_YUV444P}) {
        for (const AVColorRange range : {AVCOL_RANGE_MPEG, AVCOL_RANGE_JPEG, AVCOL_RANGE_UNSPECIFIED}) {
            SCOPED_TRACE(to_string(format) + " " + to_string(range));
            Picture src(Size{32, 16}, format, range, 16);
            for (std::size_t i = 0; i < 4; ++i) {
                const int rows = format == AV_PIX_FMT_NV12 && i == 1 ? 8 : 16;
                for (int at = 0; src.data()[i] != nullptr && at < rows * src.linesize()[i]; ++at) {
                    src.data()[i][at] = static_cast<std::uint8_t>(at * 3 + 7);
                }
            }
            const Picture converted = ColorSpaceConverter::convertTo(src, AV_PIX_FMT_YUVA420P, range);
            Picture result = chromaKeying(src, kGreen, 0.1F, 0.2F);
            ASSERT_EQ(result.pixelFormat(), AV_PIX_FMT_YUVA420P);
            EXPECT_EQ(result.frameSize(), (Size{32, 16}));
            EXPECT_EQ(result.colorRange(), converted.colorRange());
            EXPECT_EQ(colour(result), colour(converted));
            EXPECT_EQ(plane(result, 3), markedPlane({32, 16}));
            EXPECT_TRUE(result.editable());
            EXPECT_TRUE(src.editable());
        }
    }
}

TEST(ChromaKeying, DoesNotDetachTheSource) {
    const Picture src = randomPicture(AV_PIX_FMT_YUV420P, 20, 6);
    Picture result = chromaKeying(src, kGreen, 0, 0);
    EXPECT_FALSE(result.editable());
    EXPECT_FALSE(src.editable());
    result = Picture();
    EXPECT_TRUE(src.editable());
}

TEST(ChromaKeying, RefusesWhatCannotBeConverted) {
    EXPECT_THROW_TEXT(std::runtime_error, "chromaKeyingInPlace: Picture must be editable",
                      (void)chromaKeying(Picture(), kGreen, 0, 0));
}

TEST(ChromaKeyingInPlace, ClearsTheWholePlaneAndLeavesTheColour) {
    Picture picture = randomPicture(AV_PIX_FMT_YUVA420P, 37, 11);
    ASSERT_GT(picture.linesize()[3], 37);
    const auto before = colour(picture);
    chromaKeyingInPlace(picture, kGreen, 0.1F, 0.2F);
    EXPECT_EQ(colour(picture), before);
    const auto size = static_cast<std::size_t>(picture.linesize()[3]) * 11;
    Bytes expected(size);
    std::copy(kMarker.begin(), kMarker.end(), expected.begin());
    // With what lies between the rows.
    EXPECT_EQ(Bytes(picture.data()[3], picture.data()[3] + size), expected);
}

TEST(ChromaKeyingInPlace, RefusesSharedAndEmptyPicturesAndThenOtherFormats) {
    const char* const notEditable = "chromaKeyingInPlace: Picture must be editable";
    const char* const unsupported = "chromaKeyingInPlace: Unsupported pixel format";
    Picture empty;
    EXPECT_THROW_TEXT(std::runtime_error, notEditable, chromaKeyingInPlace(empty, kGreen, 0, 0));
    for (const AVPixelFormat format : {AV_PIX_FMT_YUV420P, AV_PIX_FMT_NV12, AV_PIX_FMT_RGBA, NVA12}) {
        SCOPED_TRACE(to_string(format));
        Picture picture = randomPicture(format, 16, 8);
        EXPECT_THROW_TEXT(std::runtime_error, unsupported, chromaKeyingInPlace(picture, kGreen, 0, 0));
        const Picture copy = picture;
        EXPECT_THROW_TEXT(std::runtime_error, notEditable, chromaKeyingInPlace(picture, kGreen, 0, 0));
    }
    Picture shared = randomPicture(AV_PIX_FMT_YUVA420P, 16, 8);
    const Bytes before = plane(shared, 3);
    const Picture copy = shared;
    EXPECT_THROW_TEXT(std::runtime_error, notEditable, chromaKeyingInPlace(shared, kGreen, 0, 0));
    EXPECT_EQ(plane(shared, 3), before);
}

TEST(ChromakeyKernels, ClearAndMarkWholeRowsAndTouchNothingElse) {
    constexpr int kLinesize = 24;
    constexpr int kHeight = 5;
    constexpr std::size_t kGuard = 16;
    const unsigned char key[] = {85, 255};
    Bytes expected(kGuard + kLinesize * kHeight + kGuard, 77);
    std::fill(expected.begin() + kGuard, expected.end() - kGuard, std::uint8_t{0});
    std::copy(kMarker.begin(), kMarker.end(), expected.begin() + kGuard);

    Bytes copied(expected.size(), 77);
    chromakey_yuva420p(nullptr, nullptr, copied.data() + kGuard, kLinesize, 20, kHeight, key, 0.5F, 0.5F);
    EXPECT_EQ(copied, expected);

    Bytes inPlace(expected.size(), 77);
    unsigned char* planes[] = {nullptr, nullptr, nullptr, inPlace.data() + kGuard};
    const int linesizes[] = {1, 2, 3, kLinesize};
    chromakey_yuva420p_inplace(planes, linesizes, 20, kHeight, key, 0.5F, 0.5F);
    EXPECT_EQ(inPlace, expected);
}

}  // namespace
}  // namespace vidorra
