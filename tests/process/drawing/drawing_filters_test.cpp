#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <iostream>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "ffmpeg/pixel_formats.h"
#include "process/drawing/ff_draw.h"
#include "support/filtered_picture.h"

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/pixdesc.h>
}

// Compares colours and rectangles with the pictures of FFmpeg's own filters.
namespace vidorra::ffmpeg_ext {
namespace {

constexpr int kWidth = 24;
constexpr int kHeight = 16;

using FramePtr = std::unique_ptr<AVFrame, void (*)(AVFrame*)>;

struct Rgba {
    std::uint8_t bytes[4];

    [[nodiscard]] std::string text() const {
        char result[16];
        std::snprintf(result, sizeof result, "0x%02x%02x%02x%02x", bytes[0], bytes[1], bytes[2], bytes[3]);
        return result;
    }
};

FramePtr colorFilter(AVPixelFormat format, Rgba color) {
    return test::filteredPicture(av_get_pix_fmt_name(format), {{"color", "s=24x16:c=" + color.text()}});
}

// A picture whose every byte is 7, with room for a plane 3.
struct Image {
    std::vector<std::uint8_t> memory;
    std::uint8_t* data[4] = {};
    int linesize[4] = {};

    explicit Image(AVPixelFormat format)
        : memory(static_cast<std::size_t>(imageBufferSize(format, kWidth, kHeight, 1)), std::uint8_t{7}) {
        fillImageArrays(data, linesize, memory.data(), format, kWidth, kHeight, 1);
    }
};

Image filled(AVPixelFormat format, Rgba color, unsigned flags) {
    Image image(format);
    FFDrawContext context;
    EXPECT_EQ(ff_draw_init(&context, format, flags), 0);
    FFDrawColor drawColor;
    ff_draw_color(&context, &drawColor, color.bytes);
    ff_fill_rectangle(&context, &drawColor, image.data, image.linesize, 0, 0, kWidth, kHeight);
    return image;
}

// Bytes of a row without padding.
std::size_t rowBytes(const Image& image, int plane) {
    return static_cast<std::size_t>(image.linesize[plane]);
}

void expectEqualPlanes(const Image& image, const AVFrame& frame, AVPixelFormat format) {
    const AVPixFmtDescriptor* descriptor = pixelFormatDescriptor(format);
    for (int plane = 0; plane < 4 && image.data[plane] != nullptr; ++plane) {
        const int rows = plane == 1 || plane == 2 ? kHeight >> descriptor->log2_chroma_h : kHeight;
        for (int y = 0; y < rows; ++y) {
            const std::uint8_t* ours = image.data[plane] + y * image.linesize[plane];
            const std::uint8_t* theirs = frame.data[plane] + y * frame.linesize[plane];
            // Bytes that no component fills, as in rgb0, are zero with both.
            ASSERT_EQ(std::memcmp(ours, theirs, rowBytes(image, plane)), 0)
                << descriptor->name << " plane " << plane << " row " << y << ": first bytes " << int{ours[0]}
                << " " << int{ours[1]} << ", by the filter " << int{theirs[0]} << " " << int{theirs[1]};
        }
    }
}

// Pixels of six bytes and more in samples of sixteen bits, on which only later versions draw.
bool isPackedAndDeep(const AVPixFmtDescriptor& descriptor) {
    return descriptor.comp[0].depth == 16 && descriptor.comp[0].step >= 6;
}

std::vector<AVPixelFormat> formatsOfTheFilter() {
    std::vector<AVPixelFormat> result;
    for (const AVPixFmtDescriptor* d = av_pix_fmt_desc_next(nullptr); d != nullptr;
         d = av_pix_fmt_desc_next(d)) {
        const AVPixelFormat format = av_pix_fmt_desc_get_id(d);
        if ((d->flags & AV_PIX_FMT_FLAG_HWACCEL) == 0 && format != kNva12 && !isPackedAndDeep(*d) &&
            colorFilter(format, Rgba{{1, 2, 3, 4}})) {
            result.push_back(format);
        }
    }
    return result;
}

std::vector<Rgba> someColors() {
    std::vector<Rgba> colors = {{{0, 0, 0, 0}},   {{255, 255, 255, 255}}, {{255, 0, 0, 128}},
                                {{0, 255, 0, 1}}, {{0, 0, 255, 254}},     {{200, 100, 50, 77}},
                                {{1, 2, 3, 255}}, {{16, 235, 240, 0}}};
    std::mt19937 random(20);
    for (int i = 0; i < 22; ++i) {
        Rgba color{};
        for (std::uint8_t& byte : color.bytes) {
            byte = static_cast<std::uint8_t>(random());
        }
        colors.push_back(color);
    }
    return colors;
}

TEST(Drawing, KnowsEveryFormatThatFfmpegsFiltersDrawOn) {
    const std::vector<AVPixelFormat> formats = formatsOfTheFilter();
    ASSERT_GE(formats.size(), 60U);
    std::cout << "formats that FFmpeg draws on:";
    for (const AVPixelFormat format : formats) {
        std::cout << ' ' << pixelFormatName(format);
        FFDrawContext context;
        EXPECT_EQ(ff_draw_init(&context, format, 0), 0) << pixelFormatName(format);
    }
    std::cout << '\n';
}

TEST(Drawing, FillsEachFormatWithTheBytesOfTheColorFilter) {
    for (const AVPixelFormat format : formatsOfTheFilter()) {
        for (const Rgba& color : someColors()) {
            const FramePtr frame = colorFilter(format, color);
            ASSERT_TRUE(frame);
            SCOPED_TRACE(color.text());
            // Later versions draw gray in full range, and say so.
            const unsigned flags = frame->color_range == AVCOL_RANGE_JPEG ? kDrawFullRange : 0;
            expectEqualPlanes(filled(format, color, flags), *frame, format);
            if (HasFatalFailure()) {
                return;
            }
        }
    }
}

TEST(Drawing, RefusesPackedPixelsOfSixteenBitsASample) {
    for (const AVPixelFormat format : {AV_PIX_FMT_RGB48LE, AV_PIX_FMT_BGR48LE, AV_PIX_FMT_RGBA64LE,
                                       AV_PIX_FMT_BGRA64LE, AV_PIX_FMT_AYUV64LE}) {
        FFDrawContext context;
        EXPECT_EQ(ff_draw_init(&context, format, 0), AVERROR(ENOSYS)) << pixelFormatName(format);
    }
}

TEST(Drawing, GivesTheColorFiltersSamplesForManyColors) {
    std::mt19937 random(21);
    for (int i = 0; i < 700; ++i) {
        Rgba color{};
        for (std::uint8_t& byte : color.bytes) {
            byte = static_cast<std::uint8_t>(random());
        }
        for (const AVPixelFormat format : {AV_PIX_FMT_YUV444P, AV_PIX_FMT_YUVJ444P, AV_PIX_FMT_YUV420P10LE}) {
            const FramePtr frame = colorFilter(format, color);
            ASSERT_TRUE(frame);
            SCOPED_TRACE(color.text());
            expectEqualPlanes(filled(format, color, 0), *frame, format);
            if (HasFatalFailure()) {
                return;
            }
        }
    }
}

TEST(Drawing, FullRangeGivesTheSamplesOfTheFormatsOfFullRange) {
    const std::pair<AVPixelFormat, AVPixelFormat> pairs[] = {{AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUVJ420P},
                                                             {AV_PIX_FMT_YUV422P, AV_PIX_FMT_YUVJ422P},
                                                             {AV_PIX_FMT_YUV444P, AV_PIX_FMT_YUVJ444P},
                                                             {AV_PIX_FMT_YUV440P, AV_PIX_FMT_YUVJ440P},
                                                             {AV_PIX_FMT_YUV411P, AV_PIX_FMT_YUVJ411P}};
    for (const auto& [format, full] : pairs) {
        for (const Rgba& color : someColors()) {
            SCOPED_TRACE(color.text());
            const FramePtr frame = colorFilter(full, color);
            expectEqualPlanes(filled(format, color, kDrawFullRange), *frame, format);
        }
    }
}

// The samples of a colour by the definition of BT.601, as fractions of the largest one.
std::vector<long double> fullRangeSamples(const AVPixFmtDescriptor& descriptor, Rgba color) {
    const long double r = color.bytes[0] / 255.0L;
    const long double g = color.bytes[1] / 255.0L;
    const long double b = color.bytes[2] / 255.0L;
    const long double a = color.bytes[3] / 255.0L;
    if ((descriptor.flags & AV_PIX_FMT_FLAG_RGB) != 0) {
        return {r, g, b, a};
    }
    const long double y = 0.299L * r + 0.587L * g + 0.114L * b;
    if (descriptor.nb_components <= 2) {
        return {y, a};
    }
    return {y, (b - y) / 1.772L + 0.5L, (r - y) / 1.402L + 0.5L, a};
}

TEST(Drawing, FullRangeColorsFollowTheMatrixInEveryFormat) {
    std::vector<AVPixelFormat> formats = formatsOfTheFilter();
    formats.push_back(kNva12);
    for (const AVPixelFormat format : formats) {
        const AVPixFmtDescriptor& descriptor = *pixelFormatDescriptor(format);
        for (const Rgba& color : someColors()) {
            SCOPED_TRACE(std::string(descriptor.name) + " " + color.text());
            const Image image = filled(format, color, kDrawFullRange);
            const std::vector<long double> expected = fullRangeSamples(descriptor, color);
            for (int i = 0; i < descriptor.nb_components; ++i) {
                const AVComponentDescriptor& component = descriptor.comp[i];
                const int largest = (1 << (component.depth + component.shift)) - 1;
                const std::uint8_t* bytes = image.data[component.plane] + component.offset;
                const int sample = component.depth > 8 ? bytes[0] | bytes[1] << 8 : bytes[0];
                const auto wanted = std::fmin(expected[static_cast<std::size_t>(i)], 1.0L) * largest;
                EXPECT_NEAR(sample, static_cast<double>(wanted), 0.5001) << "component " << i;
            }
        }
    }
}

TEST(Drawing, Nva12HasTheSamplesOfNv12AndItsAlpha) {
    for (const Rgba& color : someColors()) {
        const FramePtr nv12 = colorFilter(AV_PIX_FMT_NV12, color);
        const Image image = filled(kNva12, color, 0);
        EXPECT_EQ(std::memcmp(image.data[0], nv12->data[0], kWidth), 0);
        EXPECT_EQ(std::memcmp(image.data[1], nv12->data[1], kWidth), 0);
        EXPECT_EQ(image.data[3][0], color.bytes[3]);
        EXPECT_EQ(image.data[3][kWidth * kHeight - 1], color.bytes[3]);
    }
}

TEST(Drawing, FillsTheRectangleOfTheDrawboxFilter) {
    struct Box {
        int x, y, width, height;
    };
    for (const AVPixelFormat format : {AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUV422P, AV_PIX_FMT_YUV444P,
                                       AV_PIX_FMT_RGB24, AV_PIX_FMT_BGRA, AV_PIX_FMT_0RGB}) {
        for (const Box box : {Box{0, 0, 24, 16}, Box{2, 4, 6, 8}, Box{22, 14, 2, 2}, Box{0, 6, 24, 2}}) {
            const Rgba background{{10, 20, 30, 255}};
            // Drawbox rounds colours differently and does not know full range, but white is certainly the
            // same.
            const Rgba color{{255, 255, 255, 255}};
            const std::string arguments = "x=" + std::to_string(box.x) + ":y=" + std::to_string(box.y) +
                                          ":w=" + std::to_string(box.width) +
                                          ":h=" + std::to_string(box.height) + ":t=fill:c=" + color.text();
            const FramePtr frame =
                test::filteredPicture(av_get_pix_fmt_name(format),
                                      {{"color", "s=24x16:c=" + background.text()}, {"drawbox", arguments}});
            ASSERT_TRUE(frame) << pixelFormatName(format);
            Image image = filled(format, background, 0);
            FFDrawContext context;
            ASSERT_EQ(ff_draw_init(&context, format, 0), 0);
            FFDrawColor drawColor;
            ff_draw_color(&context, &drawColor, color.bytes);
            ff_fill_rectangle(&context, &drawColor, image.data, image.linesize, box.x, box.y, box.width,
                              box.height);
            SCOPED_TRACE(arguments);
            expectEqualPlanes(image, *frame, format);
        }
    }
}

TEST(Drawing, NothingIsFilledWhereAWidthOrHeightIsNotPositive) {
    FFDrawContext context;
    ASSERT_EQ(ff_draw_init(&context, AV_PIX_FMT_NV12, 0), 0);
    FFDrawColor color;
    const std::uint8_t white[4] = {255, 255, 255, 255};
    ff_draw_color(&context, &color, white);
    Image image(AV_PIX_FMT_NV12);
    const std::vector<std::uint8_t> before = image.memory;
    ff_fill_rectangle(&context, &color, image.data, image.linesize, 4, 4, 0, 4);
    ff_fill_rectangle(&context, &color, image.data, image.linesize, 4, 4, 4, 0);
    ff_fill_rectangle(&context, &color, image.data, image.linesize, 4, 4, -2, 4);
    ff_fill_rectangle(&context, &color, image.data, image.linesize, 4, 4, 4, -2);
    EXPECT_EQ(image.memory, before);
}

}  // namespace
}  // namespace vidorra::ffmpeg_ext
