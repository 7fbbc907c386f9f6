#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "ffmpeg/pixel_formats.h"
#include "process/drawing/ff_draw.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

namespace vidorra::ffmpeg_ext {
namespace {

// Memory for a picture with all planes, filled at random.
struct Image {
    std::vector<std::uint8_t> memory;
    std::uint8_t* data[4] = {};
    int linesize[4] = {};

    Image(AVPixelFormat format, int width, int height, unsigned seed) {
        memory.resize(static_cast<std::size_t>(imageBufferSize(format, width, height, 1)));
        std::mt19937 random(seed);
        for (std::uint8_t& byte : memory) {
            byte = static_cast<std::uint8_t>(random());
        }
        fillImageArrays(data, linesize, memory.data(), format, width, height, 1);
    }
};

TEST(RectangleCopy, CopiesTheWholeOfEachFormatAsFfmpegDoes) {
    int formats = 0;
    for (int number = 0; number < 1000; ++number) {
        const auto format = static_cast<AVPixelFormat>(number);
        FFDrawContext context;
        if (ff_draw_init(&context, format, 0) < 0) {
            continue;
        }
        ++formats;
        Image src(format, 37, 23, 1);
        Image dst(format, 37, 23, 2);
        Image expected = dst;
        fillImageArrays(expected.data, expected.linesize, expected.memory.data(), format, 37, 23, 1);
        copyImage(expected.data, expected.linesize, src.data, src.linesize, format, 37, 23);
        ff_copy_rectangle2(&context, dst.data, dst.linesize, src.data, src.linesize, 0, 0, 0, 0, 37, 23);
        EXPECT_EQ(dst.memory, expected.memory) << pixelFormatName(format);
    }
    EXPECT_GT(formats, 60);
}

TEST(RectangleCopy, KnowsPlanarSemiPlanarPackedAndGrayFormats) {
    for (const AVPixelFormat format : {AV_PIX_FMT_YUV420P,     AV_PIX_FMT_YUV410P,   AV_PIX_FMT_YUV444P,
                                       AV_PIX_FMT_YUVA420P,    AV_PIX_FMT_YUVJ420P,  AV_PIX_FMT_YUV420P10LE,
                                       AV_PIX_FMT_YUV422P16LE, AV_PIX_FMT_NV12,      AV_PIX_FMT_NV21,
                                       AV_PIX_FMT_P010LE,      AV_PIX_FMT_P016LE,    AV_PIX_FMT_GRAY8,
                                       AV_PIX_FMT_GRAY10LE,    AV_PIX_FMT_GRAY16LE,  AV_PIX_FMT_YA8,
                                       AV_PIX_FMT_RGB24,       AV_PIX_FMT_BGRA,      AV_PIX_FMT_0RGB,
                                       AV_PIX_FMT_GBRP,        AV_PIX_FMT_GBRAP12LE, kNva12}) {
        FFDrawContext context;
        EXPECT_EQ(ff_draw_init(&context, format, 0), 0) << pixelFormatName(format);
    }
}

TEST(RectangleCopy, DoesNotKnowOthers) {
    for (const AVPixelFormat format :
         {AV_PIX_FMT_NONE, AV_PIX_FMT_PAL8, AV_PIX_FMT_MONOWHITE, AV_PIX_FMT_RGB565LE, AV_PIX_FMT_YUYV422,
          AV_PIX_FMT_UYVY422, AV_PIX_FMT_UYYVYY411, AV_PIX_FMT_RGB48LE, AV_PIX_FMT_RGBA64LE,
          AV_PIX_FMT_YUV420P10BE, AV_PIX_FMT_GRAY16BE, AV_PIX_FMT_GBRPF32LE, AV_PIX_FMT_VAAPI,
          AV_PIX_FMT_BAYER_BGGR8, AV_PIX_FMT_RGB8, static_cast<AVPixelFormat>(100000)}) {
        FFDrawContext context;
        context.nb_planes = 77;
        EXPECT_LT(ff_draw_init(&context, format, 0), 0) << format;
        EXPECT_EQ(context.nb_planes, 77U);
    }
}

TEST(RectangleCopy, DividesPositionsAndSizesByThePlanesSubsampling) {
    FFDrawContext context;
    ASSERT_EQ(ff_draw_init(&context, AV_PIX_FMT_YUV420P, kDrawFullRange), 0);
    EXPECT_EQ(context.nb_planes, 3U);
    EXPECT_EQ(context.hsub_max, 1);
    EXPECT_EQ(context.vsub_max, 1);
    EXPECT_TRUE(context.full_range);
    Image src(AV_PIX_FMT_YUV420P, 16, 16, 1);
    Image dst(AV_PIX_FMT_YUV420P, 16, 16, 2);
    const Image before = dst;
    ff_copy_rectangle2(&context, dst.data, dst.linesize, src.data, src.linesize, 4, 6, 2, 8, 5, 3);
    for (int plane = 0; plane < 3; ++plane) {
        const int shift = plane == 0 ? 0 : 1;
        const int width = plane == 0 ? 5 : 3;
        const int height = plane == 0 ? 3 : 2;
        const auto offset = dst.data[plane] - dst.memory.data();
        for (int y = 0; y < 16 >> shift; ++y) {
            for (int x = 0; x < 16 >> shift; ++x) {
                const int column = x - (4 >> shift);
                const int row = y - (6 >> shift);
                const bool inside = column >= 0 && column < width && row >= 0 && row < height;
                const int expected =
                    inside
                        ? src.data[plane][(row + (8 >> shift)) * src.linesize[plane] + column + (2 >> shift)]
                        : before.memory[static_cast<std::size_t>(offset + y * dst.linesize[plane] + x)];
                EXPECT_EQ(dst.data[plane][y * dst.linesize[plane] + x], expected)
                    << "plane " << plane << " at " << x << "," << y;
            }
        }
    }
}

}  // namespace
}  // namespace vidorra::ffmpeg_ext
