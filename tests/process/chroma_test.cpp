#include "process/chroma.h"

#include <cmath>
#include <random>

namespace vidorra {
namespace {

// The shift is a floored division and keeping the low byte a remainder, both without shifts or casts.
int plainChroma(int sum) {
    const int floored = sum >= 0 ? sum / 1024 : -((-sum + 1023) / 1024);
    return ((floored - 128) % 256 + 256) % 256;
}

int plainU(const Color& color) {
    return plainChroma(-173 * color.red - 339 * color.green + 512 * color.blue + 511);
}

int plainV(const Color& color) {
    return plainChroma(512 * color.red - 429 * color.green - 83 * color.blue + 511);
}

TEST(ToUv, WeightsAreTheRoundedOnesOfBt601) {
    EXPECT_EQ(std::lrint(172.78976), 173);
    EXPECT_EQ(std::lrint(339.21024), 339);
    EXPECT_EQ(std::lrint(428.73856), 429);
    EXPECT_EQ(std::lrint(83.26144), 83);
    // A grey has no chroma, so the weights of each sum up to nothing.
    EXPECT_EQ(-173 - 339 + 512, 0);
    EXPECT_EQ(512 - 429 - 83, 0);
}

struct ChromaRow {
    const char* name;
    Color color;
    int u;
    int v;
};

TEST(ToUv, OfKnownColours) {
    const ChromaRow rows[] = {
        {"white", {255, 255, 255}, 128, 128}, {"black", {0, 0, 0}, 128, 128},
        {"blue", {0, 0, 255}, 255, 107},      {"red", {255, 0, 0}, 85, 255},
        {"green", {0, 255, 0}, 44, 21},       {"yellow", {255, 255, 0}, 0, 149},
        {"cyan", {0, 255, 255}, 171, 0},      {"magenta", {255, 0, 255}, 212, 235},
    };
    for (const ChromaRow& row : rows) {
        SCOPED_TRACE(row.name);
        const Chroma chroma = toUV(row.color);
        EXPECT_EQ(chroma.u, row.u);
        EXPECT_EQ(chroma.v, row.v);
    }
}

TEST(ToUv, OfEveryGreyIsNeutral) {
    for (int level = 0; level < 256; ++level) {
        const auto grey = static_cast<std::uint8_t>(level);
        const Chroma chroma = toUV(Color(grey, grey, grey));
        EXPECT_EQ(chroma.u, 128) << level;
        EXPECT_EQ(chroma.v, 128) << level;
    }
}

TEST(ToUv, AlphaPlaysNoPart) {
    for (int alpha = 0; alpha < 256; ++alpha) {
        const Chroma chroma = toUV(Color(10, 200, 90, static_cast<std::uint8_t>(alpha)));
        EXPECT_EQ(chroma.u, toUV(Color(10, 200, 90)).u);
        EXPECT_EQ(chroma.v, toUV(Color(10, 200, 90)).v);
    }
}

TEST(ToUv, FollowsItsFormulaOnAnyColour) {
    std::mt19937 random(1);
    for (int i = 0; i < 300000; ++i) {
        const auto byte = [&] { return static_cast<std::uint8_t>(random()); };
        const Color color(byte(), byte(), byte(), byte());
        const Chroma chroma = toUV(color);
        ASSERT_EQ(chroma.u, plainU(color))
            << int{color.red} << " " << int{color.green} << " " << int{color.blue};
        ASSERT_EQ(chroma.v, plainV(color))
            << int{color.red} << " " << int{color.green} << " " << int{color.blue};
    }
}

TEST(ToUv, FollowsItsFormulaOnTheEdgesOfTheCube) {
    constexpr int kLevels[] = {0, 1, 2, 127, 128, 253, 254, 255};
    for (const int red : kLevels) {
        for (const int green : kLevels) {
            for (const int blue : kLevels) {
                const Color color(static_cast<std::uint8_t>(red), static_cast<std::uint8_t>(green),
                                  static_cast<std::uint8_t>(blue));
                EXPECT_EQ(toUV(color).u, plainU(color)) << red << " " << green << " " << blue;
                EXPECT_EQ(toUV(color).v, plainV(color)) << red << " " << green << " " << blue;
            }
        }
    }
}

}  // namespace
}  // namespace vidorra
