#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "ffmpeg/pixel_formats.h"
#include "process/drawing/ff_draw.h"
#include "process/drawing/mask_blending.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

namespace vidorra::ffmpeg_ext {
namespace {

struct Image {
    AVPixelFormat format;
    int width;
    int height;
    std::vector<std::uint8_t> memory;
    std::uint8_t* data[4] = {};
    int linesize[4] = {};

    // Random bytes; samples of more than 8 bits take all of their 16.
    Image(AVPixelFormat f, int w, int h, unsigned seed) : format(f), width(w), height(h) {
        memory.resize(static_cast<std::size_t>(imageBufferSize(f, w, h, 16)));
        std::mt19937 random(seed);
        for (std::uint8_t& byte : memory) {
            byte = static_cast<std::uint8_t>(random());
        }
        fillImageArrays(data, linesize, memory.data(), f, w, h, 16);
    }
    Image(const Image& other) : Image(other.format, other.width, other.height, 0) { memory = other.memory; }
};

struct Mask {
    int width;
    int height;
    int linesize;
    bool oneBit;
    std::vector<std::uint8_t> bytes;

    Mask(int w, int h, bool bits, unsigned seed)
        : width(w), height(h), linesize((bits ? (w + 7) / 8 : w) + 3), oneBit(bits) {
        bytes.resize(static_cast<std::size_t>(linesize) * static_cast<std::size_t>(h));
        std::mt19937 random(seed);
        for (std::uint8_t& byte : bytes) {
            // Many that are not covered at all, and many that are fully covered.
            const unsigned kind = random() % 4;
            byte = kind == 0 ? 0 : kind == 1 ? 255 : static_cast<std::uint8_t>(random());
        }
    }
    // 0 outside the mask.
    [[nodiscard]] unsigned at(int x, int y) const {
        if (x < 0 || y < 0 || x >= width || y >= height) {
            return 0;
        }
        const std::size_t row = static_cast<std::size_t>(y) * static_cast<std::size_t>(linesize);
        if (oneBit) {
            return (bytes[row + static_cast<std::size_t>(x / 8)] & (0x80 >> (x % 8))) != 0 ? 255 : 0;
        }
        return bytes[row + static_cast<std::size_t>(x)];
    }
};

FFDrawColor colorFor(const FFDrawContext& context, std::uint8_t alpha) {
    const std::uint8_t rgba[4] = {210, 90, 33, alpha};
    FFDrawColor color;
    ff_draw_color(&context, &color, rgba);
    return color;
}

// The picture sample by sample, by the definition.
void referenceBlend(const FFDrawContext& context, const FFDrawColor& color, Image& image, const Mask& mask,
                    int x0, int y0) {
    const AVPixFmtDescriptor& descriptor = *pixelFormatDescriptor(image.format);
    const bool hasAlpha = (descriptor.flags & AV_PIX_FMT_FLAG_ALPHA) != 0;
    for (int i = 0; i < descriptor.nb_components; ++i) {
        if (hasAlpha && i == descriptor.nb_components - 1 && (context.flags & kDrawProcessAlpha) == 0) {
            continue;
        }
        const AVComponentDescriptor& component = descriptor.comp[i];
        const int plane = component.plane;
        const int blockWidth = 1 << context.hsub[plane];
        const int blockHeight = 1 << context.vsub[plane];
        const bool wide = component.depth > 8;
        for (int y = 0; y * blockHeight < image.height; ++y) {
            for (int x = 0; x * blockWidth < image.width; ++x) {
                std::uint64_t covered = 0;
                for (int row = 0; row < blockHeight; ++row) {
                    for (int column = 0; column < blockWidth; ++column) {
                        const int px = x * blockWidth + column;
                        const int py = y * blockHeight + row;
                        covered += px < image.width && py < image.height ? mask.at(px - x0, py - y0) : 0;
                    }
                }
                covered /= static_cast<unsigned>(blockWidth * blockHeight);
                std::uint8_t* sample =
                    image.data[plane] + y * image.linesize[plane] + x * component.step + component.offset;
                const std::uint8_t* source = color.comp[plane] + component.offset;
                const std::uint64_t scale = wide ? 0x10001 : 0x1010101;
                const std::uint64_t weight =
                    covered * ((wide ? 0x101U * color.rgba[3] + 2 : 0x10307U * color.rgba[3] + 3) >> 8);
                const std::uint64_t old = wide ? sample[0] | unsigned{sample[1]} << 8 : sample[0];
                const std::uint64_t fresh = wide ? source[0] | unsigned{source[1]} << 8 : source[0];
                const std::uint64_t mixed = ((scale - weight) * old + weight * fresh) >> (wide ? 16 : 24);
                // The equation and the intuitive formula differ by less than one.
                const double opacity = static_cast<double>(covered) / 255 * color.rgba[3] / 255;
                EXPECT_NEAR(static_cast<double>(mixed),
                            opacity * static_cast<double>(fresh) + (1 - opacity) * static_cast<double>(old),
                            wide ? 520 : 1.02);
                sample[0] = static_cast<std::uint8_t>(mixed);
                if (wide) {
                    sample[1] = static_cast<std::uint8_t>(mixed >> 8);
                }
            }
        }
    }
}

void blend(const FFDrawContext& context, const FFDrawColor& color, Image& image, const Mask& mask, int x0,
           int y0) {
    ff_blend_mask(&context, &color, image.data, image.linesize, image.width, image.height, mask.bytes.data(),
                  mask.linesize, mask.width, mask.height, mask.oneBit ? 0 : 3, 0, x0, y0);
}

void blendBy(const masks::Kernels& kernels, const FFDrawContext& context, const FFDrawColor& color,
             Image& image, const Mask& mask, int x0, int y0) {
    masks::blendMask(kernels, context, color, image.data, image.linesize, image.width, image.height,
                     {{mask.bytes.data(), mask.linesize}, mask.width, mask.height, mask.oneBit}, x0, y0);
}

constexpr AVPixelFormat kFormats[] = {AV_PIX_FMT_YUV420P,
                                      AV_PIX_FMT_YUVA420P,
                                      AV_PIX_FMT_NV12,
                                      AV_PIX_FMT_YUV422P,
                                      AV_PIX_FMT_YUV410P,
                                      AV_PIX_FMT_YUV411P,
                                      AV_PIX_FMT_YUV440P,
                                      AV_PIX_FMT_RGBA,
                                      AV_PIX_FMT_ARGB,
                                      AV_PIX_FMT_RGB24,
                                      AV_PIX_FMT_BGR0,
                                      AV_PIX_FMT_GBRAP,
                                      AV_PIX_FMT_GRAY8,
                                      AV_PIX_FMT_YA8,
                                      AV_PIX_FMT_YUV420P10LE,
                                      AV_PIX_FMT_P010LE,
                                      AV_PIX_FMT_YUVA444P16LE,
                                      AV_PIX_FMT_GRAY16LE,
                                      kNva12};

TEST(MaskBlending, IsTheDefinitionInEveryKindOfFormat) {
    std::mt19937 random(5);
    for (const AVPixelFormat format : kFormats) {
        for (const unsigned flags : {0U, kDrawProcessAlpha}) {
            FFDrawContext context;
            ASSERT_EQ(ff_draw_init(&context, format, flags), 0) << pixelFormatName(format);
            for (int round = 0; round < 12; ++round) {
                const int width = 1 + static_cast<int>(random() % 80);
                const int height = 1 + static_cast<int>(random() % 20);
                Image image(format, width, height, random());
                const Mask mask(1 + static_cast<int>(random() % 70), 1 + static_cast<int>(random() % 12),
                                random() % 2 == 0, random());
                const int x0 = static_cast<int>(random() % 60) - 25;
                const int y0 = static_cast<int>(random() % 30) - 10;
                const FFDrawColor color =
                    colorFor(context, round % 3 == 0 ? 255 : static_cast<std::uint8_t>(random() % 256));
                Image expected = image;
                referenceBlend(context, color, expected, mask, x0, y0);
                for (const masks::Kernels* kernels : masks::supportedKernels()) {
                    Image drawn = image;
                    blendBy(*kernels, context, color, drawn, mask, x0, y0);
                    ASSERT_EQ(drawn.memory, expected.memory)
                        << pixelFormatName(format) << " " << width << "x" << height << " mask " << mask.width
                        << "x" << mask.height << (mask.oneBit ? " of bits" : "") << " at " << x0 << "," << y0
                        << " by " << kernels->name;
                }
                Image drawn = image;
                blend(context, color, drawn, mask, x0, y0);
                ASSERT_EQ(drawn.memory, expected.memory) << pixelFormatName(format);
            }
        }
    }
}

TEST(MaskBlending, HasTheKernelsThatTheProcessorCanRunTheFastestLast) {
    std::vector<std::string> names;
    for (const masks::Kernels* kernels : masks::supportedKernels()) {
        names.emplace_back(kernels->name);
    }
    std::vector<std::string> expected = {"plain", "vector16"};
#if defined(__x86_64__)
    if (__builtin_cpu_supports("avx2")) {
        expected.emplace_back("avx2");
        if (__builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512vl")) {
            expected.emplace_back("avx512");
        }
    }
#endif
    EXPECT_EQ(names, expected);
    EXPECT_EQ(&masks::kernels(), masks::supportedKernels().back());
}

TEST(MaskBlending, RowsLongerThanABlockAreBlendedToTheirEnd) {
    for (const AVPixelFormat format :
         {AV_PIX_FMT_YUV420P, AV_PIX_FMT_NV12, AV_PIX_FMT_RGBA, AV_PIX_FMT_RGB24, AV_PIX_FMT_YUV422P10LE}) {
        FFDrawContext context;
        ASSERT_EQ(ff_draw_init(&context, format, kDrawProcessAlpha), 0);
        const FFDrawColor color = colorFor(context, 200);
        Image image(format, 1501, 3, 1);
        const Mask mask(1400, 3, false, 2);
        Image expected = image;
        referenceBlend(context, color, expected, mask, 51, 0);
        for (const masks::Kernels* kernels : masks::supportedKernels()) {
            Image drawn = image;
            blendBy(*kernels, context, color, drawn, mask, 51, 0);
            EXPECT_EQ(drawn.memory, expected.memory) << pixelFormatName(format) << " by " << kernels->name;
        }
    }
}

// All bytes of a coverage, of what stands there and of what is drawn.
TEST(MaskBlending, IsTheEquationForAllCoveragesAndSamples) {
    FFDrawContext context;
    ASSERT_EQ(ff_draw_init(&context, AV_PIX_FMT_GRAY8, 0), 0);
    Mask mask(256, 256, false, 1);
    for (int y = 0; y < 256; ++y) {
        for (int x = 0; x < 256; ++x) {
            mask.bytes[static_cast<std::size_t>(y * mask.linesize + x)] = static_cast<std::uint8_t>(x);
        }
    }
    for (const std::uint8_t alpha : {1, 100, 254, 255}) {
        FFDrawColor color = colorFor(context, alpha);
        const unsigned factor = (0x10307U * alpha + 3) >> 8;
        for (const unsigned fresh : {0U, 1U, 16U, 127U, 235U, 255U}) {
            color.comp[0][0] = static_cast<std::uint8_t>(fresh);
            for (const masks::Kernels* kernels : masks::supportedKernels()) {
                Image image(AV_PIX_FMT_GRAY8, 256, 256, 1);
                for (int y = 0; y < 256; ++y) {
                    std::fill_n(image.data[0] + y * image.linesize[0], 256, static_cast<std::uint8_t>(y));
                }
                blendBy(*kernels, context, color, image, mask, 0, 0);
                for (unsigned y = 0; y < 256; ++y) {
                    for (unsigned x = 0; x < 256; ++x) {
                        const unsigned expected = ((0x1010101 - x * factor) * y + x * factor * fresh) >> 24;
                        ASSERT_EQ(
                            image.data[0][static_cast<int>(y) * image.linesize[0] + static_cast<int>(x)],
                            expected)
                            << "coverage " << x << " on " << y << " by " << kernels->name;
                    }
                }
            }
        }
    }
}

TEST(MaskBlending, FullCoverageAtFullAlphaIsTheColorAndNoCoverageIsThePicture) {
    for (const AVPixelFormat format : kFormats) {
        FFDrawContext context;
        ASSERT_EQ(ff_draw_init(&context, format, kDrawProcessAlpha), 0);
        const FFDrawColor color = colorFor(context, 255);
        Image image(format, 16, 8, 1);
        Image fill = image;
        ff_fill_rectangle(&context, &color, fill.data, fill.linesize, 0, 0, 16, 8);
        Mask mask(16, 8, false, 1);
        std::fill(mask.bytes.begin(), mask.bytes.end(), std::uint8_t{0});
        const std::vector<std::uint8_t> before = image.memory;
        blend(context, color, image, mask, 0, 0);
        EXPECT_EQ(image.memory, before) << pixelFormatName(format);
        std::fill(mask.bytes.begin(), mask.bytes.end(), std::uint8_t{255});
        blend(context, color, image, mask, 0, 0);
        for (int i = 0; i < context.desc->nb_components; ++i) {
            const AVComponentDescriptor& component = context.desc->comp[i];
            const std::uint8_t* ours = image.data[component.plane] + component.offset;
            const std::uint8_t* whole = fill.data[component.plane] + component.offset;
            if (component.depth > 8) {
                // Wide samples stay a little below the colour.
                EXPECT_NEAR(ours[0] | ours[1] << 8, whole[0] | whole[1] << 8, 400) << pixelFormatName(format);
                continue;
            }
            EXPECT_EQ(*ours, *whole) << pixelFormatName(format) << " component " << i;
        }
    }
}

TEST(MaskBlending, AColorWithoutAlphaDrawsNothing) {
    FFDrawContext context;
    ASSERT_EQ(ff_draw_init(&context, AV_PIX_FMT_NV12, kDrawProcessAlpha), 0);
    Image image(AV_PIX_FMT_NV12, 16, 8, 1);
    const std::vector<std::uint8_t> before = image.memory;
    blend(context, colorFor(context, 0), image, Mask(16, 8, false, 1), 0, 0);
    EXPECT_EQ(image.memory, before);
}

TEST(MaskBlending, MasksFarAwayAreClipped) {
    FFDrawContext context;
    ASSERT_EQ(ff_draw_init(&context, AV_PIX_FMT_YUV420P, kDrawProcessAlpha), 0);
    Image image(AV_PIX_FMT_YUV420P, 16, 8, 1);
    const std::vector<std::uint8_t> before = image.memory;
    const Mask mask(9, 9, false, 1);
    for (const int far : {INT_MAX, INT_MAX - 3, INT_MIN, INT_MIN + 3, 16, -9}) {
        blend(context, colorFor(context, 255), image, mask, far, 0);
        blend(context, colorFor(context, 255), image, mask, 0, far == 16 ? 8 : far);
    }
    EXPECT_EQ(image.memory, before);
}

TEST(MaskBlending, AMaskMayStandUpsideDown) {
    FFDrawContext context;
    ASSERT_EQ(ff_draw_init(&context, AV_PIX_FMT_YUV420P, kDrawProcessAlpha), 0);
    const FFDrawColor color = colorFor(context, 180);
    Mask mask(8, 4, false, 3);
    Mask flipped = mask;
    for (int y = 0; y < 4; ++y) {
        std::copy_n(mask.bytes.begin() + y * mask.linesize, mask.linesize,
                    flipped.bytes.begin() + (3 - y) * mask.linesize);
    }
    Image image(AV_PIX_FMT_YUV420P, 16, 8, 1);
    Image expected = image;
    blend(context, color, expected, mask, 3, 1);
    ff_blend_mask(&context, &color, image.data, image.linesize, 16, 8,
                  flipped.bytes.data() + 3 * static_cast<std::size_t>(mask.linesize), -mask.linesize, 8, 4, 3,
                  0, 3, 1);
    EXPECT_EQ(image.memory, expected.memory);
}

}  // namespace
}  // namespace vidorra::ffmpeg_ext
