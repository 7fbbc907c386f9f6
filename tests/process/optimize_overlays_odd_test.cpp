// Overlays at odd positions and with odd sizes in formats with subsampled chroma: the drawn picture stays
// the same.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "vidorra/core/enum_text.h"
#include "vidorra/process/compose.h"
#include "vidorra/process/optimize_overlays.h"

namespace vidorra {
namespace {

using Overlays = std::vector<VideoFrame>;

VideoFrame frame(AVPixelFormat format, Rect rect, std::minstd_rand& random) {
    Picture picture(Size{rect.width, rect.height}, format, AVCOL_RANGE_MPEG, 1);
    std::generate_n(picture.data()[0], picture.bytesInBuffer(0).value(),
                    [&random] { return static_cast<std::uint8_t>(random() >> 8); });
    VideoFrame result(std::move(picture), Timestamp(), Frame::NoFlags);
    result.setPosition({rect.x, rect.y});
    return result;
}

Rect rectOf(const VideoFrame& overlay) {
    const Size size = overlay.picture().frameSize();
    return {overlay.position().x, overlay.position().y, size.width, size.height};
}

std::vector<Rect> rectsOf(const Overlays& overlays) {
    std::vector<Rect> result;
    for (const VideoFrame& overlay : overlays) {
        result.push_back(rectOf(overlay));
    }
    return result;
}

std::int64_t pixelsDrawn(const Overlays& overlays) {
    std::int64_t result = 0;
    for (const Rect& rect : rectsOf(overlays)) {
        result += std::int64_t{rect.width} * rect.height;
    }
    return result;
}

// All bytes of a canvas on which a list has been drawn.
std::vector<std::uint8_t> drawn(const Overlays& overlays, AVPixelFormat format, Size size) {
    Picture canvas(size, format, AVCOL_RANGE_MPEG, 1);
    std::memset(canvas.data()[0], 99, canvas.bytesInBuffer(0).value());
    for (const VideoFrame& overlay : overlays) {
        compose(canvas, overlay.picture(), overlay.position(), CheckColorRange::Yes, 1.0, 1);
    }
    return {canvas.data()[0], canvas.data()[0] + canvas.bytesInBuffer(0).value()};
}

void expectTheSamePicture(const Overlays& before, const Overlays& after, AVPixelFormat format, Size size) {
    if (drawn(before, format, size) == drawn(after, format, size)) {
        return;
    }
    std::string text;
    for (const Rect& rect : rectsOf(before)) {
        text += testing::PrintToString(std::vector<int>{rect.x, rect.y, rect.width, rect.height});
    }
    ADD_FAILURE() << "another picture is drawn of " << text;
}

// What is told of one format: the formats that the frames of a list may have, and the canvas.
struct FormatRow {
    const char* name;
    AVPixelFormat canvas;
    AVPixelFormat withAlpha = AV_PIX_FMT_NONE;
};

class OddOverlays : public testing::TestWithParam<FormatRow> {
protected:
    // Rectangles anywhere, of any size, even outside the canvas.
    Overlays randomFrames(int count, int step) {
        const auto pick = [this, step](int from, int to) {
            return (from + static_cast<int>(mRandom() % static_cast<unsigned>(to - from))) / step * step;
        };
        Overlays overlays;
        for (int i = 0; i < count; ++i) {
            const bool alpha = GetParam().withAlpha != AV_PIX_FMT_NONE && mRandom() % 4 == 0;
            overlays.push_back(frame(alpha ? GetParam().withAlpha : GetParam().canvas,
                                     {pick(-9, 40), pick(-9, 32), pick(step, 24), pick(step, 24)}, mRandom));
        }
        return overlays;
    }

    std::minstd_rand mRandom{4711};
};

INSTANTIATE_TEST_SUITE_P(
    , OddOverlays,
    testing::Values(FormatRow{"Nv12AndNva12", AV_PIX_FMT_NV12, NVA12},
                    FormatRow{"Yuv420p", AV_PIX_FMT_YUV420P}, FormatRow{"Yuv422p", AV_PIX_FMT_YUV422P},
                    FormatRow{"Yuv440p", AV_PIX_FMT_YUV440P}, FormatRow{"Yuv411p", AV_PIX_FMT_YUV411P},
                    FormatRow{"Yuv410p", AV_PIX_FMT_YUV410P}, FormatRow{"Rgb24", AV_PIX_FMT_RGB24}),
    [](const auto& each) { return std::string(each.param.name); });

constexpr Size kCanvas{48, 36};

TEST_P(OddOverlays, DrawTheSamePictureInRandomStacks) {
    std::int64_t before = 0;
    std::int64_t after = 0;
    for (int round = 0; round < 300 && !HasFailure(); ++round) {
        const Overlays overlays = randomFrames(2 + round % 9, 1);
        for (const unsigned threshold : {0U, 1U, 17U, 100U}) {
            Overlays result = overlays;
            optimizeOverlays(result, threshold);
            expectTheSamePicture(overlays, result, GetParam().canvas, kCanvas);
            before += pixelsDrawn(overlays);
            after += pixelsDrawn(result);
        }
    }
    EXPECT_LT(after, before) << "something is cut";
}

// All pairs that two frames of a few pixels can make.
TEST_P(OddOverlays, DrawTheSamePictureInAllPlacesOfTwo) {
    for (int first = 0; first < 4 && !HasFailure(); ++first) {
        for (int width = 1; width < 10; ++width) {
            for (int x = -3; x < 14; ++x) {
                for (int size = 1; size < 10; ++size) {
                    // Both directions at once, with different pairs.
                    const Overlays overlays = {
                        frame(GetParam().canvas, {first, 3 - first, width, 10 - width}, mRandom),
                        frame(GetParam().canvas, {x, 10 - x, size, 10 - size}, mRandom)};
                    Overlays result = overlays;
                    optimizeOverlays(result, 0);
                    expectTheSamePicture(overlays, result, GetParam().canvas, Size{24, 24});
                    const Overlays aligned = {frame(GetParam().canvas, {first, 0, width, 4}, mRandom),
                                              frame(GetParam().canvas, {x, 0, size, 4}, mRandom)};
                    result = aligned;
                    optimizeOverlays(result, 0);
                    expectTheSamePicture(aligned, result, GetParam().canvas, Size{24, 24});
                }
            }
        }
    }
}

TEST_P(OddOverlays, AreWhatSingleStepsGive) {
    for (int round = 0; round < 60; ++round) {
        const Overlays overlays = randomFrames(8, 1);
        Overlays steps = overlays;
        for (Overlays next = handleOneOverlap(steps, 9); !next.empty(); next = handleOneOverlap(steps, 9)) {
            steps = std::move(next);
        }
        Overlays result = overlays;
        optimizeOverlays(result, 9);
        ASSERT_EQ(rectsOf(result), rectsOf(steps));
    }
}

// Whole chroma samples need no rounding: nothing that is hidden is drawn.
TEST_P(OddOverlays, OnTheGridLeaveNoPixelToTwoFrames) {
    for (int round = 0; round < 60; ++round) {
        Overlays overlays = randomFrames(8, 4);
        overlays.erase(std::remove_if(overlays.begin(), overlays.end(),
                                      [](const VideoFrame& each) { return each.picture().hasAlpha(); }),
                       overlays.end());
        optimizeOverlays(overlays, 0);
        const std::vector<Rect> rects = rectsOf(overlays);
        for (std::size_t i = 0; i < rects.size(); ++i) {
            for (std::size_t j = i + 1; j < rects.size(); ++j) {
                const Rect common = rects[i].intersected(rects[j]);
                ASSERT_TRUE(common.width == 0 || common.height == 0) << rects[i] << " and " << rects[j];
            }
        }
    }
}

TEST(OddOverlay, OfALogoOnABackgroundLeavesAHoleOfWholeChromaSamplesInsideOfIt) {
    std::minstd_rand random(1);
    const Overlays overlays = {frame(AV_PIX_FMT_NV12, {0, 0, 1920, 1080}, random),
                               frame(AV_PIX_FMT_NV12, {101, 101, 200, 200}, random)};
    Overlays result = overlays;
    optimizeOverlays(result, 0);
    EXPECT_EQ(rectsOf(result), (std::vector<Rect>{{0, 0, 1920, 102},
                                                  {0, 102, 102, 198},
                                                  {300, 102, 1620, 198},
                                                  {0, 300, 1920, 780},
                                                  {101, 101, 200, 200}}));
    EXPECT_EQ(pixelsDrawn(result), 1920 * 1080 - 198 * 198 + 200 * 200);
    expectTheSamePicture(overlays, result, AV_PIX_FMT_NV12, Size{1920, 1080});
}

TEST(OddOverlay, IsMeasuredByWhatIsCut) {
    std::minstd_rand random(1);
    const Overlays overlays = {frame(AV_PIX_FMT_NV12, {0, 0, 40, 40}, random),
                               frame(AV_PIX_FMT_NV12, {11, 11, 12, 12}, random)};
    EXPECT_EQ(handleOneOverlap(overlays, 101).size(), 0U);
    EXPECT_EQ(handleOneOverlap(overlays, 100).size(), 5U);
}

TEST(OddOverlay, ThatCoversNoWholeChromaSampleCutsNothing) {
    std::minstd_rand random(1);
    const VideoFrame below = frame(AV_PIX_FMT_NV12, {0, 0, 40, 40}, random);
    for (const Rect& rect :
         {Rect{11, 11, 2, 2}, Rect{11, 10, 2, 8}, Rect{10, 10, 1, 8}, Rect{-1, 0, 2, 40}}) {
        EXPECT_TRUE(handleOneOverlap({below, frame(AV_PIX_FMT_NV12, rect, random)}, 0).empty()) << rect;
    }
}

// The edges of a frame count as lines of its grid.
TEST(OddOverlay, HidesAFrameOfOddSizeThatItCovers) {
    std::minstd_rand random(1);
    const Overlays overlays = {frame(AV_PIX_FMT_NV12, {5, 7, 21, 13}, random),
                               frame(AV_PIX_FMT_NV12, {4, 6, 24, 16}, random)};
    Overlays result = overlays;
    optimizeOverlays(result, 0);
    EXPECT_EQ(rectsOf(result), (std::vector<Rect>{{4, 6, 24, 16}}));
}

// compose() draws neither the last row nor the last column of the upper one, and moves it up and left.
TEST(OddOverlay, HidesOnlyWhatItIsDrawnOn) {
    std::minstd_rand random(1);
    const Overlays overlays = {frame(AV_PIX_FMT_NV12, {0, 0, 40, 40}, random),
                               frame(AV_PIX_FMT_NV12, {11, 11, 13, 13}, random)};
    Overlays result = overlays;
    optimizeOverlays(result, 0);
    EXPECT_EQ(rectsOf(result),
              (std::vector<Rect>{
                  {0, 0, 40, 12}, {0, 12, 12, 10}, {22, 12, 18, 10}, {0, 22, 40, 18}, {11, 11, 13, 13}}));
    expectTheSamePicture(overlays, result, AV_PIX_FMT_NV12, Size{40, 40});
}

TEST(OddOverlay, ReachesToTheLimitsOfCoordinates) {
    std::minstd_rand random(1);
    for (const int x : {INT32_MIN, INT32_MIN + 1, INT32_MAX - 41, INT32_MAX - 40, INT32_MAX - 20}) {
        Overlays overlays = {frame(AV_PIX_FMT_NV12, {x, x, 40, 40}, random),
                             frame(AV_PIX_FMT_NV12, {x, x, 40, 40}, random)};
        optimizeOverlays(overlays, 0);
        EXPECT_EQ(rectsOf(overlays), (std::vector<Rect>{{x, x, 40, 40}})) << x;
    }
}

}  // namespace
}  // namespace vidorra
