#include "vidorra/core/smpte12_timecode.h"

#include <gtest/gtest.h>

#include <limits>
#include <sstream>
#include <stdexcept>
#include <type_traits>

#include "support/throw_text.h"

namespace vidorra {
namespace {

static_assert(std::is_trivially_copyable_v<SMPTE12Timecode>);
static_assert(sizeof(SMPTE12Timecode) == 16);

constexpr Timebase k25(1, 25);
constexpr Timebase k29(1001, 30000);
constexpr Timebase k30(1, 30);
constexpr Timebase k50(1, 50);
constexpr Timebase k59(1001, 60000);

std::string describe(long number, Timebase timebase) {
    return SMPTE12Timecode(number, false, timebase).debugDescription();
}

TEST(Smpte12Timecode, KeepsItsFields) {
    const SMPTE12Timecode timecode(23, 59, 58, 29, true, k29);
    EXPECT_EQ(timecode.hours(), 23);
    EXPECT_EQ(timecode.minutes(), 59);
    EXPECT_EQ(timecode.seconds(), 58);
    EXPECT_EQ(timecode.frames(), 29U);
    EXPECT_TRUE(timecode.dropped());
    EXPECT_EQ(timecode.timebase(), k29);
}

TEST(Smpte12Timecode, RefusesFieldsThatAreOutOfRange) {
    EXPECT_THROW_TEXT(std::range_error, "hours is out of range (valid: 0..23)",
                      SMPTE12Timecode(24, 0, 0, 0, false, k25));
    EXPECT_THROW_TEXT(std::range_error, "minutes is out of range (valid: 0..59)",
                      SMPTE12Timecode(0, 60, 0, 0, false, k25));
    EXPECT_THROW_TEXT(std::range_error, "seconds is out of range (valid: 0..59)",
                      SMPTE12Timecode(0, 0, 60, 0, false, k25));
    EXPECT_NO_THROW(SMPTE12Timecode(23, 59, 59, 24, false, k25));
}

TEST(Smpte12Timecode, ChecksItsFieldsInTheirOrder) {
    EXPECT_THROW_TEXT(std::range_error, "hours is out of range (valid: 0..23)",
                      SMPTE12Timecode(255, 255, 255, 0, false, k25));
    EXPECT_THROW_TEXT(std::range_error, "minutes is out of range (valid: 0..59)",
                      SMPTE12Timecode(0, 255, 255, 0, false, k25));
}

TEST(Smpte12Timecode, TakesAnyFrameNumberAsAField) {
    EXPECT_EQ(SMPTE12Timecode(0, 0, 0, 1000, false, k25).frames(), 1000U);
    EXPECT_EQ(SMPTE12Timecode(0, 0, 0, 4294967295U, false, k25).frames(), 4294967295U);
}

TEST(Smpte12Timecode, SplitsAFrameNumber) {
    EXPECT_EQ(describe(0, k30), "00:00:00:00 (1/30)");
    EXPECT_EQ(describe(29, k30), "00:00:00:29 (1/30)");
    EXPECT_EQ(describe(30, k30), "00:00:01:00 (1/30)");
    EXPECT_EQ(describe(108000, k30), "01:00:00:00 (1/30)");
    EXPECT_EQ(describe(108000 * 23 + 1800 * 59 + 30 * 58 + 7, k30), "23:59:58:07 (1/30)");
    EXPECT_EQ(describe(90000 + 1500 + 25 + 1, k25), "01:01:01:01 (1/25)");
}

TEST(Smpte12Timecode, WrapsAfterADay) {
    EXPECT_EQ(describe(2591999, k30), "23:59:59:29 (1/30)");
    EXPECT_EQ(describe(2592000, k30), "00:00:00:00 (1/30)");
    EXPECT_EQ(describe(2592000 * 3 + 31, k30), "00:00:01:01 (1/30)");
}

TEST(Smpte12Timecode, SplitsAtTheRateRoundedUp) {
    EXPECT_EQ(describe(30, k29), "00:00:01:00 (1001/30000)");
    EXPECT_EQ(describe(60, k59), "00:00:01:00 (1001/60000)");
    EXPECT_EQ(describe(24, Timebase(1001, 24000)), "00:00:01:00 (1001/24000)");
    EXPECT_EQ(describe(25, Timebase(2, 50)), "00:00:01:00 (2/50)");
    EXPECT_EQ(describe(1, Timebase(3, 2)), "00:00:01:00 (3/2)");
}

TEST(Smpte12Timecode, KeepsTheDropMarkAndSkipsNoNumbers) {
    const SMPTE12Timecode timecode(1800, true, k29);
    EXPECT_EQ(timecode.debugDescription(), "00:01:00:00 dropped (1001/30000)");
}

TEST(Smpte12Timecode, OfATimeBaseWithoutMeaningDoesNotCrash) {
    for (const Timebase timebase : {Timebase(0, 25), Timebase(1, 0), Timebase(-1, 25), Timebase(1, -25),
                                    Timebase(0, 0), Timebase(2147483647, 1), Timebase(1, 2147483647)}) {
        for (const long number :
             {0L, 1L, std::numeric_limits<long>::max(), -1L, std::numeric_limits<long>::min()}) {
            EXPECT_EQ(SMPTE12Timecode(number, false, timebase).timebase(), timebase);
            EXPECT_EQ(SMPTE12Timecode(number, false, timebase).toBinaryCodedDecimal() >> 31U, 0U);
        }
    }
}

TEST(Smpte12Timecode, IsEqualWhenAllFieldsAre) {
    const SMPTE12Timecode timecode(1, 2, 3, 4, true, k29);
    EXPECT_EQ(timecode, SMPTE12Timecode(1, 2, 3, 4, true, k29));
    EXPECT_NE(timecode, SMPTE12Timecode(0, 2, 3, 4, true, k29));
    EXPECT_NE(timecode, SMPTE12Timecode(1, 0, 3, 4, true, k29));
    EXPECT_NE(timecode, SMPTE12Timecode(1, 2, 0, 4, true, k29));
    EXPECT_NE(timecode, SMPTE12Timecode(1, 2, 3, 0, true, k29));
    EXPECT_NE(timecode, SMPTE12Timecode(1, 2, 3, 4, false, k29));
    EXPECT_NE(timecode, SMPTE12Timecode(1, 2, 3, 4, true, k30));
    EXPECT_NE(SMPTE12Timecode(0, 0, 0, 0, false, k25), SMPTE12Timecode(0, 0, 0, 0, false, Timebase(2, 50)));
}

TEST(Smpte12Timecode, IsPackedForItsFrameRate) {
    EXPECT_EQ(SMPTE12Timecode(23, 59, 48, 27, false, k30).toBinaryCodedDecimal(), 0x27485923U);
    EXPECT_EQ(SMPTE12Timecode(1, 2, 3, 4, true, k29).toBinaryCodedDecimal(), 0x44030201U);
    EXPECT_EQ(SMPTE12Timecode(1, 2, 3, 49, false, k50).toBinaryCodedDecimal(), 0x24030281U);
    EXPECT_EQ(SMPTE12Timecode(1, 2, 3, 59, false, k59).toBinaryCodedDecimal(), 0x29830201U);
}

TEST(Smpte12Timecode, DescribesItself) {
    const SMPTE12Timecode timecode(1, 2, 3, 4, true, k29);
    EXPECT_EQ(timecode.debugDescription(), "01:02:03:04 dropped (1001/30000)");
    EXPECT_EQ(SMPTE12Timecode(10, 20, 30, 100, false, k25).debugDescription(), "10:20:30:100 (1/25)");
    std::ostringstream stream;
    stream << timecode;
    EXPECT_EQ(stream.str(), "01:02:03:04 dropped (1001/30000)");
}

}  // namespace
}  // namespace vidorra
