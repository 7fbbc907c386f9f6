#include "ffmpeg/pixel_formats.h"

#include <array>
#include <memory>
#include <string>

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/imgutils.h>
#include <libavutil/pixdesc.h>
}

namespace vidorra::ffmpeg_ext {
namespace {

static_assert(static_cast<int>(kNva12) == 193);

// Whether the FFmpeg in use has the format itself.
bool isNative() {
    const char* name = av_get_pix_fmt_name(kNva12);
    return name != nullptr && std::string(name) == "nva12";
}

TEST(Nva12, DescriptorIsThatOfNv12WithAFullAlphaPlane) {
    const AVPixFmtDescriptor* nva12 = pixelFormatDescriptor(kNva12);
    const AVPixFmtDescriptor* nv12 = av_pix_fmt_desc_get(AV_PIX_FMT_NV12);
    ASSERT_NE(nva12, nullptr);
    EXPECT_STREQ(nva12->name, "nva12");
    EXPECT_EQ(nva12->nb_components, 4);
    EXPECT_EQ(nva12->log2_chroma_w, 1);
    EXPECT_EQ(nva12->log2_chroma_h, 1);
    EXPECT_EQ(nva12->flags, nv12->flags | AV_PIX_FMT_FLAG_ALPHA);
    // The palette flag, and the flag of early versions for a pseudo palette.
    EXPECT_EQ(nva12->flags & 0x42U, 0U);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(nva12->comp[i].plane, nv12->comp[i].plane) << i;
        EXPECT_EQ(nva12->comp[i].step, nv12->comp[i].step) << i;
        EXPECT_EQ(nva12->comp[i].offset, nv12->comp[i].offset) << i;
        EXPECT_EQ(nva12->comp[i].shift, nv12->comp[i].shift) << i;
        EXPECT_EQ(nva12->comp[i].depth, nv12->comp[i].depth) << i;
    }
    EXPECT_EQ(nva12->comp[3].plane, 3);
    EXPECT_EQ(nva12->comp[3].step, 1);
    EXPECT_EQ(nva12->comp[3].offset, 0);
    EXPECT_EQ(nva12->comp[3].shift, 0);
    EXPECT_EQ(nva12->comp[3].depth, 8);
}

TEST(Nva12, NameGoesBothWays) {
    EXPECT_STREQ(pixelFormatName(kNva12), "nva12");
    EXPECT_EQ(pixelFormatFromName("nva12"), kNva12);
    EXPECT_EQ(pixelFormatFromName("NVA12"), AV_PIX_FMT_NONE);
    EXPECT_EQ(pixelFormatFromName("nva12le"), AV_PIX_FMT_NONE);
}

TEST(Nva12, PixelStepsAreThoseOfItsPlanes) {
    std::array<int, 4> steps = {9, 9, 9, 9};
    fillMaxPixelSteps(steps.data(), kNva12);
    EXPECT_EQ(steps, (std::array<int, 4>{1, 2, 0, 1}));
}

TEST(PixelFormats, FormatThatHasTheNumberOfNva12InFFmpegIsUnknownByName) {
    const char* name = av_get_pix_fmt_name(kNva12);
    if (isNative()) {
        EXPECT_EQ(pixelFormatFromName(name), kNva12);
    } else if (name != nullptr) {
        EXPECT_EQ(pixelFormatFromName(name), AV_PIX_FMT_NONE) << name;
    } else {
        EXPECT_EQ(pixelFormatFromName("y210"), AV_PIX_FMT_NONE);
    }
}

TEST(PixelFormats, EveryOtherFormatIsWhatFFmpegSays) {
    int count = 0;
    for (const AVPixFmtDescriptor* format = nullptr; (format = av_pix_fmt_desc_next(format)) != nullptr;) {
        const AVPixelFormat value = av_pix_fmt_desc_get_id(format);
        if (value == kNva12) {
            continue;
        }
        ++count;
        SCOPED_TRACE(format->name);
        EXPECT_EQ(pixelFormatDescriptor(value), format);
        EXPECT_STREQ(pixelFormatName(value), format->name);
        EXPECT_EQ(pixelFormatFromName(format->name), value);
        std::array<int, 4> steps = {9, 9, 9, 9};
        std::array<int, 4> expected{};
        fillMaxPixelSteps(steps.data(), value);
        av_image_fill_max_pixsteps(expected.data(), nullptr, format);
        EXPECT_EQ(steps, expected);
    }
    EXPECT_GT(count, 150);
}

TEST(PixelFormats, AValueThatIsNoFormatHasNothing) {
    for (const int number : {-1, 9999, -5}) {
        const auto format = static_cast<AVPixelFormat>(number);
        EXPECT_EQ(pixelFormatDescriptor(format), nullptr);
        EXPECT_EQ(pixelFormatName(format), nullptr);
        std::array<int, 4> steps = {9, 9, 9, 9};
        fillMaxPixelSteps(steps.data(), format);
        EXPECT_EQ(steps, (std::array<int, 4>{0, 0, 0, 0}));
    }
}

TEST(PixelFormats, AnUnknownNameIsNone) {
    for (const char* name : {"", "nosuchformat", "YUV420P", "nva", "nva12 ", "193"}) {
        EXPECT_EQ(pixelFormatFromName(name), AV_PIX_FMT_NONE) << name;
    }
}

TEST(StockFormats, AreThoseThatMeanTheSameToFFmpeg) {
    EXPECT_EQ(isStockFormat(kNva12), isNative());
    for (const AVPixelFormat format : {AV_PIX_FMT_YUV420P, AV_PIX_FMT_NV12, AV_PIX_FMT_PAL8}) {
        EXPECT_TRUE(isStockFormat(format)) << format;
    }
    for (const int number : {-1, 9999, -5}) {
        EXPECT_FALSE(isStockFormat(static_cast<AVPixelFormat>(number))) << number;
    }
}

TEST(ForeignNva12, IsAFrameOfThatNumberWithoutAnAlphaPlane) {
    const std::unique_ptr<AVFrame, void (*)(AVFrame*)> frame(av_frame_alloc(),
                                                             [](AVFrame* freed) { av_frame_free(&freed); });
    std::array<std::uint8_t, 64> memory{};
    frame->data[0] = memory.data();
    frame->data[1] = memory.data() + 16;
    frame->format = kNva12;
    EXPECT_EQ(isForeignNva12(*frame), !isNative());
    frame->data[3] = memory.data() + 32;
    EXPECT_FALSE(isForeignNva12(*frame));
    frame->data[3] = nullptr;
    for (const AVPixelFormat format : {AV_PIX_FMT_NV12, AV_PIX_FMT_YUVA420P, AV_PIX_FMT_NONE}) {
        frame->format = format;
        EXPECT_FALSE(isForeignNva12(*frame));
    }
}

}  // namespace
}  // namespace vidorra::ffmpeg_ext
