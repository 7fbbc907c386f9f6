#include "vidorra/process/color_range_converter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "support/media.h"
#include "support/process.h"
#include "support/throw_text.h"
#include "vidorra/core/enum_text.h"

namespace vidorra {
namespace {

using Type = ColorRangeConverter::Type;

constexpr auto kUnknownType = static_cast<Type>(77);

// The largest byte b with b <= (v - 16) * 255 / steps + 1/2, found without a division.
std::uint8_t referenceFullRange(int v, int steps) {
    int b = 0;
    while (b < 255 && 2 * steps * (b + 1) <= 2 * 255 * (v - 16) + steps) {
        ++b;
    }
    return static_cast<std::uint8_t>(b);
}

// Planes with random bytes in and around them. The picture's own size decides how much belongs to it, so that
// what an odd size adds is there to be left alone.
class Raster {
public:
    static constexpr int kGuard = 100;

    Raster(bool interleaved, int width, int height, int padding, std::mt19937& random) {
        const int chromaWidth = (width + 1) / 2;
        const int chromaHeight = (height + 1) / 2;
        addPlane(width, height, padding, random);
        if (interleaved) {
            addPlane(2 * chromaWidth, chromaHeight, padding + 1, random);
        } else {
            addPlane(chromaWidth, chromaHeight, padding + 2, random);
            addPlane(chromaWidth, chromaHeight, padding + 3, random);
        }
    }

    std::array<unsigned char*, 4> data() {
        std::array<unsigned char*, 4> result{};
        for (std::size_t plane = 0; plane < mMemory.size(); ++plane) {
            result[plane] = mMemory[plane].data() + kGuard;
        }
        return result;
    }
    std::array<int, 4> linesize() const {
        std::array<int, 4> result{};
        std::copy(mLinesize.begin(), mLinesize.end(), result.begin());
        return result;
    }
    std::uint8_t& at(std::size_t plane, int x, int y) {
        return mMemory[plane][static_cast<std::size_t>(kGuard + y * mLinesize[plane] + x)];
    }

    friend bool operator==(const Raster& a, const Raster& b) { return a.mMemory == b.mMemory; }

private:
    void addPlane(int rowBytes, int rows, int padding, std::mt19937& random) {
        mLinesize.push_back(rowBytes + padding);
        std::vector<std::uint8_t> memory(static_cast<std::size_t>((rowBytes + padding) * rows + 2 * kGuard));
        std::generate(memory.begin(), memory.end(), [&] { return static_cast<std::uint8_t>(random()); });
        mMemory.push_back(std::move(memory));
    }

    std::vector<std::vector<std::uint8_t>> mMemory;
    std::vector<int> mLinesize;
};

// A conversion that is supported.
void convert(int width, int height, AVPixelFormat srcFormat, Raster& src, Raster& dst,
             Type type = Type::Any) {
    ColorRangeConverter::convert(width, height, srcFormat, AVCOL_RANGE_MPEG, src.data().data(),
                                 src.linesize().data(), AV_PIX_FMT_YUV420P, AVCOL_RANGE_JPEG,
                                 dst.data().data(), dst.linesize().data(), type);
}

// What has to become of `dst`.
Raster expectedRaster(int width, int height, AVPixelFormat srcFormat, Raster& src, const Raster& dst) {
    Raster expected = dst;
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            expected.at(0, x, y) = referenceFullRange(src.at(0, x, y), 219);
        }
    }
    for (int y = 0; y < height / 2; ++y) {
        for (int x = 0; x < width / 2; ++x) {
            const bool nv12 = srcFormat == AV_PIX_FMT_NV12;
            expected.at(1, x, y) = referenceFullRange(nv12 ? src.at(1, 2 * x, y) : src.at(1, x, y), 224);
            expected.at(2, x, y) = referenceFullRange(nv12 ? src.at(1, 2 * x + 1, y) : src.at(2, x, y), 224);
        }
    }
    return expected;
}

class ColorRangeConverterFrom : public testing::TestWithParam<AVPixelFormat> {
protected:
    Raster source(int width, int height, int padding) {
        return Raster(GetParam() == AV_PIX_FMT_NV12, width, height, padding, mRandom);
    }
    Raster destination(int width, int height, int padding) {
        return Raster(false, width, height, padding, mRandom);
    }
    void expectConversion(int width, int height, int srcPadding, int dstPadding, Type type = Type::Any) {
        Raster src = source(width, height, srcPadding);
        const Raster srcBefore = src;
        Raster dst = destination(width, height, dstPadding);
        const Raster expected = expectedRaster(width, height, GetParam(), src, dst);
        convert(width, height, GetParam(), src, dst, type);
        EXPECT_TRUE(dst == expected) << width << "x" << height;
        EXPECT_TRUE(src == srcBefore) << width << "x" << height;
    }

    std::mt19937 mRandom{5};
};

INSTANTIATE_TEST_SUITE_P(, ColorRangeConverterFrom, testing::Values(AV_PIX_FMT_YUV420P, AV_PIX_FMT_NV12),
                         [](const auto& each) { return to_string(each.param); });

TEST_P(ColorRangeConverterFrom, ConvertsAllWidthsAndLeavesTheLastOddChromaAndAllElseAlone) {
    for (int width = 1; width < 200; ++width) {
        expectConversion(width, 2 + width % 5, width % 7, width % 3);
    }
}

TEST_P(ColorRangeConverterFrom, ConvertsLargeAndOddSizesWithLinesizesLargerThanRows) {
    expectConversion(1921, 33, 95, 64);
    expectConversion(640, 17, 0, 0);
    expectConversion(127, 1, 1, 0);
    expectConversion(3, 255, 40, 3);
}

TEST_P(ColorRangeConverterFrom, WritesOnlyLumaAtAHeightOfOne) {
    Raster src = source(70, 1, 0);
    Raster dst = destination(70, 1, 0);
    const Raster before = dst;
    convert(70, 1, GetParam(), src, dst);
    Raster after = dst;
    EXPECT_FALSE(after == before);
    for (int x = 0; x < 70; ++x) {
        ASSERT_EQ(after.at(0, x, 0), referenceFullRange(src.at(0, x, 0), 219));
        after.at(0, x, 0) = Raster(before).at(0, x, 0);
    }
    EXPECT_TRUE(after == before);
}

TEST_P(ColorRangeConverterFrom, WritesNothingForASizeBelowOne) {
    for (const auto& [width, height] :
         {std::pair{0, 0}, {0, 4}, {4, 0}, {-1, 4}, {-64, 4}, {4, -1}, {4, -2}, {-2, -2}}) {
        Raster src = source(64, 4, 0);
        Raster dst = destination(64, 4, 0);
        const Raster before = dst;
        convert(width, height, GetParam(), src, dst);
        EXPECT_TRUE(dst == before) << width << "x" << height;
    }
}

TEST_P(ColorRangeConverterFrom, ConvertsAlikeForEveryTypeButSimd) {
    expectConversion(75, 6, 2, 1, Type::Any);
    expectConversion(75, 6, 2, 1, Type::Reference);
    expectConversion(75, 6, 2, 1, kUnknownType);
    expectConversion(75, 6, 2, 1, static_cast<Type>(-1));
}

TEST_P(ColorRangeConverterFrom, FollowsNegativeLinesizes) {
    Raster src = source(66, 4, 0);
    Raster dst = destination(66, 4, 0);
    const Raster expected = expectedRaster(66, 4, GetParam(), src, dst);
    const auto flip = [](auto data, auto linesize) {
        for (std::size_t plane = 0; plane < 4; ++plane) {
            if (data[plane] != nullptr) {
                data[plane] += (plane == 0 ? 3 : 1) * linesize[plane];
                linesize[plane] = -linesize[plane];
            }
        }
        return std::pair(data, linesize);
    };
    const auto [srcData, srcLinesize] = flip(src.data(), src.linesize());
    const auto [dstData, dstLinesize] = flip(dst.data(), dst.linesize());
    ColorRangeConverter::convert(66, 4, GetParam(), AVCOL_RANGE_MPEG, srcData.data(), srcLinesize.data(),
                                 AV_PIX_FMT_YUV420P, AVCOL_RANGE_JPEG, dstData.data(), dstLinesize.data(),
                                 Type::Any);
    EXPECT_TRUE(dst == expected);
}

TEST(ColorRangeConverter, ConvertsAPlanarPictureInPlace) {
    std::mt19937 random(6);
    Raster picture(false, 131, 5, 4, random);
    Raster src = picture;
    const Raster expected = expectedRaster(131, 5, AV_PIX_FMT_YUV420P, src, picture);
    convert(131, 5, AV_PIX_FMT_YUV420P, picture, picture);
    EXPECT_TRUE(picture == expected);
}

TEST(ColorRangeConverter, GivesTheBytesOfTheFormulasInFFmpegsTables) {
    // All bytes in all planes: 64x48 has 12 times 256 luma and 3 times 256 chroma bytes a plane.
    constexpr int kWidth = 64;
    constexpr int kHeight = 48;
    std::string input;
    for (int i = 0; i < kWidth * kHeight * 3 / 2; ++i) {
        input += static_cast<char>(i * 7);
    }
    const auto inputFile = test::temporaryFile("limited.yuv", input);
    const std::string output = test::run(
        {"ffmpeg", "-v", "error", "-f", "rawvideo", "-pix_fmt", "yuv420p", "-s", "64x48", "-i",
         inputFile.string(), "-vf",
         "lutyuv=y='clip(floor((val-16)*255/219+0.5),0,255)':u='clip(floor((val-16)*255/224+0.5),0,255)':"
         "v='clip(floor((val-16)*255/224+0.5),0,255)'",
         "-f", "rawvideo", "-pix_fmt", "yuv420p", "-"});

    std::string converted(input.size(), '\0');
    const auto planes = [](auto* bytes) {
        return std::array{bytes, bytes + kWidth * kHeight, bytes + kWidth * kHeight * 5 / 4};
    };
    const auto src = planes(reinterpret_cast<const unsigned char*>(input.data()));
    const auto dst = planes(reinterpret_cast<unsigned char*>(converted.data()));
    const int linesize[] = {kWidth, kWidth / 2, kWidth / 2};
    ColorRangeConverter::convert(kWidth, kHeight, AV_PIX_FMT_YUV420P, AVCOL_RANGE_MPEG, src.data(), linesize,
                                 AV_PIX_FMT_YUV420P, AVCOL_RANGE_JPEG, dst.data(), linesize, Type::Any);
    EXPECT_TRUE(converted == output);
}

struct Request {
    AVPixelFormat srcFormat = AV_PIX_FMT_NV12;
    AVColorRange srcRange = AVCOL_RANGE_MPEG;
    AVPixelFormat dstFormat = AV_PIX_FMT_YUV420P;
    AVColorRange dstRange = AVCOL_RANGE_JPEG;
    Type type = Type::Any;

    bool isSupported() const {
        return ColorRangeConverter::isSupported(srcFormat, srcRange, dstFormat, dstRange, type);
    }
    // With null planes: nothing may be looked at.
    void convert() const {
        ColorRangeConverter::convert(64, 64, srcFormat, srcRange, nullptr, nullptr, dstFormat, dstRange,
                                     nullptr, nullptr, type);
    }
};

TEST(ColorRangeConverter, SupportsLimitedPlanarAndSemiPlanarToFullPlanarOnly) {
    for (const AVPixelFormat srcFormat :
         {AV_PIX_FMT_NONE, AV_PIX_FMT_YUV420P, AV_PIX_FMT_NV12, NVA12, AV_PIX_FMT_NV21, AV_PIX_FMT_YUVJ420P,
          AV_PIX_FMT_YUVA420P, AV_PIX_FMT_YUV422P, AV_PIX_FMT_RGBA}) {
        for (const AVPixelFormat dstFormat : {AV_PIX_FMT_NONE, AV_PIX_FMT_YUV420P, AV_PIX_FMT_NV12,
                                              AV_PIX_FMT_YUVJ420P, AV_PIX_FMT_YUV422P}) {
            for (const AVColorRange srcRange :
                 {AVCOL_RANGE_UNSPECIFIED, AVCOL_RANGE_MPEG, AVCOL_RANGE_JPEG}) {
                for (const AVColorRange dstRange :
                     {AVCOL_RANGE_UNSPECIFIED, AVCOL_RANGE_MPEG, AVCOL_RANGE_JPEG}) {
                    for (const Type type : {Type::Any, Type::SIMD, Type::Reference, kUnknownType}) {
                        const Request request{srcFormat, srcRange, dstFormat, dstRange, type};
                        const bool usual = dstFormat == AV_PIX_FMT_YUV420P && srcRange == AVCOL_RANGE_MPEG &&
                                           dstRange == AVCOL_RANGE_JPEG;
                        const bool expected =
                            usual && type != Type::SIMD &&
                            (srcFormat == AV_PIX_FMT_YUV420P || srcFormat == AV_PIX_FMT_NV12);
                        ASSERT_EQ(request.isSupported(), expected)
                            << srcFormat << ":" << srcRange << " to " << dstFormat << ":" << dstRange;
                        if (!expected) {
                            ASSERT_THROW(request.convert(), ColorRangeConverterError);
                        }
                    }
                }
            }
        }
    }
}

TEST(ColorRangeConverter, SaysWhatIsNotSupported) {
    EXPECT_THROW_TEXT(ColorRangeConverterError,
                      "ColorRangeConverterError: Unsupported any PixelFormat/ColorRange conversion from "
                      "nv12:tv to nv12:pc",
                      Request{.dstFormat = AV_PIX_FMT_NV12}.convert());
    EXPECT_THROW_TEXT(ColorRangeConverterError,
                      "ColorRangeConverterError: Unsupported reference PixelFormat/ColorRange conversion "
                      "from yuv420p:pc to yuv420p:unknown",
                      (Request{.srcFormat = AV_PIX_FMT_YUV420P,
                               .srcRange = AVCOL_RANGE_JPEG,
                               .dstRange = AVCOL_RANGE_UNSPECIFIED,
                               .type = Type::Reference}
                           .convert()));
    EXPECT_THROW_TEXT(
        ColorRangeConverterError,
        "ColorRangeConverterError: Unsupported unknown PixelFormat/ColorRange conversion from "
        "nva12:tv to AVPixelFormat(-1):pc",
        (Request{.srcFormat = NVA12, .dstFormat = AV_PIX_FMT_NONE, .type = kUnknownType}.convert()));
}

TEST(ColorRangeConverter, RefusesSimdForFormatsThatItConverts) {
    const Request request{.type = Type::SIMD};
    EXPECT_FALSE(request.isSupported());
    EXPECT_THROW_TEXT(ColorRangeConverterError,
                      "ColorRangeConverterError: Unsupported SIMD PixelFormat/ColorRange conversion from "
                      "nv12:tv to yuv420p:pc",
                      request.convert());
}

TEST(ColorRangeConverter, WritesNothingWhenItRefuses) {
    std::mt19937 random(7);
    Raster src(true, 64, 4, 0, random);
    Raster dst(false, 64, 4, 0, random);
    const Raster before = dst;
    EXPECT_THROW(convert(64, 4, AV_PIX_FMT_NV12, src, dst, Type::SIMD), std::runtime_error);
    EXPECT_THROW(convert(64, 4, AV_PIX_FMT_NV21, src, dst), std::runtime_error);
    EXPECT_TRUE(dst == before);
}

TEST(ColorRangeConverter, HasTypesOfFixedValues) {
    EXPECT_EQ(static_cast<int>(Type::Any), 0);
    EXPECT_EQ(static_cast<int>(Type::SIMD), 1);
    EXPECT_EQ(static_cast<int>(Type::Reference), 2);
}

}  // namespace
}  // namespace vidorra
