#include "vidorra/process/compose.h"

#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <cstdlib>
#include <limits>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/blend_reference.h"
#include "support/throw_text.h"
#include "vidorra/core/enum_text.h"

namespace vidorra {
namespace {

using test::Raster;
using test::RasterFormat;

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

struct PlaneShape {
    int rowBytes;
    int rows;
};

// Bytes of a row and rows of each plane, from the names of the formats and not from any table of formats.
std::array<PlaneShape, 4> planeShapes(AVPixelFormat format, Size size) {
    const int w = size.width;
    const int h = size.height;
    const int cw = (w + 1) / 2;
    const int ch = (h + 1) / 2;
    switch (format) {
    case AV_PIX_FMT_NV12:
        return {{{w, h}, {2 * cw, ch}}};
    case AV_PIX_FMT_YUV420P:
        return {{{w, h}, {cw, ch}, {cw, ch}}};
    case AV_PIX_FMT_YUV422P:
        return {{{w, h}, {cw, h}, {cw, h}}};
    case AV_PIX_FMT_YUVA420P:
        return {{{w, h}, {cw, ch}, {cw, ch}, {w, h}}};
    case AV_PIX_FMT_YUV420P10LE:
        return {{{2 * w, h}, {2 * cw, ch}, {2 * cw, ch}}};
    case AV_PIX_FMT_RGB24:
    case AV_PIX_FMT_BGR24:
        return {{{3 * w, h}}};
    case AV_PIX_FMT_RGBA:
    case AV_PIX_FMT_ARGB:
        return {{{4 * w, h}}};
    case AV_PIX_FMT_GRAY8:
        return {{{w, h}}};
    case AV_PIX_FMT_YUYV422:
        return {{{4 * cw, h}}};
    default:
        if (format == NVA12) {
            return {{{w, h}, {2 * cw, ch}, {0, 0}, {w, h}}};
        }
        throw std::logic_error("planeShapes: unknown format");
    }
}

class Compose : public testing::Test {
protected:
    ~Compose() override { unsetenv("VDR_ALPHABLEND_NUM_THREADS"); }

    Picture picture(AVPixelFormat format, int width, int height, AVColorRange range = AVCOL_RANGE_MPEG) {
        Picture result(Size{width, height}, format, range, 16);
        const auto shapes = planeShapes(format, {width, height});
        for (std::size_t plane = 0; plane < 4; ++plane) {
            for (int row = 0; row < shapes[plane].rows; ++row) {
                for (int byte = 0; byte < shapes[plane].rowBytes; ++byte) {
                    result.data()[plane][row * result.linesize()[plane] + byte] =
                        static_cast<std::uint8_t>(mRandom());
                }
            }
        }
        return result;
    }

    // The pixels, plane by plane and row by row.
    static std::vector<std::uint8_t> pixels(const Picture& picture) {
        std::vector<std::uint8_t> result;
        const auto shapes = planeShapes(picture.pixelFormat(), picture.frameSize());
        for (std::size_t plane = 0; plane < 4; ++plane) {
            for (int row = 0; row < shapes[plane].rows; ++row) {
                const std::uint8_t* begin = picture.data()[plane] + row * picture.linesize()[plane];
                result.insert(result.end(), begin, begin + shapes[plane].rowBytes);
            }
        }
        return result;
    }

    static Picture privateCopy(const Picture& picture) {
        return Picture(picture.frameSize(), picture.data().data(), picture.linesize().data(),
                       picture.pixelFormat(), picture.colorRange(), 16);
    }

    // The picture as a raster, for the reference.
    Raster raster(RasterFormat format, const Picture& picture) {
        Raster result(format, picture.frameSize().width, picture.frameSize().height, 0, 0, mRandom);
        const auto shapes = planeShapes(picture.pixelFormat(), picture.frameSize());
        for (int plane = 0; plane < 4; ++plane) {
            for (int row = 0; row < shapes[plane].rows; ++row) {
                for (int byte = 0; byte < shapes[plane].rowBytes; ++byte) {
                    result.at(plane, byte, row) =
                        picture.data()[plane][row * picture.linesize()[plane] + byte];
                }
            }
        }
        return result;
    }

    std::mt19937 mRandom{23};
};

struct FormatRow {
    const char* name;
    AVPixelFormat dst;
    AVPixelFormat overlay;
    RasterFormat dstRaster;
    RasterFormat overlayRaster;
    bool subsampled;
};

const FormatRow kFormats[] = {
    {.name = "Nv12",
     .dst = AV_PIX_FMT_NV12,
     .overlay = AV_PIX_FMT_NV12,
     .dstRaster = RasterFormat::Nv12,
     .overlayRaster = RasterFormat::Nv12,
     .subsampled = true},
    {.name = "Nva12",
     .dst = AV_PIX_FMT_NV12,
     .overlay = NVA12,
     .dstRaster = RasterFormat::Nv12,
     .overlayRaster = RasterFormat::Nva12,
     .subsampled = true},
    {.name = "Rgba",
     .dst = AV_PIX_FMT_RGBA,
     .overlay = AV_PIX_FMT_RGBA,
     .dstRaster = RasterFormat::Rgba,
     .overlayRaster = RasterFormat::Rgba,
     .subsampled = false},
    {.name = "Argb",
     .dst = AV_PIX_FMT_ARGB,
     .overlay = AV_PIX_FMT_ARGB,
     .dstRaster = RasterFormat::Argb,
     .overlayRaster = RasterFormat::Argb,
     .subsampled = false},
    {.name = "Rgb24",
     .dst = AV_PIX_FMT_RGB24,
     .overlay = AV_PIX_FMT_RGB24,
     .dstRaster = RasterFormat::Rgb24,
     .overlayRaster = RasterFormat::Rgb24,
     .subsampled = false},
    {.name = "Bgr24",
     .dst = AV_PIX_FMT_BGR24,
     .overlay = AV_PIX_FMT_BGR24,
     .dstRaster = RasterFormat::Bgr24,
     .overlayRaster = RasterFormat::Bgr24,
     .subsampled = false},
};

int evenFloor(int value) {
    return value >= 0 ? value / 2 * 2 : -((1 - value) / 2 * 2);
}

TEST_F(Compose, BlendsEachPairOfFormatsOnTheChromaGrid) {
    for (const FormatRow& row : kFormats) {
        for (int round = 0; round < 150; ++round) {
            Picture dst = picture(row.dst, 1 + mRandom() % 120, 1 + mRandom() % 60);
            const Picture overlay = picture(row.overlay, 1 + mRandom() % 120, 1 + mRandom() % 60);
            const int x = static_cast<int>(mRandom() % 300) - 150;
            const int y = static_cast<int>(mRandom() % 160) - 80;
            const double opacity = round % 3 == 0 ? 1.0 : (1 + mRandom() % 1100) / 1000.0;
            Raster expected = raster(row.dstRaster, dst);
            Raster src = raster(row.overlayRaster, overlay);
            if (row.subsampled) {
                // Even sizes at an even position: what is odd takes no part.
                const auto even = [this](RasterFormat format, const Raster& whole) {
                    Raster result(format, whole.width() / 2 * 2, whole.height() / 2 * 2, 0, 0, mRandom);
                    for (int plane : {0, 1, 3}) {
                        for (int i = 0; i < result.rows(plane); ++i) {
                            for (int byte = 0; byte < result.rowBytes(plane); ++byte) {
                                result.at(plane, byte, i) = whole.at(plane, byte, i);
                            }
                        }
                    }
                    return result;
                };
                Raster evenDst = even(row.dstRaster, expected);
                test::referenceBlend(row.overlayRaster, evenDst, even(row.overlayRaster, src), evenFloor(x),
                                     evenFloor(y), opacity);
                for (int plane : {0, 1}) {
                    for (int i = 0; i < evenDst.rows(plane); ++i) {
                        for (int byte = 0; byte < evenDst.rowBytes(plane); ++byte) {
                            expected.at(plane, byte, i) = evenDst.at(plane, byte, i);
                        }
                    }
                }
            } else {
                test::referenceBlend(row.overlayRaster, expected, src, x, y, opacity);
            }
            const int threads = 1 + static_cast<int>(mRandom() % 8);
            compose(dst, overlay, {x, y}, CheckColorRange::Yes, opacity, threads);
            ASSERT_EQ(raster(row.dstRaster, dst).difference(expected), "")
                << row.name << ", " << dst << " under " << overlay << " at " << x << "," << y << ", opacity "
                << opacity;
        }
    }
}

TEST_F(Compose, PutsAnOddNegativePositionOnTheNextWholeChromaSample) {
    Picture dst = picture(AV_PIX_FMT_NV12, 8, 8);
    const Picture overlay = picture(AV_PIX_FMT_NV12, 8, 8);
    compose(dst, overlay, {-1, -1}, CheckColorRange::Yes, 1.0, 1);
    for (int row = 0; row < 6; ++row) {
        for (int column = 0; column < 6; ++column) {
            EXPECT_EQ(dst.data()[0][row * dst.linesize()[0] + column],
                      overlay.data()[0][(row + 2) * overlay.linesize()[0] + column + 2]);
        }
    }
    for (int row = 0; row < 3; ++row) {
        for (int byte = 0; byte < 6; ++byte) {
            EXPECT_EQ(dst.data()[1][row * dst.linesize()[1] + byte],
                      overlay.data()[1][(row + 1) * overlay.linesize()[1] + byte + 2]);
        }
    }
}

TEST_F(Compose, CopiesOpaquePicturesOfOneFormatWithoutAlpha) {
    for (const AVPixelFormat format :
         {AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUV422P, AV_PIX_FMT_YUV420P10LE, AV_PIX_FMT_GRAY8}) {
        for (const AVColorRange range : {AVCOL_RANGE_MPEG, AVCOL_RANGE_JPEG}) {
            Picture dst = picture(format, 32, 32, range);
            const Picture overlay = picture(format, 32, 32, range);
            compose(dst, overlay, {0, 0}, CheckColorRange::Yes, 1.0, 1);
            EXPECT_EQ(pixels(dst), pixels(overlay)) << format;
        }
    }
}

TEST_F(Compose, TakesAnOpacityThatIsOneButForTheLastBitAsOpaque) {
    Picture dst = picture(AV_PIX_FMT_YUV420P, 16, 16);
    const Picture overlay = picture(AV_PIX_FMT_YUV420P, 16, 16);
    compose(dst, overlay, {0, 0}, CheckColorRange::Yes, 0.9999999999999998, 1);
    EXPECT_EQ(pixels(dst), pixels(overlay));
    EXPECT_THROW(compose(dst, overlay, {0, 0}, CheckColorRange::Yes, 0.9999999999999997, 1),
                 std::runtime_error);
}

TEST_F(Compose, CopiesThePartOfAPlanarPictureThatShows) {
    Picture dst = picture(AV_PIX_FMT_YUV420P, 16, 12);
    const Picture before = privateCopy(dst);
    const Picture overlay = picture(AV_PIX_FMT_YUV420P, 10, 10);
    compose(dst, overlay, {9, -3}, CheckColorRange::Yes, 2.0, 1);
    // At (8, -4): 8 columns and 6 rows show.
    for (int plane = 0; plane < 3; ++plane) {
        const int shift = plane == 0 ? 0 : 1;
        for (int y = 0; y < 12 >> shift; ++y) {
            for (int x = 0; x < 16 >> shift; ++x) {
                const bool covered = x >= 8 >> shift && y < 6 >> shift;
                const int expected =
                    covered ? overlay.data()[plane][(y + (4 >> shift)) * overlay.linesize()[plane] + x -
                                                    (8 >> shift)]
                            : before.data()[plane][y * before.linesize()[plane] + x];
                EXPECT_EQ(dst.data()[plane][y * dst.linesize()[plane] + x], expected)
                    << "plane " << plane << " at " << x << "," << y;
            }
        }
    }
}

TEST_F(Compose, RefusesAPairOfFormatsThatCannotBeBlended) {
    struct Row {
        AVPixelFormat dst;
        AVPixelFormat overlay;
        double opacity;
        const char* text;
    };
    const Row rows[] = {
        {.dst = AV_PIX_FMT_YUV420P,
         .overlay = AV_PIX_FMT_YUV420P,
         .opacity = 0.5,
         .text = "compose(): Unsupported blending for pixel formats: dst:yuv420p:tv, overlay:yuv420p:tv"},
        {.dst = AV_PIX_FMT_YUVA420P,
         .overlay = AV_PIX_FMT_YUVA420P,
         .opacity = 1.0,
         .text = "compose(): Unsupported blending for pixel formats: dst:yuva420p:tv, overlay:yuva420p:tv"},
        {.dst = AV_PIX_FMT_RGBA,
         .overlay = AV_PIX_FMT_ARGB,
         .opacity = 1.0,
         .text = "compose(): Unsupported blending for pixel formats: dst:rgba:tv, overlay:argb:tv"},
        {.dst = NVA12,
         .overlay = NVA12,
         .opacity = 1.0,
         .text = "compose(): Unsupported blending for pixel formats: dst:nva12:tv, overlay:nva12:tv"},
        {.dst = NVA12,
         .overlay = AV_PIX_FMT_NV12,
         .opacity = 1.0,
         .text = "compose(): Unsupported blending for pixel formats: dst:nva12:tv, overlay:nv12:tv"},
        // Packed samples with subsampled chroma are not copied.
        {.dst = AV_PIX_FMT_YUYV422,
         .overlay = AV_PIX_FMT_YUYV422,
         .opacity = 1.0,
         .text = "compose(): Unsupported blending for pixel formats: dst:yuyv422:tv, overlay:yuyv422:tv"},
        {.dst = AV_PIX_FMT_YUV420P,
         .overlay = AV_PIX_FMT_YUV420P,
         .opacity = kNan,
         .text = "compose(): Unsupported blending for pixel formats: dst:yuv420p:tv, overlay:yuv420p:tv"},
    };
    for (const Row& row : rows) {
        Picture dst = picture(row.dst, 16, 16);
        const auto before = pixels(dst);
        const Picture overlay = picture(row.overlay, 16, 16);
        EXPECT_THROW_TEXT(std::runtime_error, row.text,
                          compose(dst, overlay, {0, 0}, CheckColorRange::Yes, row.opacity, 1));
        EXPECT_EQ(pixels(dst), before);
        // The view of the overlay is gone.
        EXPECT_TRUE(overlay.editable());
    }
}

TEST_F(Compose, SaysTheRangesOfBothPicturesWhenTheFormatsDoNotFit) {
    Picture dst = picture(AV_PIX_FMT_RGBA, 4, 4, AVCOL_RANGE_JPEG);
    const Picture overlay = picture(AV_PIX_FMT_NV12, 4, 4, AVCOL_RANGE_UNSPECIFIED);
    EXPECT_THROW_TEXT(std::runtime_error,
                      "compose(): Unsupported blending for pixel formats: dst:rgba:pc, overlay:nv12:unknown",
                      compose(dst, overlay, {0, 0}, CheckColorRange::Yes, 1.0, 1));
}

TEST_F(Compose, RefusesPicturesOfDifferentSpecifiedRangesWhenAsked) {
    Picture dst = picture(AV_PIX_FMT_NV12, 16, 16, AVCOL_RANGE_MPEG);
    const Picture overlay = picture(AV_PIX_FMT_NV12, 16, 16, AVCOL_RANGE_JPEG);
    EXPECT_THROW_TEXT(std::runtime_error,
                      "compose(): incompatible color ranges: dst:nv12:tv, overlay:nv12:pc",
                      compose(dst, overlay, {0, 0}, CheckColorRange::Yes, 1.0, 1));
    compose(dst, overlay, {0, 0}, CheckColorRange::No, 1.0, 1);
    EXPECT_EQ(pixels(dst), pixels(overlay));
}

TEST_F(Compose, TakesEveryValueOfTheCheckButZeroAsNo) {
    EXPECT_EQ(static_cast<int>(CheckColorRange::Yes), 0);
    Picture dst = picture(AV_PIX_FMT_NV12, 16, 16, AVCOL_RANGE_MPEG);
    const Picture overlay = picture(AV_PIX_FMT_NV12, 16, 16, AVCOL_RANGE_JPEG);
    EXPECT_NO_THROW(compose(dst, overlay, {0, 0}, static_cast<CheckColorRange>(7), 1.0, 1));
}

TEST_F(Compose, AcceptsAnUnspecifiedRangeOnEitherSide) {
    for (const auto& [dstRange, overlayRange] : {std::pair{AVCOL_RANGE_UNSPECIFIED, AVCOL_RANGE_JPEG},
                                                 std::pair{AVCOL_RANGE_MPEG, AVCOL_RANGE_UNSPECIFIED}}) {
        Picture dst = picture(AV_PIX_FMT_NV12, 16, 16, dstRange);
        const Picture overlay = picture(AV_PIX_FMT_NV12, 16, 16, overlayRange);
        compose(dst, overlay, {0, 0}, CheckColorRange::Yes, 1.0, 1);
        EXPECT_EQ(pixels(dst), pixels(overlay));
        EXPECT_EQ(dst.colorRange(), dstRange);
    }
}

TEST_F(Compose, RefusesADestinationThatIsShared) {
    Picture dst = picture(AV_PIX_FMT_NV12, 16, 16);
    const Picture other = dst;
    const Picture overlay = picture(AV_PIX_FMT_NV12, 16, 16);
    EXPECT_THROW_TEXT(std::runtime_error, "compose: Picture must be editable",
                      compose(dst, overlay, {0, 0}, CheckColorRange::Yes, 1.0, 1));
    EXPECT_THROW_TEXT(std::runtime_error, "compose: Picture must be editable",
                      compose(dst, dst, {0, 0}, CheckColorRange::Yes, 1.0, 1));
}

TEST_F(Compose, RefusesAnEmptyDestination) {
    Picture dst;
    const Picture overlay = picture(AV_PIX_FMT_NV12, 16, 16);
    EXPECT_THROW_TEXT(std::runtime_error, "compose: Picture must be editable",
                      compose(dst, overlay, {0, 0}, CheckColorRange::Yes, 1.0, 1));
}

TEST_F(Compose, DrawsNothingOfAnEmptyOverlay) {
    Picture dst = picture(AV_PIX_FMT_NV12, 16, 16);
    const auto before = pixels(dst);
    compose(dst, Picture(), {0, 0}, CheckColorRange::Yes, 1.0, 1);
    EXPECT_EQ(pixels(dst), before);
}

TEST_F(Compose, ChecksTheRangesBeforeTheDestination) {
    Picture dst = picture(AV_PIX_FMT_NV12, 16, 16, AVCOL_RANGE_MPEG);
    const Picture other = dst;
    const Picture overlay = picture(AV_PIX_FMT_NV12, 16, 16, AVCOL_RANGE_JPEG);
    EXPECT_THROW_TEXT(std::runtime_error,
                      "compose(): incompatible color ranges: dst:nv12:tv, overlay:nv12:pc",
                      compose(dst, overlay, {0, 0}, CheckColorRange::Yes, 1.0, 1));
}

TEST_F(Compose, ReturnsAtOnceWhenTheOpacityIsNothing) {
    Picture dst = picture(AV_PIX_FMT_NV12, 16, 16, AVCOL_RANGE_MPEG);
    const Picture other = dst;
    const Picture overlay = picture(AV_PIX_FMT_YUV420P, 16, 16, AVCOL_RANGE_JPEG);
    for (const double opacity : {0.0, -0.0, -1.0, -kInfinity, 2.2250738585072009e-308}) {
        EXPECT_NO_THROW(compose(dst, overlay, {0, 0}, CheckColorRange::Yes, opacity, 1)) << opacity;
    }
    EXPECT_THROW(compose(dst, overlay, {0, 0}, CheckColorRange::Yes, 2.2250738585072014e-308, 1),
                 std::runtime_error);
}

TEST_F(Compose, ChecksAndThenDrawsNothingWhenTheOpacityIsNotANumber) {
    Picture dst = picture(AV_PIX_FMT_NV12, 16, 16);
    const auto before = pixels(dst);
    const Picture overlay = picture(AV_PIX_FMT_NV12, 16, 16);
    compose(dst, overlay, {0, 0}, CheckColorRange::Yes, kNan, 1);
    EXPECT_EQ(pixels(dst), before);
    const Picture other = dst;
    EXPECT_THROW(compose(dst, overlay, {0, 0}, CheckColorRange::Yes, kNan, 1), std::runtime_error);
}

TEST_F(Compose, TakesAnInfiniteOpacityAsOpaque) {
    Picture dst = picture(AV_PIX_FMT_NV12, 16, 16);
    const Picture overlay = picture(AV_PIX_FMT_NV12, 16, 16);
    compose(dst, overlay, {0, 0}, CheckColorRange::Yes, kInfinity, 1);
    EXPECT_EQ(pixels(dst), pixels(overlay));
}

TEST_F(Compose, DoesNothingWhenNothingShowsWhateverTheFormats) {
    Picture dst = picture(AV_PIX_FMT_RGBA, 16, 16);
    const auto before = pixels(dst);
    const Picture overlay = picture(AV_PIX_FMT_YUV420P, 8, 8);
    for (const Point position :
         {Point{16, 0}, Point{0, 16}, Point{-8, 0}, Point{0, -8}, Point{100, 100}, Point{INT_MIN, 0},
          Point{INT_MAX, INT_MAX}, Point{0, INT_MIN}, Point{INT_MIN, INT_MIN}, Point{INT_MAX, 0}}) {
        EXPECT_NO_THROW(compose(dst, overlay, position, CheckColorRange::Yes, 1.0, 8)) << position;
    }
    EXPECT_EQ(pixels(dst), before);
}

TEST_F(Compose, ChecksTheDestinationAlsoWhenNothingShows) {
    Picture dst = picture(AV_PIX_FMT_RGBA, 16, 16);
    const Picture other = dst;
    const Picture overlay = picture(AV_PIX_FMT_RGBA, 8, 8);
    EXPECT_THROW_TEXT(std::runtime_error, "compose: Picture must be editable",
                      compose(dst, overlay, {16, 0}, CheckColorRange::Yes, 1.0, 1));
}

TEST_F(Compose, LeavesTheLastRowAndColumnOfAnOddOverlay) {
    Picture dst = picture(AV_PIX_FMT_NV12, 8, 8);
    const Picture before = privateCopy(dst);
    const Picture overlay = picture(AV_PIX_FMT_NV12, 5, 5);
    compose(dst, overlay, {0, 0}, CheckColorRange::Yes, 1.0, 1);
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(dst.data()[0][4 * dst.linesize()[0] + i], before.data()[0][4 * before.linesize()[0] + i]);
        EXPECT_EQ(dst.data()[0][i * dst.linesize()[0] + 4], before.data()[0][i * before.linesize()[0] + 4]);
    }
    EXPECT_EQ(dst.data()[0][3 * dst.linesize()[0] + 3], overlay.data()[0][3 * overlay.linesize()[0] + 3]);
}

TEST_F(Compose, DrawsNothingOfAnOverlayOfOneColumnOnSubsampledChroma) {
    Picture dst = picture(AV_PIX_FMT_NV12, 8, 8);
    const auto before = pixels(dst);
    compose(dst, picture(AV_PIX_FMT_NV12, 1, 8), {0, 0}, CheckColorRange::Yes, 1.0, 1);
    EXPECT_EQ(pixels(dst), before);
}

TEST_F(Compose, BlendsJustBelowFullOpacity) {
    Picture dst = picture(AV_PIX_FMT_NV12, 2, 2);
    Picture overlay = picture(AV_PIX_FMT_NV12, 2, 2);
    dst.data()[0][0] = 0;
    overlay.data()[0][0] = 255;
    compose(dst, overlay, {0, 0}, CheckColorRange::Yes, 0.999, 1);
    // 254: (255 * 255) >> 8.
    EXPECT_EQ(dst.data()[0][0], 254);
}

TEST_F(Compose, PassesOnThatTheEnvironmentIsWrongWithNothingDrawn) {
    Picture dst = picture(AV_PIX_FMT_NV12, 16, 16);
    const auto before = pixels(dst);
    const Picture overlay = picture(AV_PIX_FMT_NV12, 16, 16);
    setenv("VDR_ALPHABLEND_NUM_THREADS", "none", 1);
    EXPECT_THROW_TEXT(std::invalid_argument, "stoi",
                      compose(dst, overlay, {0, 0}, CheckColorRange::Yes, 0.5, 1));
    setenv("VDR_ALPHABLEND_NUM_THREADS", "3000000000", 1);
    EXPECT_THROW_TEXT(std::out_of_range, "stoi", compose(dst, overlay, {0, 0}, CheckColorRange::Yes, 0.5, 1));
    EXPECT_EQ(pixels(dst), before);
    // A copy asks for no threads.
    compose(dst, overlay, {0, 0}, CheckColorRange::Yes, 1.0, 1);
    EXPECT_EQ(pixels(dst), pixels(overlay));
}

}  // namespace
}  // namespace vidorra
