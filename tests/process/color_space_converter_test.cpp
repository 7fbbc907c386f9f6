#include "vidorra/process/color_space_converter.h"

#include <gtest/gtest.h>

#include <cstring>

#include "vidorra/core/enum_text.h"
#include "vidorra/picture/default_picture_allocator.h"
#include "vidorra/process/picture_analysis.h"

namespace vidorra {
namespace {

class CountingAllocator : public PictureAllocator {
public:
    Picture allocate(Size size, AVPixelFormat format, AVColorRange range) override {
        ++calls;
        return getDefaultPictureAllocator()->allocate(size, format, range);
    }
    int calls = 0;
};

Picture gray(AVPixelFormat format, AVColorRange range) {
    Picture result(Size{32, 16}, format, range, 32);
    for (std::size_t plane = 0; plane < 4; ++plane) {
        if (result.data()[plane] != nullptr) {
            const int rows = plane == 1 || plane == 2 ? 8 : 16;
            std::memset(result.data()[plane], 128, static_cast<std::size_t>(result.linesize()[plane] * rows));
        }
    }
    return result;
}

TEST(ColorSpaceConverter, BringsPicturesIntoItsFormatAndRangeAtTheirSize) {
    ColorSpaceConverter converter(AV_PIX_FMT_RGB24, AVCOL_RANGE_JPEG);
    for (const AVPixelFormat format : {AV_PIX_FMT_NV12, AV_PIX_FMT_YUVA420P}) {
        const Picture src = gray(format, AVCOL_RANGE_MPEG);
        const Picture result = converter.convert(src);
        EXPECT_EQ(result.frameSize(), (Size{32, 16}));
        EXPECT_EQ(result.pixelFormat(), AV_PIX_FMT_RGB24);
        EXPECT_EQ(result.colorRange(), AVCOL_RANGE_JPEG);
        Scaler scaler;
        EXPECT_TRUE(comparePictures(result, scaler.scale(src, {32, 16}, AV_PIX_FMT_RGB24, AVCOL_RANGE_JPEG),
                                    0, false, nullptr));
    }
}

TEST(ColorSpaceConverter, ConvertsOnceWithAnAllocator) {
    CountingAllocator allocator;
    const Picture src = gray(AV_PIX_FMT_NV12, AVCOL_RANGE_MPEG);
    const Picture result = ColorSpaceConverter::convertTo(&allocator, src, AV_PIX_FMT_RGBA, AVCOL_RANGE_JPEG);
    EXPECT_EQ(allocator.calls, 1);
    EXPECT_EQ(result.pixelFormat(), AV_PIX_FMT_RGBA);
    EXPECT_EQ(result.colorRange(), AVCOL_RANGE_JPEG);
    const Picture onHeap = ColorSpaceConverter::convertTo(src, AV_PIX_FMT_RGBA, AVCOL_RANGE_JPEG);
    EXPECT_EQ(allocator.calls, 1);
    EXPECT_TRUE(comparePictures(result, onHeap, 0, false, nullptr));
    EXPECT_FALSE(ColorSpaceConverter::convertTo(nullptr, src, AV_PIX_FMT_RGBA, AVCOL_RANGE_JPEG).empty());
}

TEST(ColorSpaceConverter, ChoosesTheFormatByAlpha) {
    CountingAllocator allocator;
    const Picture opaque = gray(AV_PIX_FMT_NV12, AVCOL_RANGE_MPEG);
    const Picture withAlpha = gray(AV_PIX_FMT_YUVA420P, AVCOL_RANGE_MPEG);
    const auto convert = [](const Picture& src) {
        return ColorSpaceConverter::convertTo(src, AV_PIX_FMT_RGB24, AV_PIX_FMT_RGBA, AVCOL_RANGE_JPEG)
            .pixelFormat();
    };
    EXPECT_EQ(convert(opaque), AV_PIX_FMT_RGB24);
    EXPECT_EQ(convert(withAlpha), AV_PIX_FMT_RGBA);
    EXPECT_EQ(ColorSpaceConverter::convertTo(&allocator, withAlpha, AV_PIX_FMT_RGB24, AV_PIX_FMT_ARGB,
                                             AVCOL_RANGE_JPEG)
                  .pixelFormat(),
              AV_PIX_FMT_ARGB);
    EXPECT_EQ(ColorSpaceConverter::convertTo(&allocator, opaque, AV_PIX_FMT_BGR24, AV_PIX_FMT_ARGB,
                                             AVCOL_RANGE_JPEG)
                  .pixelFormat(),
              AV_PIX_FMT_BGR24);
    EXPECT_EQ(allocator.calls, 2);
}

TEST(ColorSpaceConverter, GivesThePictureBackWhenItHasTheFormat) {
    ColorSpaceConverter converter(AV_PIX_FMT_NV12, AVCOL_RANGE_MPEG);
    const Picture src = gray(AV_PIX_FMT_NV12, AVCOL_RANGE_MPEG);
    EXPECT_EQ(converter.convert(src).data(), src.data());
}

TEST(ColorSpaceConverter, PassesTheScalersErrorsOn) {
    ColorSpaceConverter converter(AV_PIX_FMT_NV12, AVCOL_RANGE_JPEG);
    EXPECT_THROW((void)converter.convert(gray(AV_PIX_FMT_NV12, AVCOL_RANGE_MPEG)), ScalerUnsupportedError);
    EXPECT_THROW((void)ColorSpaceConverter::convertTo(gray(AV_PIX_FMT_NV12, AVCOL_RANGE_MPEG),
                                                      AV_PIX_FMT_NV12, AVCOL_RANGE_JPEG),
                 ScalerUnsupportedError);
    EXPECT_TRUE(converter.convert(Picture()).empty());
}

}  // namespace
}  // namespace vidorra
