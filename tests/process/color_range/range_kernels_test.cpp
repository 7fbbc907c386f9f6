// Every set of range kernels that this processor can run, against the plain loops, and the plain loops
// against the rule.

#include "process/color_range/range_kernels.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "process/color_range/range_tables.h"

namespace vidorra {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t kGuard = 96;

// The largest byte b with b <= (v - 16) * 255 / steps + 1/2, found without a division.
std::uint8_t referenceFullRange(int v, int steps) {
    int b = 0;
    while (b < 255 && 2 * steps * (b + 1) <= 2 * 255 * (v - 16) + steps) {
        ++b;
    }
    return static_cast<std::uint8_t>(b);
}

std::uint8_t referenceLuma(int v) {
    return referenceFullRange(v, 219);
}
std::uint8_t referenceChroma(int v) {
    return referenceFullRange(v, 224);
}

Bytes randomBytes(std::size_t size, std::mt19937& random) {
    Bytes bytes(size);
    std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<std::uint8_t>(random()); });
    return bytes;
}

TEST(RangeTables, HoldTheRoundedAndClampedQuotientForEveryByte) {
    for (int v = 0; v < 256; ++v) {
        EXPECT_EQ(kRangeLimitedToFullTable235[static_cast<std::size_t>(v)], referenceLuma(v)) << v;
        EXPECT_EQ(kRangeLimitedToFullTable240[static_cast<std::size_t>(v)], referenceChroma(v)) << v;
    }
}

TEST(RangeTables, HoldTheKnownValues) {
    struct Row {
        std::size_t v;
        int luma;
        int chroma;
    };
    for (const Row& row : {Row{0, 0, 0}, Row{15, 0, 0}, Row{16, 0, 0}, Row{17, 1, 1}, Row{20, 5, 5},
                           Row{64, 56, 55}, Row{128, 130, 128}, Row{200, 214, 209}, Row{235, 255, 249},
                           Row{236, 255, 250}, Row{240, 255, 255}, Row{241, 255, 255}, Row{255, 255, 255}}) {
        EXPECT_EQ(kRangeLimitedToFullTable235[row.v], row.luma) << row.v;
        EXPECT_EQ(kRangeLimitedToFullTable240[row.v], row.chroma) << row.v;
    }
}

class EveryRangeKernels : public testing::TestWithParam<const RangeKernels*> {
protected:
    const RangeKernels& kernels() const { return *GetParam(); }
};

INSTANTIATE_TEST_SUITE_P(Supported, EveryRangeKernels, testing::ValuesIn(supportedRangeKernels()),
                         [](const auto& each) { return std::string(each.param->name); });

TEST_P(EveryRangeKernels, ConvertEveryByteInEveryLaneByTheRule) {
    // Each byte stands once in each of 512 neighbouring columns.
    for (int shift = 0; shift < 256; ++shift) {
        Bytes src(512);
        Bytes luma(src.size());
        Bytes chroma(src.size());
        for (std::size_t i = 0; i < src.size(); ++i) {
            src[i] = static_cast<std::uint8_t>(i + static_cast<std::size_t>(shift));
            luma[i] = referenceLuma(src[i]);
            chroma[i] = referenceChroma(src[i]);
        }
        Bytes dst(src.size());
        kernels().convertLuma(dst.data(), src.data(), 512);
        ASSERT_EQ(dst, luma) << "shift " << shift;
        kernels().convertChroma(dst.data(), src.data(), 512);
        ASSERT_EQ(dst, chroma) << "shift " << shift;

        Bytes u(256);
        Bytes v(256);
        kernels().splitChroma(u.data(), v.data(), src.data(), 256);
        for (std::size_t i = 0; i < 256; ++i) {
            ASSERT_EQ(u[i], chroma[2 * i]) << "shift " << shift << ", pair " << i;
            ASSERT_EQ(v[i], chroma[2 * i + 1]) << "shift " << shift << ", pair " << i;
        }
    }
}

TEST_P(EveryRangeKernels, ConvertAllPairsOfNeighboursAlike) {
    // What crosses from one byte of a lane into the other would show here.
    Bytes src(2 * 65536);
    Bytes expected(src.size());
    for (std::size_t i = 0; i < src.size(); ++i) {
        src[i] = static_cast<std::uint8_t>(i % 2 == 0 ? i >> 9 : i >> 1);
        expected[i] = referenceChroma(src[i]);
    }
    Bytes dst(src.size());
    kernels().convertChroma(dst.data(), src.data(), static_cast<std::ptrdiff_t>(src.size()));
    EXPECT_EQ(dst, expected);
    for (std::size_t i = 0; i < src.size(); ++i) {
        expected[i] = referenceLuma(src[i]);
    }
    kernels().convertLuma(dst.data(), src.data(), static_cast<std::ptrdiff_t>(src.size()));
    EXPECT_EQ(dst, expected);
}

TEST_P(EveryRangeKernels, GiveTheBytesOfThePlainLoopsForAllLengthsAndTouchNoOthers) {
    std::mt19937 random(1);
    for (std::size_t length = 0; length < 330; ++length) {
        const auto count = static_cast<std::ptrdiff_t>(length);
        // Off the alignment of vectors, differently each time.
        const Bytes src = randomBytes(2 * length + 3, random);
        const std::uint8_t* from = src.data() + length % 3;
        const Bytes before = randomBytes(length + 2 * kGuard, random);
        const auto expectSame = [&](const char* name, const auto& call) {
            Bytes expected[2] = {before, before};
            Bytes actual[2] = {before, before};
            call(kPlainRangeKernels, expected[0].data() + kGuard, expected[1].data() + kGuard);
            call(kernels(), actual[0].data() + kGuard, actual[1].data() + kGuard);
            ASSERT_EQ(actual[0], expected[0]) << name << ", length " << length;
            ASSERT_EQ(actual[1], expected[1]) << name << ", length " << length;
            // The plain loops are held to the same bounds.
            ASSERT_TRUE(std::equal(before.begin(), before.begin() + kGuard, expected[0].begin()));
            ASSERT_TRUE(std::equal(before.end() - kGuard, before.end(), expected[0].end() - kGuard));
        };
        expectSame("convertLuma", [&](const RangeKernels& set, std::uint8_t* dst, std::uint8_t*) {
            set.convertLuma(dst, from, count);
        });
        expectSame("convertChroma", [&](const RangeKernels& set, std::uint8_t* dst, std::uint8_t*) {
            set.convertChroma(dst, from, count);
        });
        expectSame("splitChroma", [&](const RangeKernels& set, std::uint8_t* u, std::uint8_t* v) {
            set.splitChroma(u, v, from, count);
        });
        ASSERT_FALSE(HasFailure());
    }
}

TEST_P(EveryRangeKernels, ReadNothingOutsideOfTheirRows) {
    // Each row alone in memory of its exact size, for the address sanitizer.
    std::mt19937 random(2);
    for (std::size_t length = 1; length < 330; ++length) {
        const auto count = static_cast<std::ptrdiff_t>(length);
        const Bytes src = randomBytes(length, random);
        const Bytes pairs = randomBytes(2 * length, random);
        Bytes dst(length);
        Bytes u(length);
        Bytes v(length);
        kernels().convertLuma(dst.data(), src.data(), count);
        kernels().splitChroma(u.data(), v.data(), pairs.data(), count);
        for (std::size_t i = 0; i < length; ++i) {
            ASSERT_EQ(dst[i], referenceLuma(src[i])) << "length " << length;
            ASSERT_EQ(u[i], referenceChroma(pairs[2 * i])) << "length " << length;
            ASSERT_EQ(v[i], referenceChroma(pairs[2 * i + 1])) << "length " << length;
        }
        kernels().convertChroma(dst.data(), src.data(), count);
        for (std::size_t i = 0; i < length; ++i) {
            ASSERT_EQ(dst[i], referenceChroma(src[i])) << "length " << length;
        }
    }
}

TEST_P(EveryRangeKernels, ConvertARowInPlace) {
    std::mt19937 random(3);
    const Bytes src = randomBytes(203, random);
    Bytes expected(src.size());
    kPlainRangeKernels.convertLuma(expected.data(), src.data(), 203);
    Bytes row = src;
    kernels().convertLuma(row.data(), row.data(), 203);
    EXPECT_EQ(row, expected);
    kPlainRangeKernels.convertChroma(expected.data(), src.data(), 203);
    row = src;
    kernels().convertChroma(row.data(), row.data(), 203);
    EXPECT_EQ(row, expected);
}

// What /proc says about the processor, which is not what the library asks.
bool processorHas(const std::string& feature) {
    std::ifstream info("/proc/cpuinfo");
    for (std::string word; info >> word;) {
        if (word == feature) {
            return true;
        }
    }
    return false;
}

bool isSupported(const char* name) {
    const auto sets = supportedRangeKernels();
    return std::any_of(sets.begin(), sets.end(),
                       [&](const RangeKernels* set) { return std::strcmp(set->name, name) == 0; });
}

TEST(SupportedRangeKernels, BeginWithThePlainLoopsAndEndWithThoseInUse) {
    ASSERT_FALSE(supportedRangeKernels().empty());
    EXPECT_EQ(supportedRangeKernels().front(), &kPlainRangeKernels);
    EXPECT_EQ(supportedRangeKernels().back(), &rangeKernels());
}

TEST(SupportedRangeKernels, AreThoseOfTheProcessor) {
#if defined(__aarch64__)
    EXPECT_TRUE(isSupported("neon"));
#else
    EXPECT_EQ(isSupported("avx2"), processorHas("avx2"));
    EXPECT_EQ(isSupported("avx512"),
              processorHas("avx2") && processorHas("avx512bw") && processorHas("avx512vl"));
#endif
}

}  // namespace
}  // namespace vidorra
