#include "z5_hw_accel/composer.h"

#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <random>
#include <stdexcept>
#include <string>

#include "process/alphablend/equations.h"
#include "support/blend_reference.h"
#include "support/throw_text.h"

namespace z5::hw::accel {
namespace {

using vidorra::alphablend::blend256;
using vidorra::alphablend::faded;
using vidorra::test::Raster;
using vidorra::test::RasterFormat;

// Nothing is sent to the device, so any number will do.
const Composer kComposer(-1);

// One line size for all planes, so the padding makes up for the odd pixel that chroma has more.
Nv12Buffer<void> destination(Raster& raster) {
    return {raster.plane(0),    raster.plane(1), raster.plane(3),
            raster.linesize(0), raster.width(),  raster.height()};
}

Nv12Buffer<const void> overlay(const Raster& raster) {
    return {raster.plane(0),    raster.plane(1), raster.plane(3),
            raster.linesize(0), raster.width(),  raster.height()};
}

class ComposerProcess : public testing::Test {
protected:
    // Sizes are even, so that all planes have one line size.
    Raster raster(RasterFormat format, int width, int height, int padding = 0) {
        Raster result(format, width, height, padding, 64, mRandom);
        if (format == RasterFormat::Nva12) {
            result.addRuns(3, 1, 0, mRandom);
        }
        return result;
    }

    int random(int from, int to) {
        return from + static_cast<int>(mRandom() % static_cast<unsigned>(to - from + 1));
    }

    std::mt19937 mRandom{20};
};

TEST_F(ComposerProcess, BlendsAsTheReferenceDoesInTheAreaAndNowhereElse) {
    for (int round = 0; round < 400; ++round) {
        const RasterFormat format = round % 2 == 0 ? RasterFormat::Nv12 : RasterFormat::Nva12;
        const int width = 2 * random(1, 50);
        const int height = 2 * random(1, 12);
        const Raster over = raster(format, width, height, random(0, 20));
        Raster below =
            raster(RasterFormat::Nv12, width + 2 * random(0, 10), height + 2 * random(0, 10), random(0, 20));
        const auto alpha = static_cast<unsigned char>(round % 5 == 0 ? 255 : mRandom());
        Raster expected = below;
        // The middle of the byte's range of opacities, out of reach of rounding.
        referenceBlend(format, expected, over, 0, 0, (alpha + 0.5) / 255.0);
        kComposer.process(destination(below), overlay(over), width, height, alpha, 0);
        ASSERT_EQ(below.difference(expected), "")
            << width << "x" << height << ", alpha " << int{alpha} << ", round " << round;
    }
}

TEST_F(ComposerProcess, TakesNoMoreOfTheOverlayThanTheArea) {
    const Raster over = raster(RasterFormat::Nva12, 40, 20);
    Raster below = raster(RasterFormat::Nv12, 40, 20);
    Raster expected = below;
    for (int y = 0; y < 6; ++y) {
        for (int x = 0; x < 10; ++x) {
            expected.at(0, x, y) =
                blend256(over.at(0, x, y), below.at(0, x, y), over.at(3, x, y), over.at(3, x, y));
        }
    }
    for (int y = 0; y < 3; ++y) {
        for (int x = 0; x < 10; ++x) {
            const int first = x & ~1;
            const unsigned alpha = (over.at(3, first, 2 * y) + over.at(3, first + 1, 2 * y) +
                                    over.at(3, first, 2 * y + 1) + over.at(3, first + 1, 2 * y + 1)) /
                                   4U;
            expected.at(1, x, y) = blend256(over.at(1, x, y), below.at(1, x, y), alpha, alpha);
        }
    }
    kComposer.process(destination(below), overlay(over), 10, 6, 255, 0);
    EXPECT_EQ(below.difference(expected), "");
}

// Every pair of samples: one of them along the rows, the other down the columns.
struct SamplePairs {
    explicit SamplePairs(std::mt19937& random)
        : below(RasterFormat::Nv12, 256, 256, 0, 0, random),
          over(RasterFormat::Nva12, 256, 256, 0, 0, random) {
        for (int y = 0; y < 256; ++y) {
            for (int x = 0; x < 256; ++x) {
                below.at(0, x, y) = static_cast<std::uint8_t>(y);
                over.at(0, x, y) = static_cast<std::uint8_t>(x);
            }
        }
        // Chroma has half as many rows, so only every second value is below.
        for (int y = 0; y < 128; ++y) {
            for (int x = 0; x < 256; ++x) {
                below.at(1, x, y) = static_cast<std::uint8_t>(2 * y);
                over.at(1, x, y) = static_cast<std::uint8_t>(x);
            }
        }
    }

    void setAlpha(int alpha) {
        for (int y = 0; y < 256; ++y) {
            for (int x = 0; x < 256; ++x) {
                over.at(3, x, y) = static_cast<std::uint8_t>(alpha);
            }
        }
    }

    Raster below;
    Raster over;
};

// The first sample that differs from the result of these weights, or an empty text.
std::string wrongSample(const Raster& result, unsigned overlayWeight, unsigned belowWeight) {
    for (int y = 0; y < 256; ++y) {
        for (unsigned x = 0; x < 256; ++x) {
            const int column = static_cast<int>(x);
            if (result.at(0, column, y) !=
                blend256(x, static_cast<unsigned>(y), overlayWeight, belowWeight)) {
                return "luma " + std::to_string(x) + " over " + std::to_string(y);
            }
            if (y < 128 && result.at(1, column, y) !=
                               blend256(x, 2U * static_cast<unsigned>(y), overlayWeight, belowWeight)) {
                return "chroma " + std::to_string(x) + " over " + std::to_string(2 * y);
            }
        }
    }
    return {};
}

TEST_F(ComposerProcess, BlendsEveryPairOfSamplesAtEveryOpacityAsTheSoftwareDoes) {
    const SamplePairs pairs(mRandom);
    for (unsigned opacity = 1; opacity <= 255; ++opacity) {
        Raster below = pairs.below;
        Nv12Buffer<const void> over = overlay(pairs.over);
        over.alpha = nullptr;
        kComposer.process(destination(below), std::move(over), 256, 256, static_cast<unsigned char>(opacity),
                          0);
        ASSERT_EQ(wrongSample(below, opacity, opacity), "") << "opacity " << opacity;
    }
}

TEST_F(ComposerProcess, BlendsEveryPairOfSamplesAtEveryAlphaAsTheSoftwareDoes) {
    SamplePairs pairs(mRandom);
    for (unsigned alpha = 0; alpha <= 255; ++alpha) {
        pairs.setAlpha(static_cast<int>(alpha));
        const unsigned opacity = alpha % 2 == 0 ? 255 : 1 + (37 * alpha) % 255;
        Raster below = pairs.below;
        kComposer.process(destination(below), overlay(pairs.over), 256, 256,
                          static_cast<unsigned char>(opacity), 0);
        ASSERT_EQ(wrongSample(below, faded(alpha, opacity), alpha), "")
            << "alpha " << alpha << ", opacity " << opacity;
    }
}

TEST_F(ComposerProcess, FadesEveryAlphaAtEveryOpacityAsTheSoftwareDoes) {
    // Over samples of 0, a sample of 255 shows the faded alpha itself.
    Raster over = raster(RasterFormat::Nva12, 512, 2);
    for (int x = 0; x < 512; ++x) {
        for (int y = 0; y < 2; ++y) {
            over.at(0, x, y) = 255;
            over.at(3, x, y) = static_cast<std::uint8_t>(x / 2);
        }
        over.at(1, x, 0) = 255;
    }
    for (unsigned opacity = 1; opacity <= 255; ++opacity) {
        Raster below = raster(RasterFormat::Nv12, 512, 2);
        for (int x = 0; x < 512; ++x) {
            below.at(0, x, 0) = below.at(0, x, 1) = below.at(1, x, 0) = 0;
        }
        kComposer.process(destination(below), overlay(over), 512, 2, static_cast<unsigned char>(opacity), 0);
        for (int x = 0; x < 512; ++x) {
            const unsigned expected = faded(static_cast<unsigned>(x / 2), opacity);
            ASSERT_EQ(below.at(0, x, 0), expected) << "alpha " << x / 2 << ", opacity " << opacity;
            ASSERT_EQ(below.at(0, x, 1), expected);
            ASSERT_EQ(below.at(1, x, 0), expected);
        }
    }
}

TEST_F(ComposerProcess, DarkensUnderAFadedOverlayWithAnAlphaPlane) {
    Raster below = raster(RasterFormat::Nv12, 2, 2);
    Raster over = raster(RasterFormat::Nva12, 2, 2);
    below.at(0, 0, 0) = over.at(0, 0, 0) = 200;
    for (int i = 0; i < 4; ++i) {
        over.at(3, i % 2, i / 2) = 255;
    }
    kComposer.process(destination(below), overlay(over), 2, 2, 128, 0);
    EXPECT_EQ(below.at(0, 0, 0), 101);
}

TEST_F(ComposerProcess, AtAlphaZeroNothingChanges) {
    for (const RasterFormat format : {RasterFormat::Nv12, RasterFormat::Nva12}) {
        Raster below = raster(RasterFormat::Nv12, 16, 16);
        const Raster expected = below;
        const Raster over = raster(format, 16, 16);
        kComposer.process(destination(below), overlay(over), 16, 16, 0, 0);
        EXPECT_EQ(below.difference(expected), "");
    }
}

TEST_F(ComposerProcess, AnAlphaPlaneOfTheDestinationStaysAndDoesNotMatter) {
    for (const RasterFormat format : {RasterFormat::Nv12, RasterFormat::Nva12}) {
        Raster below = raster(RasterFormat::Nva12, 16, 16);
        Raster expected = below;
        const Raster over = raster(format, 16, 16);
        Nv12Buffer<void> withoutAlpha = destination(expected);
        withoutAlpha.alpha = nullptr;
        kComposer.process(std::move(withoutAlpha), overlay(over), 16, 16, 200, 0);
        kComposer.process(destination(below), overlay(over), 16, 16, 200, 0);
        EXPECT_EQ(below.difference(expected), "");
    }
}

TEST_F(ComposerProcess, FlagsHaveNoEffect) {
    const Raster over = raster(RasterFormat::Nva12, 16, 16);
    const Raster before = raster(RasterFormat::Nv12, 16, 16);
    Raster expected = before;
    kComposer.process(destination(expected), overlay(over), 16, 16, 200, 0);
    for (const unsigned flags : {96U, ~0U}) {
        Raster below = before;
        kComposer.process(destination(below), overlay(over), 16, 16, 200, flags);
        EXPECT_EQ(below.difference(expected), "");
    }
}

TEST_F(ComposerProcess, RefusesWhatReachesOutOfTheBuffersAndChangesNothing) {
    constexpr const char* kPlane = "z5 hw accel: a buffer to compose lacks a plane";
    constexpr const char* kEven = "z5 hw accel: the area to compose must have an even width and height";
    constexpr const char* kLarger = "z5 hw accel: the area to compose is larger than a buffer";
    constexpr const char* kLine = "z5 hw accel: the area to compose is wider than a line";
    Raster below = raster(RasterFormat::Nv12, 16, 16);
    const Raster before = below;
    const Raster over = raster(RasterFormat::Nva12, 16, 16);
    const auto expectRefusal = [&](const char* text, int width, int height, auto change) {
        for (const unsigned char alpha : {0, 255}) {
            Nv12Buffer<void> dst = destination(below);
            Nv12Buffer<const void> src = overlay(over);
            change(dst, src);
            EXPECT_THROW_TEXT(std::invalid_argument, text,
                              kComposer.process(std::move(dst), std::move(src), width, height, alpha, 0));
        }
        EXPECT_EQ(below.difference(before), "");
    };
    const auto same = [](auto&, auto&) {};
    for (const int wrong : {INT_MIN, -2, -1, 0, 1, 15}) {
        SCOPED_TRACE(wrong);
        expectRefusal(kEven, wrong, 16, same);
        expectRefusal(kEven, 16, wrong, same);
    }
    for (const int wrong : {18, INT_MAX - 1}) {
        SCOPED_TRACE(wrong);
        expectRefusal(kLarger, wrong, 16, same);
        expectRefusal(kLarger, 16, wrong, same);
    }
    expectRefusal(kPlane, 16, 16, [](auto& dst, auto&) { dst.luma = nullptr; });
    expectRefusal(kPlane, 16, 16, [](auto& dst, auto&) { dst.chroma = nullptr; });
    expectRefusal(kPlane, 16, 16, [](auto&, auto& src) { src.luma = nullptr; });
    expectRefusal(kPlane, 16, 16, [](auto&, auto& src) { src.chroma = nullptr; });
    expectRefusal(kLarger, 16, 16, [](auto& dst, auto&) { dst.width = 15; });
    expectRefusal(kLarger, 16, 16, [](auto& dst, auto&) { dst.height = 15; });
    expectRefusal(kLarger, 16, 16, [](auto&, auto& src) { src.width = 15; });
    expectRefusal(kLarger, 16, 16, [](auto&, auto& src) { src.height = 15; });
    expectRefusal(kLine, 16, 16, [](auto& dst, auto&) { dst.linesize = 15; });
    expectRefusal(kLine, 16, 16, [](auto&, auto& src) { src.linesize = 15; });
    expectRefusal(kLine, 16, 16, [](auto&, auto& src) { src.linesize = -16; });
}

}  // namespace
}  // namespace z5::hw::accel
