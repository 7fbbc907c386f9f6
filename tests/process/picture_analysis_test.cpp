#include "vidorra/process/picture_analysis.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/allocation_limit.h"
#include "support/throw_text.h"
#include "vidorra/core/enum_text.h"
#include "vidorra/core/format.h"

extern "C" {
#include <libavutil/imgutils.h>
#include <libavutil/md5.h>
#include <libavutil/pixdesc.h>
}

namespace vidorra {
namespace {

int rowsOf(const Picture& picture, std::size_t plane) {
    const int height = picture.frameSize().height;
    const AVPixelFormat format = picture.pixelFormat();
    const bool halved = format == AV_PIX_FMT_YUV420P || format == AV_PIX_FMT_YUVA420P ||
                        format == AV_PIX_FMT_NV12 || format == AV_PIX_FMT_YUV420P10LE ||
                        format == AV_PIX_FMT_YUVA420P10LE || format == NVA12;
    return halved && (plane == 1 || plane == 2) ? (height + 1) / 2 : height;
}

void fill(Picture& picture, int value) {
    for (std::size_t plane = 0; plane < 4; ++plane) {
        if (picture.data()[plane] != nullptr) {
            std::memset(picture.data()[plane], value,
                        static_cast<std::size_t>(picture.linesize()[plane] * rowsOf(picture, plane)));
        }
    }
}

Picture plain(AVPixelFormat format, int width, int height, int value, AVColorRange range = AVCOL_RANGE_MPEG) {
    Picture result(Size{width, height}, format, range, 32);
    fill(result, value);
    return result;
}

std::uint8_t& at(Picture& picture, std::size_t plane, int byte, int row) {
    return picture.data()[plane][row * picture.linesize()[plane] + byte];
}

// The position of alpha in a format's pixels.
struct AlphaPlace {
    AVPixelFormat format;
    std::size_t plane;
    int step;
    int offset;
    int gridX;
    int gridY;
};
constexpr AlphaPlace kAlphaFormats[] = {{AV_PIX_FMT_YUVA420P, 3, 1, 0, 2, 2},
                                        {AV_PIX_FMT_YUVA422P, 3, 1, 0, 2, 1},
                                        {AV_PIX_FMT_YUVA444P, 3, 1, 0, 1, 1},
                                        {AV_PIX_FMT_RGBA, 0, 4, 3, 1, 1},
                                        {AV_PIX_FMT_ARGB, 0, 4, 0, 1, 1},
                                        {AV_PIX_FMT_YA8, 0, 2, 1, 1, 1},
                                        {AV_PIX_FMT_YUVA420P10LE, 3, 2, 0, 2, 2},
                                        {AV_PIX_FMT_RGBA64LE, 0, 8, 6, 1, 1},
                                        {NVA12, 3, 1, 0, 2, 2}};

// The rectangle by the steps of its definition, pixel after pixel and column after column.
Rect referenceTrim(Picture& picture, const AlphaPlace& alpha) {
    const int width = picture.frameSize().width;
    const int height = picture.frameSize().height;
    const auto visible = [&](int x, int y) {
        return at(picture, alpha.plane, x * alpha.step + alpha.offset, y) != 0;
    };
    const int last = height - 1;
    if (last < 1) {
        return {};
    }
    int top = -1;
    int firstX = 0;
    for (int y = 0; y < last && top < 0; ++y) {
        for (int x = 0; x < width && top < 0; ++x) {
            if (visible(x, y)) {
                top = y;
                firstX = x;
            }
        }
    }
    if (top < 0) {
        return {};
    }
    int left = firstX;
    int lowestKnown = top;
    bool found = false;
    for (int x = 0; x < firstX && !found; ++x) {
        for (int y = last; y > top && !found; --y) {
            if (visible(x, y)) {
                found = true;
                left = x;
                lowestKnown = y;
            }
        }
    }
    int bottom = lowestKnown;
    int rightKnown = firstX;
    found = false;
    for (int y = last; y > lowestKnown && !found; --y) {
        for (int x = width - 1; x >= left && !found; --x) {
            if (visible(x, y)) {
                found = true;
                bottom = y;
                rightKnown = x;
            }
        }
    }
    int right = rightKnown;
    found = false;
    for (int x = width - 1; x > rightKnown && !found; --x) {
        for (int y = bottom; y >= top && !found; --y) {
            if (visible(x, y)) {
                found = true;
                right = x;
            }
        }
    }
    const int x = left / alpha.gridX * alpha.gridX;
    const int y = top / alpha.gridY * alpha.gridY;
    return {x, y, (right / alpha.gridX + 1) * alpha.gridX - x, (bottom / alpha.gridY + 1) * alpha.gridY - y};
}

TEST(AlphaTrimmedRect, IsTheRectangleOfTheDefinitionForRandomPixels) {
    std::mt19937 random(7);
    for (const AlphaPlace& alpha : kAlphaFormats) {
        for (int round = 0; round < 250; ++round) {
            const int width = 1 + static_cast<int>(random() % (round % 5 == 0 ? 600 : 40));
            const int height = 1 + static_cast<int>(random() % 20);
            Picture picture = plain(alpha.format, width, height, 0);
            // Other components are visible everywhere, and the padding too.
            for (int y = 0; y < height; ++y) {
                std::memset(&at(picture, alpha.plane, 0, y), 1,
                            static_cast<std::size_t>(picture.linesize()[alpha.plane]));
                for (int x = 0; x < width; ++x) {
                    at(picture, alpha.plane, x * alpha.step + alpha.offset, y) = 0;
                }
            }
            const unsigned pixels = random() % 4;
            for (unsigned i = 0; i < pixels; ++i) {
                at(picture, alpha.plane,
                   static_cast<int>(random() % static_cast<unsigned>(width)) * alpha.step + alpha.offset,
                   static_cast<int>(random() % static_cast<unsigned>(height))) =
                    static_cast<std::uint8_t>(1U << (random() % 8));
            }
            ASSERT_EQ(alphaTrimmedRect(picture), referenceTrim(picture, alpha))
                << alpha.format << " " << width << "x" << height << " with " << pixels;
        }
    }
}

TEST(AlphaTrimmedRect, IsTheWholePictureWithoutAlpha) {
    EXPECT_EQ(alphaTrimmedRect(plain(AV_PIX_FMT_NV12, 33, 17, 0)), (Rect{0, 0, 33, 17}));
    EXPECT_EQ(alphaTrimmedRect(Picture()), (Rect{0, 0, 0, 0}));
}

TEST(AlphaTrimmedRect, ASinglePixelGrowsToItsChromaSample) {
    Picture picture = plain(AV_PIX_FMT_YUVA420P, 16, 16, 0);
    at(picture, 3, 5, 5) = 1;
    EXPECT_EQ(alphaTrimmedRect(picture), (Rect{4, 4, 2, 2}));
}

TEST(AlphaTrimmedRect, IsAllZeroWhereNothingIsVisible) {
    EXPECT_EQ(alphaTrimmedRect(plain(AV_PIX_FMT_RGBA, 16, 16, 0)), Rect{});
    EXPECT_EQ(alphaTrimmedRect(plain(AV_PIX_FMT_RGBA, 16, 1, 255)), Rect{});
}

TEST(AlphaTrimmedRect, TheLastRowAloneDoesNotCount) {
    Picture picture = plain(AV_PIX_FMT_RGBA, 8, 4, 0);
    at(picture, 0, 4 * 2 + 3, 3) = 255;
    EXPECT_EQ(alphaTrimmedRect(picture), Rect{});
    at(picture, 0, 4 * 5 + 3, 2) = 255;
    EXPECT_EQ(alphaTrimmedRect(picture), (Rect{2, 2, 4, 2}));
}

TEST(AlphaTrimmedRect, ReadsNoByteBehindARow) {
    // A picture whose memory ends with its last pixel, for the address sanitizer.
    for (const int width : {1, 7, 31, 33, 129}) {
        const int bytes = width * 4 * 3;
        Picture source = plain(AV_PIX_FMT_RGBA, width, 3, 0);
        std::vector<std::uint8_t> memory(static_cast<std::size_t>(bytes), 0);
        memory.shrink_to_fit();
        std::uint8_t* data[4] = {memory.data()};
        const int linesize[4] = {width * 4, 0, 0, 0};
        const Picture picture(MemBuffer(1, false), Size{width, 3}, data, linesize, AV_PIX_FMT_RGBA,
                              AVCOL_RANGE_JPEG);
        EXPECT_EQ(alphaTrimmedRect(picture), Rect{});
        memory.back() = 255;
        memory[static_cast<std::size_t>(width * 4 + 3)] = 255;
        EXPECT_EQ(alphaTrimmedRect(picture), (Rect{0, 1, width, 2}));
    }
}

constexpr const char* kPrefix = "....Pictures are different. ";

struct Comparison {
    bool equal;
    std::string report;
};

Comparison compare(const Picture& left, const Picture& right, unsigned tolerance = 0, bool skipLast = false) {
    std::ostringstream report;
    const bool equal = comparePictures(left, right, tolerance, skipLast, &report);
    EXPECT_EQ(comparePictures(left, right, tolerance, skipLast, nullptr), equal) << "without a report";
    return {equal, report.str()};
}

TEST(ComparePictures, SaysWhatKeepsThemFromComparison) {
    const Picture picture = plain(AV_PIX_FMT_NV12, 8, 6, 1);
    EXPECT_EQ(compare(Picture(), Picture()).report, std::string(kPrefix) + "Empty: left:1, right:1\n");
    EXPECT_EQ(compare(picture, Picture()).report, std::string(kPrefix) + "Empty: left:0, right:1\n");
    EXPECT_EQ(compare(picture, plain(AV_PIX_FMT_YUV420P, 8, 4, 1)).report,
              std::string(kPrefix) + "Sizes: left:w:8, h:6, right:w:8, h:4\n");
    EXPECT_EQ(compare(picture, plain(AV_PIX_FMT_YUV420P, 8, 6, 1, AVCOL_RANGE_JPEG)).report,
              std::string(kPrefix) + "Formats: left:nv12, right:yuv420p\n");
    EXPECT_EQ(compare(picture, plain(AV_PIX_FMT_NV12, 8, 6, 1, AVCOL_RANGE_JPEG)).report,
              std::string(kPrefix) + "ColorRanges: left:tv, right:pc\n");
    EXPECT_FALSE(comparePictures(Picture(), Picture(), 0, false, nullptr));
    EXPECT_FALSE(
        comparePictures(picture, plain(AV_PIX_FMT_NV12, 8, 6, 1, AVCOL_RANGE_JPEG), 0, false, nullptr));
}

TEST(ComparePictures, AnUnspecifiedRangeEqualsAny) {
    const Picture unspecified = plain(AV_PIX_FMT_NV12, 8, 6, 1, AVCOL_RANGE_UNSPECIFIED);
    EXPECT_TRUE(compare(unspecified, plain(AV_PIX_FMT_NV12, 8, 6, 1, AVCOL_RANGE_JPEG)).equal);
    EXPECT_TRUE(compare(plain(AV_PIX_FMT_NV12, 8, 6, 1, AVCOL_RANGE_MPEG), unspecified).equal);
}

TEST(ComparePictures, OneDifferentPixelIsTheFirstAndTheLargest) {
    const Picture left = plain(AV_PIX_FMT_YUV420P, 8, 6, 10);
    Picture right = plain(AV_PIX_FMT_YUV420P, 8, 6, 10);
    at(right, 1, 3, 2) = 14;
    const Comparison result = compare(left, right, 3);
    EXPECT_FALSE(result.equal);
    EXPECT_EQ(
        result.report,
        std::string(kPrefix) +
            "First at component:1 plane:1 offset:0, x:3, y:2, value left:10, value right:14, diff:4\n" +
            kPrefix +
            "  Max at component:1 plane:1 offset:0, x:3, y:2, value left:10, value right:14, diff_max:4, "
            "total:1\n");
    EXPECT_TRUE(compare(left, right, 4).equal);
    EXPECT_EQ(compare(left, right, 4).report, "");
}

TEST(ComparePictures, CountsAndFindsTheFirstOfTheLargest) {
    const Picture left = plain(AV_PIX_FMT_NV12, 8, 6, 100);
    Picture right = plain(AV_PIX_FMT_NV12, 8, 6, 100);
    at(right, 1, 1, 0) = 99;   // V, x 0
    at(right, 1, 5, 1) = 90;   // V, x 2
    at(right, 1, 7, 2) = 110;  // V, x 3, no larger difference
    at(right, 1, 2, 2) = 255;  // U
    EXPECT_EQ(
        compare(left, right).report,
        std::string(kPrefix) +
            "First at component:1 plane:1 offset:0, x:1, y:2, value left:100, value right:255, diff:155\n" +
            kPrefix +
            "  Max at component:1 plane:1 offset:0, x:1, y:2, value left:100, value right:255, diff_max:155, "
            "total:1\n" +
            kPrefix +
            "First at component:2 plane:1 offset:1, x:0, y:0, value left:100, value right:99, diff:1\n" +
            kPrefix +
            "  Max at component:2 plane:1 offset:1, x:2, y:1, value left:100, value right:90, diff_max:10, "
            "total:3\n");
}

TEST(ComparePictures, ToleranceIsInclusive) {
    const Picture left = plain(AV_PIX_FMT_RGBA, 5, 5, 50);
    EXPECT_TRUE(compare(left, plain(AV_PIX_FMT_RGBA, 5, 5, 52), 2).equal);
    EXPECT_FALSE(compare(left, plain(AV_PIX_FMT_RGBA, 5, 5, 53), 2).equal);
    EXPECT_FALSE(compare(left, plain(AV_PIX_FMT_RGBA, 5, 5, 47), 2).equal);
    EXPECT_TRUE(compare(left, plain(AV_PIX_FMT_RGBA, 5, 5, 255), 0xFFFFFFFFU).equal);
}

TEST(ComparePictures, TheLastComponentCanBeLeftOut) {
    for (const AVPixelFormat format : {AV_PIX_FMT_YUVA420P, AV_PIX_FMT_RGBA}) {
        const Picture left = plain(format, 6, 6, 50);
        Picture right = plain(format, 6, 6, 50);
        if (format == AV_PIX_FMT_RGBA) {
            at(right, 0, 7, 1) = 1;
        } else {
            at(right, 3, 1, 1) = 1;
        }
        EXPECT_TRUE(compare(left, right, 0, true).equal) << format;
        EXPECT_FALSE(compare(left, right, 0, false).equal) << format;
    }
    // With three components there is nothing to skip.
    Picture rgb = plain(AV_PIX_FMT_RGB24, 4, 4, 1);
    at(rgb, 0, 2, 0) = 9;
    EXPECT_FALSE(compare(plain(AV_PIX_FMT_RGB24, 4, 4, 1), rgb, 0, true).equal);
}

TEST(ComparePictures, PaddingAndOddChromaDoNotCount) {
    const Picture left = plain(AV_PIX_FMT_YUV420P, 5, 5, 50);
    Picture right = plain(AV_PIX_FMT_YUV420P, 5, 5, 50);
    at(right, 0, 5, 0) = 1;
    at(right, 1, 2, 0) = 1;
    at(right, 2, 0, 2) = 1;
    EXPECT_TRUE(compare(left, right).equal);
    at(right, 2, 1, 1) = 1;
    EXPECT_FALSE(compare(left, right).equal);
}

TEST(ComparePictures, RgbPlanesHaveTheirWholeSize) {
    const Picture left = plain(AV_PIX_FMT_GBRP, 4, 4, 50);
    for (std::size_t plane = 0; plane < 3; ++plane) {
        Picture right = plain(AV_PIX_FMT_GBRP, 4, 4, 50);
        at(right, plane, 3, 3) = 1;
        EXPECT_FALSE(compare(left, right).equal) << plane;
    }
}

TEST(ComparePictures, SharedMemoryIsEqual) {
    const Picture picture = plain(AV_PIX_FMT_NV12, 8, 8, 3);
    const Picture copy = picture;
    EXPECT_TRUE(compare(picture, copy).equal);
}

TEST(ComparePictures, RefusesOtherDepths) {
    const Picture left = plain(AV_PIX_FMT_YUV420P10LE, 4, 4, 0);
    std::ostringstream report;
    EXPECT_THROW_TEXT(std::runtime_error, "Unsupported component depth != 8!",
                      (void)comparePictures(left, left, 0, false, &report));
    EXPECT_EQ(report.str(), "Unsupported component depth != 8. (depth:10)\n");
    EXPECT_THROW_TEXT(std::runtime_error, "Unsupported component depth != 8!",
                      (void)comparePictures(left, left, 0, false, nullptr));
}

TEST(ComparePictures, WritesDecimalNumbersToAStreamInHexadecimal) {
    std::ostringstream report;
    report << std::hex << std::showbase;
    EXPECT_FALSE(comparePictures(Picture(), Picture(), 0, false, &report));
    EXPECT_FALSE(comparePictures(plain(AV_PIX_FMT_GRAY8, 32, 18, 1), plain(AV_PIX_FMT_GRAY8, 32, 19, 1), 0,
                                 false, &report));
    EXPECT_FALSE(comparePictures(plain(AV_PIX_FMT_GRAY8, 12, 1, 16), plain(AV_PIX_FMT_GRAY8, 12, 1, 42), 0,
                                 false, &report));
    const Picture deep = plain(AV_PIX_FMT_YUV420P10LE, 4, 4, 0);
    EXPECT_THROW((void)comparePictures(deep, deep, 0, false, &report), std::runtime_error);
    EXPECT_EQ(
        report.str(),
        std::string(kPrefix) + "Empty: left:1, right:1\n" + kPrefix +
            "Sizes: left:w:32, h:18, right:w:32, h:19\n" + kPrefix +
            "First at component:0 plane:0 offset:0, x:0, y:0, value left:16, value right:42, diff:26\n" +
            kPrefix +
            "  Max at component:0 plane:0 offset:0, x:0, y:0, value left:16, value right:42, diff_max:26, "
            "total:12\n"
            "Unsupported component depth != 8. (depth:10)\n");
}

TEST(ComparePictures, PackedChromaIsComparedWhereItExists) {
    const Picture left = plain(AV_PIX_FMT_YUYV422, 4, 2, 50);
    Picture right = plain(AV_PIX_FMT_YUYV422, 4, 2, 50);
    at(right, 0, 7, 1) = 60;  // V of the second pair
    EXPECT_EQ(compare(left, right).report.find("First at component:2 plane:0 offset:3, x:1, y:1"),
              std::string(kPrefix).size());
}

std::string md5Of(const std::vector<std::uint8_t>& bytes) {
    std::uint8_t digest[16];
    av_md5_sum(digest, bytes.data(), static_cast<int>(bytes.size()));
    std::string text;
    for (const std::uint8_t byte : digest) {
        text += fmt::format("{:02x}", byte);
    }
    return text;
}

Picture randomPicture(AVPixelFormat format, int width, int height) {
    std::mt19937 random(3);
    Picture picture = plain(format, width, height, 0);
    for (std::size_t plane = 0; plane < 4; ++plane) {
        for (int i = 0;
             picture.data()[plane] != nullptr && i < picture.linesize()[plane] * rowsOf(picture, plane);
             ++i) {
            picture.data()[plane][i] = static_cast<std::uint8_t>(random());
        }
    }
    return picture;
}

TEST(GetPlanesMD5, IsTheSumOfFfmpegsPlainLayoutForWholeFormats) {
    for (const AVPixelFormat format :
         {AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUVA420P, AV_PIX_FMT_YUV444P, AV_PIX_FMT_NV12, AV_PIX_FMT_RGBA,
          AV_PIX_FMT_RGB24, AV_PIX_FMT_GRAY8, AV_PIX_FMT_YUV420P10LE, AV_PIX_FMT_YA8}) {
        const Picture picture = randomPicture(format, 22, 14);
        std::vector<std::uint8_t> bytes(
            static_cast<std::size_t>(av_image_get_buffer_size(format, 22, 14, 1)));
        const std::uint8_t* data[4];
        std::copy(picture.data().begin(), picture.data().end(), data);
        av_image_copy_to_buffer(bytes.data(), static_cast<int>(bytes.size()), data, picture.linesize().data(),
                                format, 22, 14, 1);
        EXPECT_EQ(getPlanesMD5(picture), md5Of(bytes)) << format;
    }
}

TEST(GetPlanesMD5, GoesByComponentsAndNotByPlanes) {
    // Green, blue, red are in planes 0, 1, 2, but red is the first component.
    const Picture picture = randomPicture(AV_PIX_FMT_GBRP, 6, 4);
    std::vector<std::uint8_t> bytes;
    for (const std::size_t plane : {2, 0, 1}) {
        for (int y = 0; y < 4; ++y) {
            const std::uint8_t* row = picture.data()[plane] + y * picture.linesize()[plane];
            bytes.insert(bytes.end(), row, row + 6);
        }
    }
    EXPECT_EQ(getPlanesMD5(picture), md5Of(bytes));
}

TEST(GetPlanesMD5, PackedPixelsCountFromTheirFirstComponentToTheEndOfTheRow) {
    const Picture picture = randomPicture(AV_PIX_FMT_ARGB, 6, 4);
    std::vector<std::uint8_t> bytes;
    for (int y = 0; y < 4; ++y) {
        const std::uint8_t* row = picture.data()[0] + y * picture.linesize()[0];
        bytes.insert(bytes.end(), row + 1, row + 24);
    }
    EXPECT_EQ(getPlanesMD5(picture), md5Of(bytes));
}

TEST(GetPlanesMD5, BytesBehindTheWidthDoNotCount) {
    for (const AVPixelFormat format :
         {AV_PIX_FMT_YUV420P, AV_PIX_FMT_NV12, NVA12, AV_PIX_FMT_RGBA, AV_PIX_FMT_ARGB, AV_PIX_FMT_BGR24,
          AV_PIX_FMT_UYVY422, AV_PIX_FMT_YUYV422}) {
        Picture picture = randomPicture(format, 10, 6);
        const std::string before = getPlanesMD5(picture);
        for (std::size_t plane = 0; plane < 4; ++plane) {
            const int perPixel = format == AV_PIX_FMT_RGBA || format == AV_PIX_FMT_ARGB         ? 4
                                 : format == AV_PIX_FMT_BGR24                                   ? 3
                                 : format == AV_PIX_FMT_UYVY422 || format == AV_PIX_FMT_YUYV422 ? 2
                                                                                                : 1;
            const int pixels = format == AV_PIX_FMT_YUV420P && plane > 0 ? 5 : 10;
            for (int y = 0; picture.data()[plane] != nullptr && y < rowsOf(picture, plane); ++y) {
                for (int x = pixels * perPixel; x < picture.linesize()[plane]; ++x) {
                    at(picture, plane, x, y) ^= 0x55;
                }
            }
        }
        EXPECT_EQ(getPlanesMD5(picture), before) << format;
        at(picture, 0, 4, 5) ^= 1;
        EXPECT_NE(getPlanesMD5(picture), before) << format;
    }
}

TEST(GetPlanesMD5, ACropAndItsCopyAreTheSame) {
    for (const AVPixelFormat format :
         {AV_PIX_FMT_YUV420P, AV_PIX_FMT_NV12, AV_PIX_FMT_BGRA, AV_PIX_FMT_RGB24}) {
        const Picture crop = randomPicture(format, 40, 20).crop({4, 2, 22, 12});
        Picture copy(crop.frameSize(), format, AVCOL_RANGE_MPEG, 1);
        copy.copyFrom(crop);
        EXPECT_EQ(getPlanesMD5(crop), getPlanesMD5(copy)) << format;
    }
}

TEST(GetPlanesMD5, SaysThatThereIsNoMemory) {
    const Picture picture = randomPicture(AV_PIX_FMT_NV12, 6, 4);
    const std::string before = getPlanesMD5(picture);
    {
        const test::AllocationLimit limit(33);
        EXPECT_THROW_TEXT(std::runtime_error, "Out of memory", (void)getPlanesMD5(picture));
        EXPECT_EQ(getPlanesMD5(Picture()), "");
    }
    EXPECT_EQ(getPlanesMD5(picture), before);
}

TEST(GetPlanesMD5, IsEmptyForAnEmptyPicture) {
    EXPECT_EQ(getPlanesMD5(Picture()), "");
}

}  // namespace
}  // namespace vidorra
