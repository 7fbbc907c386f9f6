#include "ffmpeg/timecode.h"

#include <gtest/gtest.h>

#include <cstdint>

extern "C" {
#include <libavutil/rational.h>
#include <libavutil/timecode.h>
}

namespace vidorra::ffmpeg_ext {
namespace {

constexpr AVRational kRates[] = {{24000, 1001}, {24, 1},  {25, 1},       {30000, 1001}, {30, 1},  {31, 1},
                                 {50, 1},       {100, 2}, {60000, 1001}, {60, 1},       {120, 1}, {0, 0}};

// FFmpeg 4.3 lacks the function: with it the next test makes the comparison.
template <class Rate>
int compareAll() {
    int compared = 0;
    if constexpr (requires(Rate rate) { av_timecode_get_smpte(rate, 0, 0, 0, 0, 0); }) {
        for (const Rate rate : kRates) {
            for (const bool drop : {false, true}) {
                for (const unsigned hours : {0U, 9U, 10U, 23U, 24U, 255U}) {
                    for (const unsigned minutes : {0U, 7U, 59U, 60U, 255U}) {
                        for (const unsigned seconds : {0U, 9U, 38U, 59U, 61U, 255U}) {
                            for (unsigned frames = 0; frames < 130; ++frames) {
                                const std::uint32_t expected = av_timecode_get_smpte(
                                    rate, drop ? 1 : 0, static_cast<int>(hours), static_cast<int>(minutes),
                                    static_cast<int>(seconds), static_cast<int>(frames));
                                const std::uint32_t word =
                                    smpteTimecode(rate.num, rate.den, drop, hours, minutes, seconds, frames);
                                if (word != expected) {
                                    ADD_FAILURE()
                                        << rate.num << "/" << rate.den << " " << drop << " " << hours << ":"
                                        << minutes << ":" << seconds << ":" << frames;
                                    return compared;
                                }
                                ++compared;
                            }
                        }
                    }
                }
            }
        }
        EXPECT_EQ(compared, 12 * 2 * 6 * 5 * 6 * 130);
    }
    return compared;
}

TEST(SmpteTimecode, IsThatOfFFmpegBitForBit) {
    EXPECT_GE(compareAll<AVRational>(), 0);
}

TEST(SmpteTimecode, IsThatOfFFmpegsFrameCounter) {
    for (const int rate : {24, 25, 30}) {
        AVTimecode counter{};
        ASSERT_EQ(av_timecode_init(&counter, AVRational{rate, 1}, 0, 0, nullptr), 0);
        const auto fps = static_cast<unsigned>(rate);
        for (unsigned number = 0; number < fps * 86400; number += 7) {
            ASSERT_EQ(smpteTimecode(rate, 1, false, number / (fps * 3600), number / (fps * 60) % 60,
                                    number / fps % 60, number % fps),
                      av_timecode_get_smpte_from_framenum(&counter, static_cast<int>(number)))
                << rate << " " << number;
        }
    }
}

TEST(SmpteTimecode, PutsEachDigitInItsPlace) {
    EXPECT_EQ(smpteTimecode(30, 1, false, 23, 59, 48, 27), 0x27485923U);
    EXPECT_EQ(smpteTimecode(30000, 1001, true, 1, 2, 3, 4), 0x44030201U);
    EXPECT_EQ(smpteTimecode(25, 1, false, 0, 0, 0, 0), 0U);
}

TEST(SmpteTimecode, HalvesTheFramesOfHighRatesAndMarksTheOddOnes) {
    EXPECT_EQ(smpteTimecode(60, 1, false, 0, 0, 0, 58), 0x29000000U);
    EXPECT_EQ(smpteTimecode(60, 1, false, 0, 0, 0, 59), 0x29800000U);
    EXPECT_EQ(smpteTimecode(50, 1, false, 0, 0, 0, 49), 0x24000080U);
    EXPECT_EQ(smpteTimecode(60000, 1001, false, 0, 0, 0, 1), 0x00800000U);
    EXPECT_EQ(smpteTimecode(30, 1, false, 0, 0, 0, 29), 0x29000000U);
}

TEST(SmpteTimecode, KeepsLargeFrameNumbersInTheirDigits) {
    EXPECT_EQ(smpteTimecode(30, 1, false, 0, 0, 0, 4294967295U), 0x15000000U);
    EXPECT_EQ(smpteTimecode(50, 1, false, 0, 0, 0, 4294967295U), 0x07000080U);
}

}  // namespace
}  // namespace vidorra::ffmpeg_ext
