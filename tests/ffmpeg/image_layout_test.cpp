#include <array>
#include <climits>
#include <vector>

#include "ffmpeg/pixel_formats.h"

extern "C" {
#include <libavutil/error.h>
#include <libavutil/imgutils.h>
#include <libavutil/pixdesc.h>
}

namespace vidorra::ffmpeg_ext {
namespace {

struct Layout {
    int result = 0;
    // From the start of the picture, -1 for a plane that is absent.
    std::array<std::ptrdiff_t, 4> offsets{};
    std::array<int, 4> linesizes{};

    friend bool operator==(const Layout&, const Layout&) = default;
};

void PrintTo(const Layout& layout, std::ostream* stream) {
    *stream << layout.result << ":";
    for (std::size_t i = 0; i < 4; ++i) {
        *stream << " " << layout.offsets[i] << "/" << layout.linesizes[i];
    }
}

// Only its addresses are used, as the start of planes.
std::vector<std::uint8_t>& ground() {
    static std::vector<std::uint8_t> bytes(1 << 20);
    return bytes;
}

Layout layoutOf(AVPixelFormat format, int width, int height, int align) {
    Layout layout;
    // Garbage, so that nothing is right by chance.
    std::array<std::uint8_t*, 4> data{};
    data.fill(ground().data() + 3);
    layout.linesizes.fill(-77);
    layout.result =
        fillImageArrays(data.data(), layout.linesizes.data(), ground().data(), format, width, height, align);
    for (std::size_t i = 0; i < 4; ++i) {
        layout.offsets[i] = data[i] != nullptr ? data[i] - ground().data() : -1;
    }
    return layout;
}

int aligned(int size, int align) {
    return (size + align - 1) / align * align;
}

Layout plainNva12(int width, int height, int align) {
    const int lumaLine = aligned(width, align);
    const int chromaLine = aligned((width + 1) / 2 * 2, align);
    const int luma = lumaLine * height;
    const int chroma = chromaLine * ((height + 1) / 2);
    return {luma + chroma + luma, {0, luma, -1, luma + chroma}, {lumaLine, chromaLine, 0, lumaLine}};
}

struct ImageSize {
    int width;
    int height;
};

constexpr ImageSize kSizes[] = {{1, 1},   {2, 2},   {3, 3},    {1, 7},    {7, 1},   {15, 16},
                                {16, 15}, {33, 17}, {64, 48},  {65, 49},  {127, 3}, {320, 240},
                                {319, 1}, {2, 101}, {100, 99}, {255, 255}};
constexpr int kAligns[] = {1, 2, 4, 8, 16, 32, 64, 256};

TEST(Nva12Layout, HasTheAlphaPlaneBehindThoseOfNv12WithTheLineSizeOfTheFirst) {
    for (const ImageSize size : kSizes) {
        for (const int align : kAligns) {
            EXPECT_EQ(layoutOf(kNva12, size.width, size.height, align),
                      plainNva12(size.width, size.height, align))
                << size.width << "x" << size.height << " aligned to " << align;
        }
    }
}

TEST(Nva12Layout, BufferSizeIsTheSizeOfTheLayout) {
    for (const ImageSize size : kSizes) {
        for (const int align : kAligns) {
            EXPECT_EQ(imageBufferSize(kNva12, size.width, size.height, align),
                      plainNva12(size.width, size.height, align).result)
                << size.width << "x" << size.height << " aligned to " << align;
        }
    }
}

TEST(Nva12Layout, OfWorkedExamples) {
    EXPECT_EQ(imageBufferSize(kNva12, 1920, 1080, 1), 1920 * 1080 * 5 / 2);
    EXPECT_EQ(layoutOf(kNva12, 3, 3, 1), (Layout{9 + 8 + 9, {0, 9, -1, 17}, {3, 4, 0, 3}}));
    EXPECT_EQ(layoutOf(kNva12, 5, 2, 4), (Layout{16 + 8 + 16, {0, 16, -1, 24}, {8, 8, 0, 8}}));
}

TEST(Nva12Layout, WithoutMemoryHasLineSizesAndASizeButNoPlanes) {
    std::array<std::uint8_t*, 4> data{};
    std::array<int, 4> linesizes{};
    data.fill(ground().data());
    EXPECT_EQ(fillImageArrays(data.data(), linesizes.data(), nullptr, kNva12, 33, 17, 16),
              plainNva12(33, 17, 16).result);
    EXPECT_EQ(linesizes, plainNva12(33, 17, 16).linesizes);
    for (const std::uint8_t* plane : data) {
        EXPECT_EQ(plane, nullptr);
    }
}

TEST(Nva12Layout, OfNoSizeOrTooGreatASizeIsAnError) {
    for (const ImageSize size : {ImageSize{0, 16}, ImageSize{16, 0}, ImageSize{-2, 16}, ImageSize{16, -2},
                                 ImageSize{INT_MAX, 1}, ImageSize{1, INT_MAX}, ImageSize{30000, 30000}}) {
        EXPECT_LT(imageBufferSize(kNva12, size.width, size.height, 1), 0) << size.width << "x" << size.height;
        std::array<std::uint8_t*, 4> data{};
        std::array<int, 4> linesizes{};
        EXPECT_LT(fillImageArrays(data.data(), linesizes.data(), nullptr, kNva12, size.width, size.height, 1),
                  0)
            << size.width << "x" << size.height;
    }
}

TEST(Nva12Layout, WhoseAlphaPlaneAloneIsTooMuchIsAnError) {
    // Luma and chroma of 512 bytes a line come to 1.5 GB, which an int holds; with alpha it is 2.5 GB.
    constexpr int kHeight = 2000000;
    ASSERT_GT(av_image_get_buffer_size(AV_PIX_FMT_NV12, 4, kHeight, 512), 0);
    EXPECT_EQ(imageBufferSize(kNva12, 4, kHeight, 512), AVERROR(EINVAL));
    // A size that just fits is not an error.
    EXPECT_EQ(imageBufferSize(kNva12, 4, 1600000, 512), 512 * 1600000 / 2 * 5);
}

// All software formats except the one whose number NVA12 has.
std::vector<const AVPixFmtDescriptor*> softwareFormats() {
    std::vector<const AVPixFmtDescriptor*> result;
    for (const AVPixFmtDescriptor* format = nullptr; (format = av_pix_fmt_desc_next(format)) != nullptr;) {
        if ((format->flags & AV_PIX_FMT_FLAG_HWACCEL) == 0 && av_pix_fmt_desc_get_id(format) != kNva12) {
            result.push_back(format);
        }
    }
    return result;
}

TEST(ImageLayout, OfOtherFormatsIsThatOfFFmpegInThePlanesThatTheyHave) {
    const auto formats = softwareFormats();
    EXPECT_GT(formats.size(), 150U);
    for (const AVPixFmtDescriptor* format : formats) {
        SCOPED_TRACE(format->name);
        const AVPixelFormat value = av_pix_fmt_desc_get_id(format);
        std::array<bool, 4> used{};
        for (int i = 0; i < format->nb_components; ++i) {
            used[static_cast<std::size_t>(format->comp[i].plane)] = true;
        }
        used[1] = used[1] || (format->flags & AV_PIX_FMT_FLAG_PAL) != 0;
        for (const ImageSize size : {ImageSize{16, 16}, ImageSize{33, 17}}) {
            for (const int align : {1, 32}) {
                std::array<std::uint8_t*, 4> data{};
                Layout expected;
                expected.result =
                    av_image_fill_arrays(data.data(), expected.linesizes.data(), ground().data(), value,
                                         size.width, size.height, align);
                for (std::size_t i = 0; i < 4; ++i) {
                    expected.offsets[i] = used[i] ? data[i] - ground().data() : -1;
                    expected.linesizes[i] = used[i] ? expected.linesizes[i] : 0;
                }
                EXPECT_EQ(layoutOf(value, size.width, size.height, align), expected);
                EXPECT_EQ(imageBufferSize(value, size.width, size.height, align),
                          av_image_get_buffer_size(value, size.width, size.height, align));
            }
        }
    }
}

TEST(ImageLayout, OfGrayIsOnePlaneWithoutAPalette) {
    const Layout layout = layoutOf(AV_PIX_FMT_GRAY8, 16, 16, 1);
    EXPECT_EQ(layout.offsets, (std::array<std::ptrdiff_t, 4>{0, -1, -1, -1}));
    EXPECT_EQ(layout.linesizes, (std::array<int, 4>{16, 0, 0, 0}));
    EXPECT_EQ(imageBufferSize(AV_PIX_FMT_GRAY8, 16, 16, 1), 256);
}

TEST(ImageLayout, OfPaletteFormatHasThePaletteBehindTheIndices) {
    const Layout layout = layoutOf(AV_PIX_FMT_PAL8, 16, 16, 1);
    EXPECT_EQ(layout.result, 256 + 1024);
    EXPECT_EQ(layout.offsets, (std::array<std::ptrdiff_t, 4>{0, 256, -1, -1}));
    EXPECT_EQ(layout.linesizes[0], 16);
    EXPECT_EQ(imageBufferSize(AV_PIX_FMT_PAL8, 16, 16, 1), 256 + 1024);
}

TEST(ImageLayout, OfNoFormatIsAnError) {
    for (const int number : {-1, 9999}) {
        const auto format = static_cast<AVPixelFormat>(number);
        std::array<std::uint8_t*, 4> data{};
        std::array<int, 4> linesizes{};
        EXPECT_LT(fillImageArrays(data.data(), linesizes.data(), nullptr, format, 16, 16, 1), 0);
        EXPECT_LT(imageBufferSize(format, 16, 16, 1), 0);
    }
}

TEST(ImageLayout, AnAlignmentBelowOneIsRefused) {
    for (const AVPixelFormat format : {kNva12, AV_PIX_FMT_YUV420P, AV_PIX_FMT_GRAY8}) {
        for (const int align : {0, -1, -32, INT_MIN}) {
            EXPECT_EQ(imageBufferSize(format, 16, 16, align), AVERROR(EINVAL)) << format << " " << align;
            EXPECT_EQ(layoutOf(format, 16, 16, align).result, AVERROR(EINVAL)) << format << " " << align;
        }
    }
}

}  // namespace
}  // namespace vidorra::ffmpeg_ext
