#include "vidorra/process/apply_lut.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "support/media.h"
#include "support/process.h"
#include "vidorra/core/enum_text.h"

namespace vidorra {
namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes identity() {
    Bytes table(256);
    std::iota(table.begin(), table.end(), std::uint8_t{0});
    return table;
}

// A table in which all entries differ.
Bytes shuffled() {
    Bytes table(256);
    for (std::size_t v = 0; v < 256; ++v) {
        table[v] = static_cast<std::uint8_t>(v * 77 + 13);
    }
    return table;
}

struct Plane {
    int rowBytes;
    int rows;
};

struct Row {
    const char* name;
    AVPixelFormat format;
    int component;
    // What of a picture of 13x7 is mapped: `count` bytes of `rows` rows of a plane, `step` bytes apart.
    std::size_t plane;
    int offset;
    int step;
    int count;
    int rows;
    // All that the picture has.
    std::array<Plane, 4> planes;
};

constexpr Size kSize{13, 7};

const Row kRows[] = {
    {"GrayLuma", AV_PIX_FMT_GRAY8, 0, 0, 0, 1, 13, 7, {{{13, 7}}}},
    {"Yuv420pLuma", AV_PIX_FMT_YUV420P, 0, 0, 0, 1, 13, 7, {{{13, 7}, {7, 4}, {7, 4}}}},
    {"Yuv420pU", AV_PIX_FMT_YUV420P, 1, 1, 0, 1, 6, 3, {{{13, 7}, {7, 4}, {7, 4}}}},
    {"Yuv420pV", AV_PIX_FMT_YUV420P, 2, 2, 0, 1, 6, 3, {{{13, 7}, {7, 4}, {7, 4}}}},
    {"Yuv422pV", AV_PIX_FMT_YUV422P, 2, 2, 0, 1, 6, 7, {{{13, 7}, {7, 7}, {7, 7}}}},
    {"Yuv444pU", AV_PIX_FMT_YUV444P, 1, 1, 0, 1, 13, 7, {{{13, 7}, {13, 7}, {13, 7}}}},
    {"Yuva420pAlpha", AV_PIX_FMT_YUVA420P, 3, 3, 0, 1, 13, 7, {{{13, 7}, {7, 4}, {7, 4}, {13, 7}}}},
    {"Nv12Luma", AV_PIX_FMT_NV12, 0, 0, 0, 1, 13, 7, {{{13, 7}, {14, 4}}}},
    {"Nv12U", AV_PIX_FMT_NV12, 1, 1, 0, 2, 6, 3, {{{13, 7}, {14, 4}}}},
    {"Nv12V", AV_PIX_FMT_NV12, 2, 1, 1, 2, 6, 3, {{{13, 7}, {14, 4}}}},
    {"Nv21U", AV_PIX_FMT_NV21, 1, 1, 1, 2, 6, 3, {{{13, 7}, {14, 4}}}},
    {"Nva12V", NVA12, 2, 1, 1, 2, 6, 3, {{{13, 7}, {14, 4}, {0, 0}, {13, 7}}}},
    {"Nva12Alpha", NVA12, 3, 3, 0, 1, 13, 7, {{{13, 7}, {14, 4}, {0, 0}, {13, 7}}}},
    {"RgbaRed", AV_PIX_FMT_RGBA, 0, 0, 0, 4, 13, 7, {{{52, 7}}}},
    {"RgbaAlpha", AV_PIX_FMT_RGBA, 3, 0, 3, 4, 13, 7, {{{52, 7}}}},
    {"ArgbRed", AV_PIX_FMT_ARGB, 0, 0, 1, 4, 13, 7, {{{52, 7}}}},
    {"Bgr24Blue", AV_PIX_FMT_BGR24, 2, 0, 0, 3, 13, 7, {{{39, 7}}}},
    // Green is in plane 0, blue in plane 1, red in plane 2.
    {"GbrpRed", AV_PIX_FMT_GBRP, 0, 2, 0, 1, 13, 7, {{{13, 7}, {13, 7}, {13, 7}}}},
    {"Yuyv422Luma", AV_PIX_FMT_YUYV422, 0, 0, 0, 2, 13, 7, {{{28, 7}}}},
    {"Yuyv422U", AV_PIX_FMT_YUYV422, 1, 0, 1, 4, 7, 7, {{{28, 7}}}},
    {"Yuyv422V", AV_PIX_FMT_YUYV422, 2, 0, 3, 4, 7, 7, {{{28, 7}}}},
    {"Uyvy422Luma", AV_PIX_FMT_UYVY422, 0, 0, 1, 2, 13, 7, {{{28, 7}}}},
    {"Uyvy422U", AV_PIX_FMT_UYVY422, 1, 0, 0, 4, 7, 7, {{{28, 7}}}},
    {"Uyyvyy411U", AV_PIX_FMT_UYYVYY411, 1, 0, 0, 6, 4, 7, {{{24, 7}}}},
    {"Uyyvyy411V", AV_PIX_FMT_UYYVYY411, 2, 0, 3, 6, 4, 7, {{{24, 7}}}},
    // FFmpeg says that red begins a byte before the pixel.
    {"Rgb565BigEndianRed", AV_PIX_FMT_RGB565BE, 0, 0, 0, 2, 13, 7, {{{26, 7}}}},
    {"GbrpBlue", AV_PIX_FMT_GBRP, 2, 1, 0, 1, 13, 7, {{{13, 7}, {13, 7}, {13, 7}}}},
};

class ApplyLut : public testing::TestWithParam<Row> {
protected:
    // Bytes in and between the rows of all planes.
    static std::array<Bytes, 4> bytes(const Picture& picture) {
        std::array<Bytes, 4> result;
        for (std::size_t plane = 0; plane < 4; ++plane) {
            const Plane& shape = GetParam().planes[plane];
            const std::uint8_t* data = picture.data()[plane];
            if (shape.rows > 0) {
                result[plane].assign(data,
                                     data + (shape.rows - 1) * picture.linesize()[plane] + shape.rowBytes);
            }
        }
        return result;
    }

    static Picture picture() {
        std::mt19937 random(4);
        Picture result(kSize, GetParam().format, AVCOL_RANGE_MPEG, 16);
        for (std::size_t plane = 0; plane < 4; ++plane) {
            for (int i = 0; i < GetParam().planes[plane].rows * result.linesize()[plane]; ++i) {
                result.data()[plane][i] = static_cast<std::uint8_t>(random());
            }
        }
        return result;
    }
};

INSTANTIATE_TEST_SUITE_P(, ApplyLut, testing::ValuesIn(kRows),
                         [](const auto& each) { return std::string(each.param.name); });

TEST_P(ApplyLut, MapsTheComponentAndNothingElse) {
    const Row& row = GetParam();
    Picture result = picture();
    const Bytes table = shuffled();
    std::array<Bytes, 4> expected = bytes(result);
    for (int y = 0; y < row.rows; ++y) {
        for (int x = 0; x < row.count; ++x) {
            std::uint8_t& byte = expected[row.plane][static_cast<std::size_t>(
                y * result.linesize()[row.plane] + row.offset + x * row.step)];
            byte = table[byte];
        }
    }
    ASSERT_NE(expected, bytes(result));
    applyLUT(result, row.component, table);
    EXPECT_EQ(bytes(result), expected);
}

TEST_P(ApplyLut, ChangesNothingByTheIdentity) {
    Picture result = picture();
    const auto before = bytes(result);
    applyLUT(result, GetParam().component, identity());
    EXPECT_EQ(bytes(result), before);
}

TEST_P(ApplyLut, WritesIntoSharedPictures) {
    Picture result = picture();
    const Picture copy = result;
    const auto before = bytes(result);
    applyLUT(result, GetParam().component, shuffled());
    EXPECT_EQ(copy.data(), result.data());
    EXPECT_NE(bytes(copy), before);
}

TEST(ApplyLutSizes, LeavesPicturesWithoutPixelsAlone) {
    Picture empty;
    applyLUT(empty, 0, shuffled());
    EXPECT_TRUE(empty.empty());
    // One pixel has no whole sample of chroma.
    Picture pixel(Size{1, 1}, AV_PIX_FMT_YUV420P, AVCOL_RANGE_MPEG, 16);
    *pixel.data()[0] = 10;
    *pixel.data()[1] = 20;
    applyLUT(pixel, 1, shuffled());
    EXPECT_EQ(*pixel.data()[1], 20);
    applyLUT(pixel, 0, shuffled());
    EXPECT_EQ(*pixel.data()[0], shuffled()[10]);
    Picture column(Size{1, 4}, AV_PIX_FMT_NV12, AVCOL_RANGE_MPEG, 16);
    column.data()[1][0] = 20;
    applyLUT(column, 1, shuffled());
    EXPECT_EQ(column.data()[1][0], 20);
    const Picture view = column.crop({5, 5, 2, 2});
    Picture outside = view;
    ASSERT_EQ(outside.frameSize(), (Size{0, 0}));
    applyLUT(outside, 0, shuffled());
}

TEST(ApplyLutOfSeveralPixelsInAByte, ChangesNothing) {
    for (const AVPixelFormat format :
         {AV_PIX_FMT_MONOBLACK, AV_PIX_FMT_MONOWHITE, AV_PIX_FMT_RGB4, AV_PIX_FMT_BGR4}) {
        Picture picture(Size{64, 8}, format, AVCOL_RANGE_MPEG, 1);
        const std::size_t size = picture.bytesInBuffer(0).value();
        std::fill_n(picture.data()[0], size, std::uint8_t{5});
        for (int component = 0; component < 3; ++component) {
            applyLUT(picture, component, shuffled());
        }
        EXPECT_EQ(Bytes(picture.data()[0], picture.data()[0] + size), Bytes(size, 5)) << format;
    }
}

TEST(ApplyLutByFFmpeg, GivesTheBytesOfItsTableFilter) {
    // By default the filter clips luma and chroma, hence all of them are named.
    struct Case {
        AVPixelFormat format;
        int component;
        const char* filter;
    };
    for (const Case& each :
         {Case{AV_PIX_FMT_RGBA, 1, "lutrgb=g=255-val"}, Case{AV_PIX_FMT_BGR24, 0, "lutrgb=r=255-val"},
          Case{AV_PIX_FMT_YUV420P, 2, "lutyuv=y=val:u=val:v=255-val"},
          Case{AV_PIX_FMT_YUVA420P, 3, "lutyuv=y=val:u=val:v=val:a=255-val"}}) {
        const std::string name = to_string(each.format);
        SCOPED_TRACE(name);
        Picture picture(Size{64, 32}, each.format, AVCOL_RANGE_JPEG, 1);
        std::string input;
        std::mt19937 random(2);
        for (std::size_t plane = 0; plane < 4; ++plane) {
            const int rows = plane == 1 || plane == 2 ? 16 : 32;
            for (int i = 0; picture.data()[plane] != nullptr && i < rows * picture.linesize()[plane]; ++i) {
                picture.data()[plane][i] = static_cast<std::uint8_t>(random());
                input += static_cast<char>(picture.data()[plane][i]);
            }
        }
        const auto file = test::temporaryFile("lut-" + name + ".raw", input);
        const std::string expected =
            test::run({"ffmpeg", "-v", "error", "-f", "rawvideo", "-pix_fmt", name, "-s", "64x32", "-i",
                       file.string(), "-vf", each.filter, "-f", "rawvideo", "-pix_fmt", name, "-"});
        Bytes table = identity();
        for (std::uint8_t& entry : table) {
            entry = static_cast<std::uint8_t>(255 - entry);
        }
        applyLUT(picture, each.component, table);
        // The planes follow each other.
        EXPECT_TRUE(std::string(reinterpret_cast<const char*>(picture.data()[0]), input.size()) == expected);
        EXPECT_FALSE(input == expected);
    }
}

}  // namespace
}  // namespace vidorra
