#include <algorithm>
#include <array>
#include <random>
#include <vector>

#include "ffmpeg/pixel_formats.h"

extern "C" {
#include <libavutil/imgutils.h>
#include <libavutil/pixdesc.h>
}

namespace vidorra::ffmpeg_ext {
namespace {

// A picture of random bytes in memory of its own, with bytes around and between the lines that nobody may
// write.
struct Image {
    std::vector<std::uint8_t> memory;
    std::array<std::uint8_t*, 4> planes{};
    std::array<int, 4> linesizes{};
    int size = 0;

    Image(AVPixelFormat format, int width, int height, int align, unsigned seed) {
        constexpr int kGuard = 64;
        size = fillImageArrays(planes.data(), linesizes.data(), nullptr, format, width, height, align);
        memory.resize(static_cast<std::size_t>(std::max(size, 0) + 2 * kGuard));
        std::mt19937 random(seed);
        for (std::uint8_t& byte : memory) {
            byte = static_cast<std::uint8_t>(random());
        }
        fillImageArrays(planes.data(), linesizes.data(), memory.data() + kGuard, format, width, height,
                        align);
    }
    // Planes point into the memory.
    Image(const Image&) = delete;
    Image& operator=(const Image&) = delete;
};

void copy(Image& destination, const Image& source, AVPixelFormat format, int width, int height) {
    copyImage(destination.planes.data(), destination.linesizes.data(), source.planes.data(),
              source.linesizes.data(), format, width, height);
}

void copyPlain(std::uint8_t* to, int toLine, const std::uint8_t* from, int fromLine, int bytes, int lines) {
    for (int line = 0; line < lines; ++line) {
        for (int i = 0; i < bytes; ++i) {
            to[line * toLine + i] = from[line * fromLine + i];
        }
    }
}

void copyPlainNva12(Image& destination, const Image& source, int width, int height) {
    const auto plane = [&](std::size_t i, int bytes, int lines) {
        copyPlain(destination.planes[i], destination.linesizes[i], source.planes[i], source.linesizes[i],
                  bytes, lines);
    };
    plane(0, width, height);
    plane(1, (width + 1) / 2 * 2, (height + 1) / 2);
    plane(3, width, height);
}

struct ImageSize {
    int width;
    int height;
};

TEST(CopyImage, OfNva12CopiesThreePlanesAndNoPadding) {
    for (const ImageSize size : {ImageSize{1, 1}, ImageSize{2, 2}, ImageSize{13, 7}, ImageSize{16, 16},
                                 ImageSize{7, 13}, ImageSize{65, 48}}) {
        for (const auto& [toAlign, fromAlign] :
             {std::pair{1, 1}, std::pair{1, 32}, std::pair{32, 1}, std::pair{64, 16}}) {
            SCOPED_TRACE(testing::Message()
                         << size.width << "x" << size.height << ", " << fromAlign << " to " << toAlign);
            const Image source(kNva12, size.width, size.height, fromAlign, 1);
            Image destination(kNva12, size.width, size.height, toAlign, 2);
            Image expected(kNva12, size.width, size.height, toAlign, 2);
            copyPlainNva12(expected, source, size.width, size.height);
            copy(destination, source, kNva12, size.width, size.height);
            EXPECT_EQ(destination.memory, expected.memory);
        }
    }
}

TEST(CopyImage, OfNva12TakesPlanesFromAnywhere) {
    const Image colour(AV_PIX_FMT_NV12, 13, 7, 16, 1);
    const Image alpha(AV_PIX_FMT_GRAY8, 13, 7, 4, 2);
    const std::array<const std::uint8_t*, 4> from = {colour.planes[0], colour.planes[1], nullptr,
                                                     alpha.planes[0]};
    const std::array<int, 4> lines = {colour.linesizes[0], colour.linesizes[1], 0, alpha.linesizes[0]};
    Image destination(kNva12, 13, 7, 1, 3);
    copyImage(destination.planes.data(), destination.linesizes.data(), from.data(), lines.data(), kNva12, 13,
              7);
    Image expected(kNva12, 13, 7, 1, 3);
    copyPlain(expected.planes[0], 13, colour.planes[0], colour.linesizes[0], 13, 7);
    copyPlain(expected.planes[1], 14, colour.planes[1], colour.linesizes[1], 14, 4);
    copyPlain(expected.planes[3], 13, alpha.planes[0], alpha.linesizes[0], 13, 7);
    EXPECT_EQ(destination.memory, expected.memory);
}

TEST(CopyImage, OfNva12CopiesAlphaOnlyWhereBothSidesHaveIt) {
    for (const bool inSource : {false, true}) {
        Image source(kNva12, 13, 7, 1, 1);
        Image destination(kNva12, 13, 7, 1, 2);
        Image expected(kNva12, 13, 7, 1, 2);
        copyPlain(expected.planes[0], 13, source.planes[0], 13, 13, 7);
        copyPlain(expected.planes[1], 14, source.planes[1], 14, 14, 4);
        (inSource ? destination : source).planes[3] = nullptr;
        copy(destination, source, kNva12, 13, 7);
        EXPECT_EQ(destination.memory, expected.memory) << inSource;
    }
}

TEST(CopyImage, OfEverySoftwareFormatIsThatOfFFmpeg) {
    int count = 0;
    for (const AVPixFmtDescriptor* format = nullptr; (format = av_pix_fmt_desc_next(format)) != nullptr;) {
        const AVPixelFormat value = av_pix_fmt_desc_get_id(format);
        if ((format->flags & AV_PIX_FMT_FLAG_HWACCEL) != 0 || value == kNva12) {
            continue;
        }
        SCOPED_TRACE(format->name);
        for (const ImageSize size : {ImageSize{16, 16}, ImageSize{13, 7}}) {
            Image source(value, size.width, size.height, 16, 1);
            ASSERT_GT(source.size, 0);
            Image destination(value, size.width, size.height, 4, 2);
            Image expected(value, size.width, size.height, 4, 2);
            std::array<const std::uint8_t*, 4> from{};
            std::copy(source.planes.begin(), source.planes.end(), from.begin());
            av_image_copy(expected.planes.data(), expected.linesizes.data(), from.data(),
                          source.linesizes.data(), value, size.width, size.height);
            const std::vector<std::uint8_t> sourceBefore = source.memory;
            copy(destination, source, value, size.width, size.height);
            EXPECT_TRUE(destination.memory == expected.memory);
            EXPECT_TRUE(source.memory == sourceBefore);
            Image untouched(value, size.width, size.height, 4, 2);
            EXPECT_FALSE(destination.memory == untouched.memory);
        }
        ++count;
    }
    EXPECT_GT(count, 150);
}

TEST(CopyImage, OfAPaletteFormatCopiesThePalette) {
    const Image source(AV_PIX_FMT_PAL8, 16, 16, 1, 1);
    Image destination(AV_PIX_FMT_PAL8, 16, 16, 1, 2);
    Image expected(AV_PIX_FMT_PAL8, 16, 16, 1, 2);
    copyPlain(expected.planes[0], 16, source.planes[0], 16, 16, 16);
    copyPlain(expected.planes[1], 1024, source.planes[1], 1024, 1024, 1);
    copy(destination, source, AV_PIX_FMT_PAL8, 16, 16);
    EXPECT_EQ(destination.memory, expected.memory);
}

TEST(CopyImage, OfAPaletteFormatCopiesThePaletteOnlyWhereBothSidesHaveIt) {
    for (const bool inSource : {false, true}) {
        Image source(AV_PIX_FMT_PAL8, 13, 7, 1, 1);
        Image destination(AV_PIX_FMT_PAL8, 13, 7, 1, 2);
        Image expected(AV_PIX_FMT_PAL8, 13, 7, 1, 2);
        copyPlain(expected.planes[0], 13, source.planes[0], 13, 13, 7);
        (inSource ? destination : source).planes[1] = nullptr;
        copy(destination, source, AV_PIX_FMT_PAL8, 13, 7);
        EXPECT_EQ(destination.memory, expected.memory) << inSource;
    }
}

TEST(CopyImage, OfGrayNeedsNoPalette) {
    const Image source(AV_PIX_FMT_GRAY8, 13, 7, 16, 1);
    EXPECT_EQ(source.planes[1], nullptr);
    Image destination(AV_PIX_FMT_GRAY8, 13, 7, 4, 2);
    Image expected(AV_PIX_FMT_GRAY8, 13, 7, 4, 2);
    copyPlain(expected.planes[0], 16, source.planes[0], 16, 13, 7);
    copy(destination, source, AV_PIX_FMT_GRAY8, 13, 7);
    EXPECT_EQ(destination.memory, expected.memory);
}

TEST(CopyImage, OfNoFormatCopiesNothing) {
    for (const int number : {-1, 9999}) {
        const auto format = static_cast<AVPixelFormat>(number);
        const Image source(AV_PIX_FMT_GRAY8, 13, 7, 1, 1);
        Image destination(AV_PIX_FMT_GRAY8, 13, 7, 1, 2);
        const std::vector<std::uint8_t> before = destination.memory;
        copy(destination, source, format, 13, 7);
        EXPECT_EQ(destination.memory, before);
    }
}

TEST(CopyImage, CopiesPartOfALargerPicture) {
    const Image source(kNva12, 32, 16, 1, 1);
    Image destination(kNva12, 32, 16, 1, 2);
    Image expected(kNva12, 32, 16, 1, 2);
    copyPlainNva12(expected, source, 10, 6);
    copy(destination, source, kNva12, 10, 6);
    EXPECT_EQ(destination.memory, expected.memory);
}

}  // namespace
}  // namespace vidorra::ffmpeg_ext
