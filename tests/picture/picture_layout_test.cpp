// Where the planes are in new memory, and what a private copy holds.

#include <gtest/gtest.h>

#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "picture_probe.h"
#include "support/throw_text.h"
#include "vidorra/core/enum_text.h"
#include "vidorra/core/ffmpeg_error.h"
#include "vidorra/picture/picture.h"

extern "C" {
#include <libavutil/imgutils.h>
#include <libavutil/pixdesc.h>
}

namespace vidorra {
namespace {

using test::bufferCount;
using test::ffmpegErrorText;
using test::noisePicture;
using test::pixelsOf;
using test::planeShapes;
using test::slotsOf;

constexpr int kSpareBytes = 32;
constexpr int kAlignments[] = {1, 16, 32, 64};
constexpr Size kSizes[] = {{1, 1}, {2, 2}, {3, 5}, {16, 16}, {33, 17}, {65, 31}, {128, 2}};

// The layout of a picture, as distances from the start of its memory; -1 is a plane that is absent.
struct Layout {
    int size = 0;
    std::array<std::ptrdiff_t, 4> offsets = {-1, -1, -1, -1};
    std::array<int, 4> linesizes = {};
};

int roundUp(int value, int alignment) {
    return (value + alignment - 1) / alignment * alignment;
}

Layout nva12Layout(Size size, int alignment) {
    const int halfWidth = (size.width + 1) / 2;
    const int halfHeight = (size.height + 1) / 2;
    Layout layout;
    layout.linesizes = {roundUp(size.width, alignment), roundUp(halfWidth * 2, alignment), 0,
                        roundUp(size.width, alignment)};
    layout.offsets[0] = 0;
    layout.offsets[1] = layout.linesizes[0] * size.height;
    layout.offsets[3] = layout.offsets[1] + layout.linesizes[1] * halfHeight;
    layout.size = static_cast<int>(layout.offsets[3]) + layout.linesizes[3] * size.height;
    return layout;
}

// FFmpeg's layout of a format, or the negative code with which it refuses. Some versions add a palette to
// formats that have none.
Layout ffmpegLayout(AVPixelFormat format, Size size, int alignment) {
    static std::uint8_t start[1];
    std::uint8_t* data[4] = {};
    int linesizes[4] = {};
    Layout layout;
    layout.size = av_image_fill_arrays(data, linesizes, start, format, size.width, size.height, alignment);
    if (layout.size < 0) {
        return layout;
    }
    const int planes =
        (av_pix_fmt_desc_get(format)->flags & AV_PIX_FMT_FLAG_PAL) != 0 ? 2 : av_pix_fmt_count_planes(format);
    for (int i = 0; i < planes; ++i) {
        layout.linesizes[i] = linesizes[i];
        layout.offsets[i] = data[i] == nullptr ? -1 : data[i] - start;
    }
    return layout;
}

std::vector<AVPixelFormat> softwareFormats() {
    std::vector<AVPixelFormat> formats;
    for (const AVPixFmtDescriptor* descriptor = av_pix_fmt_desc_next(nullptr); descriptor != nullptr;
         descriptor = av_pix_fmt_desc_next(descriptor)) {
        const AVPixelFormat format = av_pix_fmt_desc_get_id(descriptor);
        if ((descriptor->flags & AV_PIX_FMT_FLAG_HWACCEL) == 0 && format != NVA12) {
            formats.push_back(format);
        }
    }
    return formats;
}

void expectLayout(Picture& picture, const Layout& layout) {
    const auto slots = slotsOf(picture);
    ASSERT_EQ(bufferCount(picture), 1);
    EXPECT_EQ(slots[0].size, static_cast<std::size_t>(layout.size) + kSpareBytes);
    for (std::size_t plane = 0; plane < 4; ++plane) {
        SCOPED_TRACE(testing::Message() << "plane " << plane);
        EXPECT_EQ(picture.linesize()[plane], layout.linesizes[plane]);
        EXPECT_EQ(picture.data()[plane] == nullptr ? -1 : picture.data()[plane] - slots[0].data,
                  layout.offsets[plane]);
    }
    ASSERT_TRUE(picture.editable());
    // The memory is accessible up to its last byte.
    std::memset(picture.data()[0], 0, slots[0].size);
}

TEST(PictureLayout, IsFFmpegsForEachSoftwareFormatAndAlignment) {
    int laidOut = 0;
    for (const AVPixelFormat format : softwareFormats()) {
        for (const int alignment : kAlignments) {
            for (const Size size : kSizes) {
                SCOPED_TRACE(testing::Message() << format << " " << size << " alignment " << alignment);
                const Layout layout = ffmpegLayout(format, size, alignment);
                if (layout.size < 0) {
                    EXPECT_THROW_TEXT(FFmpegError,
                                      ffmpegErrorText("Failed to get size of image: ", layout.size),
                                      Picture(size, format, AVCOL_RANGE_MPEG, alignment));
                    continue;
                }
                Picture picture(size, format, AVCOL_RANGE_MPEG, alignment);
                expectLayout(picture, layout);
                ++laidOut;
            }
        }
    }
    EXPECT_GT(laidOut, 100 * 28);
}

TEST(PictureLayout, OfNva12PutsAlphaBehindTheColour) {
    for (const int alignment : kAlignments) {
        for (const Size size : kSizes) {
            SCOPED_TRACE(testing::Message() << size << " alignment " << alignment);
            Picture picture(size, NVA12, AVCOL_RANGE_MPEG, alignment);
            expectLayout(picture, nva12Layout(size, alignment));
        }
    }
}

TEST(PictureLayout, AllocationOfAPictureWithMemoryLaysItOutAnew) {
    Picture picture = noisePicture(Size{33, 17}, AV_PIX_FMT_YUV420P, 1, 1);
    picture.allocBuffer(64);
    expectLayout(picture, ffmpegLayout(AV_PIX_FMT_YUV420P, Size{33, 17}, 64));
}

TEST(PictureLayout, AllocationAnewLeavesOtherHoldersAlone) {
    Picture picture = noisePicture(Size{33, 17}, AV_PIX_FMT_YUV420P, 1, 1);
    const Picture other(picture);
    const std::vector<std::uint8_t> pixels = pixelsOf(other);
    picture.allocBuffer(64);
    EXPECT_TRUE(picture.editable());
    EXPECT_TRUE(other.editable());
    test::fillWithNoise(picture, 2);
    EXPECT_EQ(pixelsOf(other), pixels);
}

TEST(PictureLayout, AFormatThatIsNoneIsRefused) {
    for (const AVPixelFormat format : {AV_PIX_FMT_NONE, AV_PIX_FMT_NB}) {
        EXPECT_THROW_TEXT(FFmpegError, ffmpegErrorText("Failed to get size of image: ", AVERROR(EINVAL)),
                          Picture(Size{8, 8}, format, AVCOL_RANGE_MPEG, 1));
    }
    try {
        const Picture picture(Size{8, 8}, AV_PIX_FMT_NONE, AVCOL_RANGE_MPEG, 1);
        FAIL();
    } catch (const FFmpegError& error) {
        EXPECT_EQ(error.error(), AvError::InvalidArgument);
        EXPECT_STREQ(error.what(), "Failed to get size of image:  FFmpeg AV_ERROR: #-22: Invalid argument");
    }
}

// Planes with other line sizes than any alignment gives.
struct RawPlanes {
    explicit RawPlanes(const Picture& picture, bool bottomUp = false) {
        const auto shapes = planeShapes(picture.pixelFormat(), picture.frameSize());
        for (std::size_t plane = 0; plane < 4; ++plane) {
            const int stride = shapes[plane].bytes + 5;
            memory[plane].assign(static_cast<std::size_t>(stride) * shapes[plane].rows, 0xee);
            if (shapes[plane].rows == 0) {
                continue;
            }
            const int last = shapes[plane].rows - 1;
            for (int row = 0; row <= last; ++row) {
                std::memcpy(
                    memory[plane].data() +
                        static_cast<std::ptrdiff_t>(stride) * (bottomUp ? last - row : row),
                    picture.data()[plane] + static_cast<std::ptrdiff_t>(row) * picture.linesize()[plane],
                    shapes[plane].bytes);
            }
            data[plane] = memory[plane].data() + (bottomUp ? static_cast<std::ptrdiff_t>(stride) * last : 0);
            linesizes[plane] = bottomUp ? -stride : stride;
        }
    }

    std::array<std::vector<std::uint8_t>, 4> memory;
    const std::uint8_t* data[4] = {};
    int linesizes[4] = {};
};

TEST(PictureCopy, OfPlanesHoldsTheirPixelsInEachSoftwareFormat) {
    std::vector<AVPixelFormat> formats = softwareFormats();
    formats.push_back(NVA12);
    const Size size{33, 17};
    for (const AVPixelFormat format : formats) {
        SCOPED_TRACE(testing::Message() << format);
        const bool refused = format != NVA12 && ffmpegLayout(format, size, 32).size < 0;
        if (refused) {
            continue;
        }
        const Picture original = noisePicture(size, format);
        RawPlanes raw(original);
        const Picture copy(size, raw.data, raw.linesizes, format, AVCOL_RANGE_JPEG, 16);
        EXPECT_EQ(copy.colorRange(), AVCOL_RANGE_JPEG);
        EXPECT_TRUE(copy.editable());
        for (auto& plane : raw.memory) {
            std::fill(plane.begin(), plane.end(), std::uint8_t{0});
        }
        EXPECT_EQ(pixelsOf(copy), pixelsOf(original));
    }
}

TEST(PictureCopy, HasTheLayoutOfItsAlignmentNotOfItsSource) {
    const Picture original = noisePicture(Size{33, 17}, AV_PIX_FMT_YUV420P);
    const RawPlanes raw(original);
    for (const int alignment : kAlignments) {
        SCOPED_TRACE(alignment);
        Picture copy(Size{33, 17}, raw.data, raw.linesizes, AV_PIX_FMT_YUV420P, AVCOL_RANGE_MPEG, alignment);
        expectLayout(copy, ffmpegLayout(AV_PIX_FMT_YUV420P, Size{33, 17}, alignment));
    }
}

TEST(PictureCopy, OfPlanesThatStandBottomUpIsTopDown) {
    for (const AVPixelFormat format : {AV_PIX_FMT_YUV420P, AV_PIX_FMT_RGBA, NVA12}) {
        SCOPED_TRACE(testing::Message() << format);
        const Picture original = noisePicture(Size{33, 17}, format);
        const RawPlanes raw(original, true);
        const Picture copy(Size{33, 17}, raw.data, raw.linesizes, format, AVCOL_RANGE_MPEG, 1);
        EXPECT_GT(copy.linesize()[0], 0);
        EXPECT_EQ(pixelsOf(copy), pixelsOf(original));
    }
}

TEST(PictureCopy, WithoutPixelsReadsNoPlane) {
    const std::uint8_t* planes[4] = {};
    const int linesizes[4] = {};
    const Picture copy(Size{0, 16}, planes, linesizes, AV_PIX_FMT_YUV420P, AVCOL_RANGE_MPEG, 1);
    EXPECT_TRUE(copy.empty());
    EXPECT_EQ(copy.frameSize(), (Size{0, 16}));
}

TEST(PictureLayout, AnAlignmentBelowOneIsRefused) {
    for (const AVPixelFormat format : {AV_PIX_FMT_YUV420P, NVA12}) {
        for (const int alignment : {0, -1, -4, INT32_MIN}) {
            EXPECT_THROW_TEXT(FFmpegError, ffmpegErrorText("Failed to get size of image: ", AVERROR(EINVAL)),
                              Picture(Size{8, 8}, format, AVCOL_RANGE_MPEG, alignment));
        }
    }
}

}  // namespace
}  // namespace vidorra
