// The composition of a list against one call of compose() for each overlay.

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/throw_text.h"
#include "vidorra/core/enum_text.h"
#include "vidorra/process/compose.h"

namespace vidorra {
namespace {

// A destination's format and those of its overlays. The sizes make it more than one band.
struct ListRow {
    const char* name;
    AVPixelFormat dst;
    std::vector<AVPixelFormat> overlays;
    Size size;
};

const ListRow kRows[] = {
    {.name = "Nv12", .dst = AV_PIX_FMT_NV12, .overlays = {AV_PIX_FMT_NV12, NVA12}, .size = {8191, 71}},
    {.name = "Rgba", .dst = AV_PIX_FMT_RGBA, .overlays = {AV_PIX_FMT_RGBA}, .size = {2200, 70}},
    {.name = "Argb", .dst = AV_PIX_FMT_ARGB, .overlays = {AV_PIX_FMT_ARGB}, .size = {2200, 70}},
    {.name = "Rgb24", .dst = AV_PIX_FMT_RGB24, .overlays = {AV_PIX_FMT_RGB24}, .size = {3001, 71}},
    {.name = "Bgr24", .dst = AV_PIX_FMT_BGR24, .overlays = {AV_PIX_FMT_BGR24}, .size = {3000, 67}},
    {.name = "Yuv420p", .dst = AV_PIX_FMT_YUV420P, .overlays = {AV_PIX_FMT_YUV420P}, .size = {8000, 75}},
    {.name = "Yuv410p", .dst = AV_PIX_FMT_YUV410P, .overlays = {AV_PIX_FMT_YUV410P}, .size = {8000, 75}},
};

class ComposeList : public testing::TestWithParam<ListRow> {
protected:
    Picture picture(AVPixelFormat format, Size size) {
        Picture result(size, format, AVCOL_RANGE_MPEG, 16);
        for (std::size_t plane = 0; plane < 4; ++plane) {
            for (std::ptrdiff_t i = 0; i < bytesOf(result, plane); ++i) {
                result.data()[plane][i] = static_cast<std::uint8_t>(mRandom());
            }
        }
        return result;
    }

    // The bytes of a plane, with what lies between its rows.
    static std::ptrdiff_t bytesOf(const Picture& picture, std::size_t plane) {
        if (picture.data()[plane] == nullptr) {
            return 0;
        }
        const int height = picture.frameSize().height;
        const bool chroma = plane == 1 || plane == 2;
        const int part = picture.pixelFormat() == AV_PIX_FMT_YUV410P ? 4 : 2;
        const std::ptrdiff_t rows = chroma ? (height + part - 1) / part : height;
        return rows * picture.linesize()[plane];
    }

    static std::vector<std::uint8_t> bytes(const Picture& picture) {
        std::vector<std::uint8_t> result;
        for (std::size_t plane = 0; plane < 4; ++plane) {
            const std::uint8_t* begin = picture.data()[plane];
            result.insert(result.end(), begin, begin + bytesOf(picture, plane));
        }
        return result;
    }

    // With what lies between the rows.
    static Picture copyOf(const Picture& picture) {
        Picture result(picture.frameSize(), picture.pixelFormat(), picture.colorRange(), 16);
        for (std::size_t plane = 0; plane < 4; ++plane) {
            std::copy_n(picture.data()[plane], bytesOf(picture, plane), result.data()[plane]);
        }
        return result;
    }

    int upTo(int largest) { return static_cast<int>(mRandom() % static_cast<unsigned>(largest + 1)); }

    // Anywhere on the destination, across its edges or outside of it.
    Overlay overlay(const ListRow& row) {
        const double opacities[] = {1.0,   1.0, 0.5,  0.004,
                                    0.001, 0.0, -1.0, std::numeric_limits<double>::quiet_NaN()};
        const AVPixelFormat format = row.overlays[mRandom() % row.overlays.size()];
        const bool copiesOnly = format == AV_PIX_FMT_YUV420P || format == AV_PIX_FMT_YUV410P;
        const Size size{1 + upTo(row.size.width * 5 / 4), 1 + upTo(row.size.height * 5 / 4)};
        return {picture(format, size),
                Point{upTo(row.size.width * 5 / 4) - row.size.width / 4,
                      upTo(row.size.height * 5 / 4) - row.size.height / 4},
                copiesOnly ? 1.0 : opacities[mRandom() % std::size(opacities)]};
    }

    std::mt19937 mRandom{31};
};

INSTANTIATE_TEST_SUITE_P(Formats, ComposeList, testing::ValuesIn(kRows),
                         [](const auto& each) { return std::string(each.param.name); });

TEST_P(ComposeList, GivesTheBytesOfOneCallForEachOverlay) {
    for (int round = 0; round < 12; ++round) {
        Picture expected = picture(GetParam().dst, GetParam().size);
        std::vector<Overlay> overlays;
        for (int i = upTo(6); i >= 0; --i) {
            overlays.push_back(overlay(GetParam()));
        }
        const Picture before = copyOf(expected);
        for (const Overlay& each : overlays) {
            compose(expected, each.picture, each.position, CheckColorRange::Yes, each.opacity, 1);
        }
        for (const int threads : {1, 2, 5}) {
            Picture actual = copyOf(before);
            compose(actual, overlays, CheckColorRange::Yes, threads);
            ASSERT_TRUE(bytes(actual) == bytes(expected)) << "round " << round << ", threads " << threads;
        }
    }
}

TEST_P(ComposeList, LeavesTheDestinationWhenThereIsNothingToDraw) {
    Picture dst = picture(GetParam().dst, GetParam().size);
    const auto before = bytes(dst);
    compose(dst, {}, CheckColorRange::Yes, 2);
    compose(dst, {{dst, Point{0, 0}, 0.0}}, CheckColorRange::Yes, 2);
    EXPECT_EQ(bytes(dst), before);
}

// A picture whose pixels nobody can read.
class UnreadablePicture {
public:
    UnreadablePicture(AVPixelFormat format, Size size, int bytesPerPixel)
        : mSize(std::size_t{4} * 4096 * 4096),
          mMemory(mmap(nullptr, mSize, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)) {
        if (mMemory == MAP_FAILED) {
            throw std::runtime_error("mmap");
        }
        auto* bytes = static_cast<std::uint8_t*>(mMemory);
        std::uint8_t* planes[] = {bytes, bytes + mSize / 2, nullptr, nullptr};
        const int linesize[] = {bytesPerPixel * size.width, size.width, 0, 0};
        mPicture = Picture(MemBuffer(1, true), size, planes, linesize, format, AVCOL_RANGE_MPEG);
    }
    UnreadablePicture(const UnreadablePicture&) = delete;
    UnreadablePicture& operator=(const UnreadablePicture&) = delete;
    ~UnreadablePicture() { munmap(mMemory, mSize); }

    const Picture& picture() const { return mPicture; }

private:
    std::size_t mSize;
    void* mMemory;
    Picture mPicture;
};

TEST(ComposeOverlays, ReadNothingOfWhatLaterOpaqueOnesHide) {
    const UnreadablePicture hidden(AV_PIX_FMT_NV12, {640, 360}, 1);
    Picture dst(Size{1280, 720}, AV_PIX_FMT_NV12, AVCOL_RANGE_MPEG, 16);
    const Picture left(Size{320, 400}, AV_PIX_FMT_NV12, AVCOL_RANGE_MPEG, 16);
    const Picture right(Size{400, 360}, AV_PIX_FMT_NV12, AVCOL_RANGE_MPEG, 16);
    // Only both together hide it, copied or blended.
    for (const double opacity : {0.5, 1.0}) {
        compose(
            dst,
            {{hidden.picture(), Point{100, 50}, opacity}, {left, Point{100, 40}}, {right, Point{420, 50}}},
            CheckColorRange::Yes, 2);
    }
}

TEST(ComposeOverlays, DieOfUnreadablePixelsThatShow) {
    // What the test above would look like if the pixels were read.
    const UnreadablePicture hidden(AV_PIX_FMT_NV12, {640, 360}, 1);
    Picture dst(Size{1280, 720}, AV_PIX_FMT_NV12, AVCOL_RANGE_MPEG, 16);
    EXPECT_DEATH(compose(dst, {{hidden.picture(), Point{100, 50}, 0.5}}, CheckColorRange::Yes, 1), "");
}

TEST(ComposeOverlays, AreCheckedBeforeTheFirstIsDrawn) {
    Picture dst(Size{64, 64}, AV_PIX_FMT_RGB24, AVCOL_RANGE_MPEG, 16);
    std::fill_n(dst.data()[0], 64 * dst.linesize()[0], std::uint8_t{7});
    Picture first(Size{64, 64}, AV_PIX_FMT_RGB24, AVCOL_RANGE_MPEG, 16);
    std::fill_n(first.data()[0], 64 * first.linesize()[0], std::uint8_t{200});
    const Picture otherRange(Size{64, 64}, AV_PIX_FMT_RGB24, AVCOL_RANGE_JPEG, 16);
    const Picture otherFormat(Size{64, 64}, AV_PIX_FMT_NV12, AVCOL_RANGE_MPEG, 16);
    EXPECT_THROW_TEXT(
        std::runtime_error, "compose(): incompatible color ranges: dst:rgb24:tv, overlay:rgb24:pc",
        compose(dst, {{first, Point{0, 0}}, {otherRange, Point{0, 0}}}, CheckColorRange::Yes, 1));
    EXPECT_THROW_TEXT(
        std::runtime_error,
        "compose(): Unsupported blending for pixel formats: dst:rgb24:tv, overlay:nv12:tv",
        compose(dst, {{first, Point{0, 0}}, {otherFormat, Point{0, 0}}}, CheckColorRange::Yes, 1));
    const Picture shared = dst;
    EXPECT_THROW_TEXT(std::runtime_error, "compose: Picture must be editable",
                      compose(dst, {{first, Point{0, 0}}}, CheckColorRange::Yes, 1));
    for (int i = 0; i < 64 * dst.linesize()[0]; ++i) {
        ASSERT_EQ(dst.data()[0][i], 7) << i;
    }
}

TEST(ComposeOverlays, AreAtFullOpacityUnlessToldOtherwise) {
    Picture dst(Size{16, 16}, AV_PIX_FMT_RGB24, AVCOL_RANGE_MPEG, 16);
    std::fill_n(dst.data()[0], 16 * dst.linesize()[0], std::uint8_t{7});
    Picture overlay(Size{16, 16}, AV_PIX_FMT_RGB24, AVCOL_RANGE_MPEG, 16);
    std::fill_n(overlay.data()[0], 16 * overlay.linesize()[0], std::uint8_t{200});
    compose(dst, {{overlay, Point{0, 0}}}, CheckColorRange::Yes, 1);
    EXPECT_EQ(dst.data()[0][0], 200);
}

}  // namespace
}  // namespace vidorra
