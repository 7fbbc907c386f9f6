#include "process/drawing/draw_context.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>
#include <vector>

#include "support/throw_text.h"

namespace vidorra {
namespace {

TEST(InitDrawContext, DrawsAlphaInTheRangeThatIsAskedFor) {
    EXPECT_EQ(initDrawContext(AV_PIX_FMT_YUVA420P, false).flags, 1U);
    EXPECT_EQ(initDrawContext(AV_PIX_FMT_YUVA420P, true).flags, 65537U);
}

TEST(InitDrawContext, KnowsThePlanesOfTheFormat) {
    const FFDrawContext context = initDrawContext(AV_PIX_FMT_NV12, false);
    EXPECT_EQ(context.format, AV_PIX_FMT_NV12);
    EXPECT_EQ(context.nb_planes, 2U);
    EXPECT_EQ(std::vector<int>(context.pixelstep, context.pixelstep + 4), (std::vector<int>{1, 2, 0, 0}));
    EXPECT_EQ(std::vector<int>(context.hsub, context.hsub + 2), (std::vector<int>{0, 1}));
    EXPECT_EQ(std::vector<int>(context.vsub, context.vsub + 2), (std::vector<int>{0, 1}));
    EXPECT_EQ(context.hsub_max, 1);
    EXPECT_EQ(context.vsub_max, 1);
}

TEST(InitDrawContext, NamesTheFormatThatItCannotDrawOn) {
    EXPECT_THROW_TEXT(std::runtime_error, "Drawing is not supported for pal8",
                      (void)initDrawContext(AV_PIX_FMT_PAL8, false));
    EXPECT_THROW_TEXT(std::runtime_error, "Drawing is not supported for vaapi",
                      (void)initDrawContext(AV_PIX_FMT_VAAPI, true));
}

TEST(InitDrawColor, KeepsTheColorAndGivesItsSamples) {
    const FFDrawColor color = initDrawColor(initDrawContext(AV_PIX_FMT_BGRA, true), Color{1, 2, 3, 4});
    EXPECT_EQ(std::vector<int>(color.rgba, color.rgba + 4), (std::vector<int>{1, 2, 3, 4}));
    EXPECT_EQ(std::vector<int>(color.comp[0], color.comp[0] + 4), (std::vector<int>{3, 2, 1, 4}));
}

TEST(InitDrawColor, DependsOnTheRangeOfTheContext) {
    const Color white{255, 255, 255, 255};
    EXPECT_EQ(initDrawColor(initDrawContext(AV_PIX_FMT_NV12, false), white).comp[0][0], 235);
    EXPECT_EQ(initDrawColor(initDrawContext(AV_PIX_FMT_NV12, true), white).comp[0][0], 255);
}

}  // namespace
}  // namespace vidorra
