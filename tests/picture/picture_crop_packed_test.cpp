// Views of pictures in formats where several pixels share their bytes.

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "picture_probe.h"
#include "vidorra/core/enum_text.h"
#include "vidorra/picture/picture.h"
#include "vidorra/picture/video_frame.h"
#include "vidorra/process/color_space_converter.h"

namespace vidorra {
namespace {

using Bytes = std::vector<std::uint8_t>;
using test::noisePicture;
using test::pixelsOf;

// How many pixels of a row make a group, and its bytes.
struct GroupRow {
    const char* name;
    AVPixelFormat format;
    int pixels;
    int bytes;
    // A format of planes to which libswscale converts without a loss, if there is one.
    AVPixelFormat planar = AV_PIX_FMT_NONE;
};

class PictureCropOfGroups : public testing::TestWithParam<GroupRow> {};

INSTANTIATE_TEST_SUITE_P(, PictureCropOfGroups,
                         testing::Values(GroupRow{"Yuyv422", AV_PIX_FMT_YUYV422, 2, 4, AV_PIX_FMT_YUV422P},
                                         GroupRow{"Uyvy422", AV_PIX_FMT_UYVY422, 2, 4, AV_PIX_FMT_YUV422P},
                                         GroupRow{"Yvyu422", AV_PIX_FMT_YVYU422, 2, 4, AV_PIX_FMT_YUV422P},
                                         GroupRow{"Uyyvyy411", AV_PIX_FMT_UYYVYY411, 4, 6},
                                         GroupRow{"Monoblack", AV_PIX_FMT_MONOBLACK, 8, 1, AV_PIX_FMT_GRAY8},
                                         GroupRow{"Monowhite", AV_PIX_FMT_MONOWHITE, 8, 1, AV_PIX_FMT_GRAY8},
                                         GroupRow{"Rgb4", AV_PIX_FMT_RGB4, 2, 1},
                                         GroupRow{"Bgr4", AV_PIX_FMT_BGR4, 2, 1}),
                         [](const auto& each) { return std::string(each.param.name); });

TEST_P(PictureCropOfGroups, MovesByWholeGroups) {
    const GroupRow& row = GetParam();
    const Picture source = noisePicture(Size{48, 9}, row.format);
    for (int x = 0; x < 20; ++x) {
        for (const int width : {1, 7, 8, 13, 28}) {
            const Picture view = source.crop(Rect{x, 3, width, 4});
            const int groups = width / row.pixels;
            ASSERT_EQ(view.frameSize(), (Size{groups * row.pixels, 4})) << x << ", " << width;
            ASSERT_EQ(view.data()[0] - source.data()[0],
                      x / row.pixels * row.bytes + std::ptrdiff_t{3} * source.linesize()[0])
                << x;
        }
    }
}

TEST_P(PictureCropOfGroups, ShowsThePixelsUpToTheEndOfTheLastRow) {
    const GroupRow& row = GetParam();
    const Picture source = noisePicture(Size{48, 9}, row.format, 5, 1);
    const Picture view = source.crop(Rect{24, 1, 24, 8});
    Bytes expected;
    for (int y = 1; y < 9; ++y) {
        const std::uint8_t* pixels = source.data()[0] + static_cast<std::ptrdiff_t>(y) * source.linesize()[0];
        expected.insert(expected.end(), pixels + 24 / row.pixels * row.bytes,
                        pixels + 48 / row.pixels * row.bytes);
    }
    EXPECT_EQ(pixelsOf(view), expected);
}

// Converting a view with libswscale gives a view of the converted whole.
TEST_P(PictureCropOfGroups, ConvertsToTheViewOfTheConvertedPicture) {
    const GroupRow& row = GetParam();
    if (row.planar == AV_PIX_FMT_NONE) {
        // libswscale does not read the format, or not without a loss: the tests above have to do.
        ASSERT_TRUE(row.format == AV_PIX_FMT_UYYVYY411 || row.format == AV_PIX_FMT_RGB4 ||
                    row.format == AV_PIX_FMT_BGR4);
        return;
    }
    const auto planar = [&row](const Picture& picture) {
        return ColorSpaceConverter::convertTo(picture, row.planar, AVCOL_RANGE_UNSPECIFIED);
    };
    const Picture source = noisePicture(Size{64, 16}, row.format);
    const Rect rect{16, 5, 32, 8};
    const Picture converted = planar(source.crop(rect));
    ASSERT_EQ(converted.frameSize(), (Size{32, 8}));
    EXPECT_EQ(pixelsOf(converted), pixelsOf(planar(source).crop(rect)));
}

TEST_P(PictureCropOfGroups, GivesAFrameThePlaceOfItsFirstPixel) {
    const GroupRow& row = GetParam();
    VideoFrame frame(noisePicture(Size{48, 9}, row.format), Timestamp(), Frame::NoFlags);
    frame.setPosition(Point{100, 50});
    const VideoFrame part = frame.crop(Rect{113, 52, 17, 4});
    EXPECT_EQ(part.position(), (Point{100 + 13 / row.pixels * row.pixels, 52}));
    EXPECT_EQ(part.picture().frameSize(), (Size{17 / row.pixels * row.pixels, 4}));
    EXPECT_EQ(part.picture().data(), frame.picture().crop(Rect{13, 2, 17, 4}).data());
}

}  // namespace
}  // namespace vidorra
