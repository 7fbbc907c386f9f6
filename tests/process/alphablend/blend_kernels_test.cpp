// Every set of inner loops that this processor can run, against the plain loops, and the plain loops against
// the equations.

#include "process/alphablend/kernels.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "support/blend_reference.h"

namespace vidorra::alphablend {
namespace {

using test::referenceBlend255;
using test::referenceBlend256;
using test::referenceFaded;

using Bytes = std::vector<std::uint8_t>;

class BlendKernels : public testing::TestWithParam<const Kernels*> {
protected:
    const Kernels& kernels() const { return *GetParam(); }
};

std::string kernelsName(const testing::TestParamInfo<const Kernels*>& info) {
    return info.param->name;
}

INSTANTIATE_TEST_SUITE_P(Supported, BlendKernels, testing::ValuesIn(supportedKernels()), kernelsName);

Bytes randomBytes(std::size_t size, std::mt19937& random) {
    Bytes bytes(size);
    std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<std::uint8_t>(random()); });
    return bytes;
}

// 0 to 255, each 256 times in a run, or all of them 256 times over.
Bytes slowRamp() {
    Bytes bytes(65536);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<std::uint8_t>(i >> 8);
    }
    return bytes;
}
Bytes fastRamp() {
    Bytes bytes(65536);
    std::iota(bytes.begin(), bytes.end(), std::uint8_t{0});
    return bytes;
}

// The planes of a row pair, one behind the other with guards between.
struct RowMemory {
    static constexpr std::size_t kGuard = 96;

    std::size_t columns;
    Bytes bytes;

    RowMemory(std::size_t rowColumns, std::mt19937& random)
        : columns(rowColumns), bytes(randomBytes(5 * columns + 6 * kGuard, random)) {}

    std::uint8_t* row(std::size_t index) { return bytes.data() + kGuard + index * (columns + kGuard); }
    RowPair pair() { return {{row(0), row(1)}, row(2)}; }
    SourceRowPair sourcePair() { return {{row(0), row(1)}, row(2), {row(3), row(4)}}; }
};

// Runs of 0 and 255 that begin and end anywhere, for the short cuts that kernels take there.
void addRuns(std::uint8_t* begin, std::ptrdiff_t count, std::mt19937& random) {
    for (std::ptrdiff_t i = 0; i < count;) {
        const unsigned kind = random() % 3;
        const std::ptrdiff_t end = std::min<std::ptrdiff_t>(count, i + 1 + random() % 200);
        if (kind != 2) {
            std::fill(begin + i, begin + end, kind == 0 ? 0 : 255);
        }
        i = end;
    }
}

TEST_P(BlendKernels, FadeByItsEquationForAllOperands) {
    const Bytes s = slowRamp();
    const Bytes d = fastRamp();
    for (unsigned opacity = 1; opacity < 255; ++opacity) {
        Bytes expected(d.size());
        for (std::size_t i = 0; i < d.size(); ++i) {
            expected[i] = referenceBlend256(s[i], d[i], static_cast<int>(opacity), static_cast<int>(opacity));
        }
        Bytes row = d;
        kernels().fade(row.data(), s.data(), static_cast<std::ptrdiff_t>(d.size()), opacity);
        ASSERT_EQ(row, expected) << "opacity " << opacity;
    }
}

// One pass with the same alpha everywhere, so that luma and chroma have all pairs of samples under it.
template <class Call>
void expectNva12ForAllSamples(int alpha, int opacity, const Call& call) {
    static const Bytes s = slowRamp();
    static const Bytes d = fastRamp();
    const Bytes a(d.size(), static_cast<std::uint8_t>(alpha));
    Bytes expected(d.size());
    for (std::size_t i = 0; i < d.size(); ++i) {
        expected[i] = referenceBlend256(s[i], d[i], referenceFaded(alpha, opacity), alpha);
    }
    std::array<Bytes, 3> rows = {d, d, d};
    call(RowPair{{rows[0].data(), rows[1].data()}, rows[2].data()},
         SourceRowPair{{s.data(), s.data()}, s.data(), {a.data(), a.data()}},
         static_cast<std::ptrdiff_t>(d.size()));
    for (const Bytes& row : rows) {
        ASSERT_EQ(row, expected) << "alpha " << alpha << ", opacity " << opacity;
    }
}

TEST_P(BlendKernels, BlendNva12ByItsEquationForAllOperands) {
    for (int alpha = 0; alpha < 256; ++alpha) {
        expectNva12ForAllSamples(alpha, 255, kernels().blendNva12);
        ASSERT_FALSE(HasFailure());
    }
}

TEST_P(BlendKernels, FadeNva12ByItsEquationForAllSamplesAndAlphas) {
    for (int opacity : {1, 127, 254}) {
        for (int alpha = 0; alpha < 256; ++alpha) {
            expectNva12ForAllSamples(alpha, opacity, [&](auto dst, auto src, auto columns) {
                kernels().fadeNva12(dst, src, columns, static_cast<unsigned>(opacity));
            });
            ASSERT_FALSE(HasFailure());
        }
    }
}

TEST_P(BlendKernels, FadeNva12ByItsEquationForAllAlphasAndOpacities) {
    const Bytes extremes = {0, 1, 127, 128, 254, 255};
    std::mt19937 random(1);
    for (int opacity = 1; opacity < 255; ++opacity) {
        for (const std::uint8_t s : extremes) {
            Bytes source(512, s);
            Bytes alpha = fastRamp();
            alpha.resize(512);
            Bytes rows[3];
            for (Bytes& row : rows) {
                row = randomBytes(512, random);
            }
            const Bytes before[3] = {rows[0], rows[1], rows[2]};
            kernels().fadeNva12({{rows[0].data(), rows[1].data()}, rows[2].data()},
                                {{source.data(), source.data()}, source.data(), {alpha.data(), alpha.data()}},
                                512, static_cast<unsigned>(opacity));
            for (std::size_t i = 0; i < 512; ++i) {
                const int a = alpha[i];
                const int c = (alpha[i / 2 * 2] + alpha[i / 2 * 2 + 1]) / 2;
                for (int row : {0, 1}) {
                    ASSERT_EQ(rows[row][i],
                              referenceBlend256(s, before[row][i], referenceFaded(a, opacity), a))
                        << "opacity " << opacity << ", column " << i;
                }
                ASSERT_EQ(rows[2][i], referenceBlend256(s, before[2][i], referenceFaded(c, opacity), c))
                    << "opacity " << opacity << ", chroma byte " << i;
            }
        }
    }
}

TEST_P(BlendKernels, TakeTheTruncatedMeanOfFourAlphasForChroma) {
    std::mt19937 random(2);
    for (int i = 0; i < 20000; ++i) {
        const auto a = randomBytes(4, random);
        const Bytes s(2, 255);
        Bytes luma0(2);
        Bytes luma1(2);
        Bytes chroma(2, 0);
        kernels().blendNva12({{luma0.data(), luma1.data()}, chroma.data()},
                             {{s.data(), s.data()}, s.data(), {a.data(), a.data() + 2}}, 2);
        const int c = (a[0] + a[1] + a[2] + a[3]) / 4;
        ASSERT_EQ(chroma, Bytes(2, referenceBlend256(255, 0, c, c)));
    }
}

TEST_P(BlendKernels, Blend32ByItsEquationForAllOperands) {
    for (int alphaOffset = 0; alphaOffset < 4; ++alphaOffset) {
        for (int alpha = 0; alpha < 256; ++alpha) {
            // Each pixel has three pairs of samples.
            Bytes s(4 * (65536 / 3 + 1));
            Bytes d(s.size());
            Bytes expected(s.size());
            unsigned sample = 0;
            for (std::size_t i = 0; i < s.size(); ++i) {
                if (static_cast<int>(i % 4) == alphaOffset) {
                    s[i] = static_cast<std::uint8_t>(alpha);
                    d[i] = static_cast<std::uint8_t>(i >> 2);
                    expected[i] = d[i];
                } else {
                    s[i] = static_cast<std::uint8_t>(sample >> 8);
                    d[i] = static_cast<std::uint8_t>(sample);
                    expected[i] = referenceBlend255(s[i], d[i], alpha);
                    ++sample;
                }
            }
            ASSERT_GE(sample, 65536U);
            kernels().blend32({d.data(), s.data()}, static_cast<std::ptrdiff_t>(s.size() / 4), alphaOffset,
                              255);
            ASSERT_EQ(d, expected) << "alpha " << alpha << " at " << alphaOffset;
        }
    }
}

TEST_P(BlendKernels, Blend32WithAllAlphasAndOpacities) {
    std::mt19937 random(3);
    for (unsigned opacity = 0; opacity < 256; ++opacity) {
        for (int alphaOffset = 0; alphaOffset < 4; ++alphaOffset) {
            Bytes s = randomBytes(1024, random);
            Bytes d = randomBytes(1024, random);
            Bytes expected = d;
            for (std::size_t i = 0; i < s.size(); ++i) {
                const std::size_t at = i / 4 * 4 + static_cast<std::size_t>(alphaOffset);
                s[at] = static_cast<std::uint8_t>(i / 4);
                if (i != at) {
                    const int a = referenceFaded(static_cast<int>(i / 4), static_cast<int>(opacity));
                    expected[i] = a == 0 ? d[i] : referenceBlend255(s[i], d[i], a);
                }
            }
            kernels().blend32({d.data(), s.data()}, 256, alphaOffset, opacity);
            ASSERT_EQ(d, expected) << "opacity " << opacity << ", alpha at " << alphaOffset;
        }
    }
}

TEST_P(BlendKernels, Blend24ByItsEquationForAllOperands) {
    const Bytes s = slowRamp();
    for (unsigned opacity = 0; opacity < 256; ++opacity) {
        Bytes d = fastRamp();
        Bytes expected(d.size());
        for (std::size_t i = 0; i < d.size(); ++i) {
            expected[i] = referenceBlend255(s[i], d[i], static_cast<int>(opacity));
        }
        kernels().blend24({d.data(), s.data()}, static_cast<std::ptrdiff_t>(d.size()), opacity);
        ASSERT_EQ(d, expected) << "opacity " << opacity;
    }
}

TEST_P(BlendKernels, GiveTheBytesOfThePlainLoopsForAllLengthsAndTouchNoOthers) {
    std::mt19937 random(4);
    for (std::size_t length = 0; length < 330; ++length) {
        for (int round = 0; round < 8; ++round) {
            const std::size_t columns = length & ~std::size_t{1};
            const unsigned opacity = 1 + random() % 254;
            RowMemory src(length, random);
            for (std::size_t row = 0; row < 5; ++row) {
                addRuns(src.row(row), static_cast<std::ptrdiff_t>(length), random);
            }
            if (round < 4) {
                // Both rows of alpha alike, so that short cuts are taken.
                std::copy_n(src.row(3), length, src.row(4));
            }
            const RowMemory before(length, random);
            const auto even = static_cast<std::ptrdiff_t>(columns);
            const auto expectSame = [&](const char* name, const auto& call) {
                RowMemory expected = before;
                RowMemory actual = before;
                call(kPlainKernels, expected);
                call(kernels(), actual);
                ASSERT_EQ(actual.bytes, expected.bytes) << name << ", length " << length;
            };
            expectSame("fade", [&](const Kernels& set, RowMemory& dst) {
                set.fade(dst.row(0), src.row(0), static_cast<std::ptrdiff_t>(length), opacity);
            });
            expectSame("blendNva12", [&](const Kernels& set, RowMemory& dst) {
                set.blendNva12(dst.pair(), src.sourcePair(), even);
            });
            expectSame("fadeNva12", [&](const Kernels& set, RowMemory& dst) {
                set.fadeNva12(dst.pair(), src.sourcePair(), even, opacity);
            });
            for (int alphaOffset = 0; alphaOffset < 4; ++alphaOffset) {
                for (const unsigned o : {opacity, 255U}) {
                    expectSame("blend32", [&](const Kernels& set, RowMemory& dst) {
                        set.blend32({dst.row(0), src.row(0)}, static_cast<std::ptrdiff_t>(length / 4),
                                    alphaOffset, o);
                    });
                }
            }
            expectSame("blend24", [&](const Kernels& set, RowMemory& dst) {
                set.blend24({dst.row(0), src.row(0)}, static_cast<std::ptrdiff_t>(length), opacity);
            });
            ASSERT_FALSE(HasFailure());
        }
    }
}

TEST_P(BlendKernels, ReadNothingOutsideOfTheirRows) {
    // Each row alone in memory of its exact size, for the address sanitizer.
    std::mt19937 random(5);
    for (std::size_t length = 4; length < 330; length += 2) {
        std::array<Bytes, 3> dst;
        std::array<Bytes, 5> src;
        for (Bytes& row : dst) {
            row = randomBytes(length, random);
        }
        for (Bytes& row : src) {
            row = randomBytes(length, random);
        }
        const auto columns = static_cast<std::ptrdiff_t>(length);
        const RowPair to = {{dst[0].data(), dst[1].data()}, dst[2].data()};
        const SourceRowPair from = {
            {src[0].data(), src[1].data()}, src[2].data(), {src[3].data(), src[4].data()}};
        std::array<Bytes, 3> expected = dst;
        const RowPair toExpected = {{expected[0].data(), expected[1].data()}, expected[2].data()};
        const auto run = [&](const Kernels& set, const RowPair& pair) {
            set.fade(pair.luma[0], from.luma[0], columns, 77);
            set.fade(pair.luma[1], from.luma[1], columns - 1, 77);
            set.fade(pair.chroma, from.chroma, columns, 77);
            set.blendNva12(pair, from, columns);
            set.fadeNva12(pair, from, columns, 200);
            set.blend32({pair.luma[0], from.luma[0]}, columns / 4, 3, 255);
            set.blend32({pair.luma[1], from.luma[1]}, columns / 4, 0, 99);
            set.blend24({pair.chroma, from.chroma}, columns, 31);
        };
        run(kernels(), to);
        run(kPlainKernels, toExpected);
        ASSERT_EQ(dst, expected) << "length " << length;
    }
}

TEST(SupportedKernels, BeginWithThePlainLoopsAndEndWithThoseInUse) {
    ASSERT_FALSE(supportedKernels().empty());
    EXPECT_EQ(supportedKernels().front(), &kPlainKernels);
    EXPECT_EQ(supportedKernels().back(), &alphablend::kernels());
}

}  // namespace
}  // namespace vidorra::alphablend
