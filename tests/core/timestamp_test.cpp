#include "vidorra/core/timestamp.h"

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <ctime>
#include <limits>
#include <random>
#include <sstream>
#include <type_traits>

extern "C" {
#include <libavutil/mathematics.h>
}

namespace vidorra {
namespace {

__extension__ typedef __int128 Wide;

constexpr std::int64_t kMin64 = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kMax64 = std::numeric_limits<std::int64_t>::max();
constexpr std::int32_t kMin32 = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t kMax32 = std::numeric_limits<std::int32_t>::max();

static_assert(std::is_trivially_copyable_v<Timebase> && sizeof(Timebase) == 8);
static_assert(offsetof(Timebase, num) == 0 && offsetof(Timebase, den) == 4);
static_assert(std::is_same_v<decltype(Timebase::num), std::int32_t>);
static_assert(std::is_convertible_v<AVRational, Timebase> && std::is_convertible_v<Timebase, AVRational>);
static_assert(std::is_trivially_copyable_v<Timestamp>);
static_assert(std::is_same_v<decltype(Timestamp::value), std::int64_t>);
static_assert(Timestamp().timebase == Timebase(1, 1000000));
static_assert(Timestamp().value == 0);
static_assert(Timestamp().isNull);

// A wide number wrapped to 64 bits.
std::int64_t wrapped(Wide number) {
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(number));
}

Timestamp microseconds(std::int64_t value) {
    return {Timebase(), value};
}

void expectFields(const Timestamp& time, Timebase base, std::int64_t value, bool isNull) {
    EXPECT_EQ(time.timebase.num, base.num);
    EXPECT_EQ(time.timebase.den, base.den);
    EXPECT_EQ(time.value, value);
    EXPECT_EQ(time.isNull, isNull);
}

// Stamps that files and careless callers make: every kind of sign, zeros and limits, among ordinary ones.
class RandomStamps {
public:
    explicit RandomStamps(std::uint64_t seed) : mRandom(seed) {}

    Timestamp operator()() { return {base(), value(), mRandom() % 2 == 0}; }

    Timebase base() { return {number(), number()}; }

    std::int64_t value() {
        constexpr std::array<std::int64_t, 8> kLimits = {kMin64, kMin64 + 1, kMax64, kMax64 - 1, 0, 1, -1, 2};
        switch (mRandom() % 4) {
        case 0:
            return kLimits[mRandom() % kLimits.size()];
        case 1:
            return static_cast<std::int64_t>(mRandom());
        default:
            return static_cast<std::int64_t>(mRandom() % 41) - 20;
        }
    }

    std::int32_t number() {
        constexpr std::array<std::int32_t, 8> kUsual = {1, 2, 25, 1001, 30000, 48000, 90000, 1000000};
        constexpr std::array<std::int32_t, 8> kLimits = {kMin32, kMin32 + 1, kMax32, kMax32 - 1,
                                                         0,      -1,         -2,     -90000};
        switch (mRandom() % 4) {
        case 0:
            return kLimits[mRandom() % kLimits.size()];
        case 1:
            return static_cast<std::int32_t>(mRandom());
        case 2:
            return static_cast<std::int32_t>(mRandom() % 6) + 1;
        default:
            return kUsual[mRandom() % kUsual.size()];
        }
    }

private:
    std::mt19937_64 mRandom;
};

std::string described(const Timestamp& time) {
    return std::to_string(time.value) + " of " + std::to_string(time.timebase.num) + "/" +
           std::to_string(time.timebase.den);
}

TEST(Timebase, ConvertsToAndFromARational) {
    const Timebase base = AVRational{1001, 30000};
    EXPECT_EQ(base.num, 1001);
    EXPECT_EQ(base.den, 30000);
    const AVRational rational = Timebase(1, 90000);
    EXPECT_EQ(rational.num, 1);
    EXPECT_EQ(rational.den, 90000);
}

TEST(Timebase, IsAMicrosecondByDefault) {
    EXPECT_EQ(Timebase().num, 1);
    EXPECT_EQ(Timebase().den, 1000000);
}

TEST(Timebase, IsEqualByItsNumbersAndNotByItsRatio) {
    EXPECT_TRUE(Timebase(1, 2) == Timebase(1, 2));
    EXPECT_FALSE(Timebase(1, 2) == Timebase(2, 4));
    EXPECT_TRUE(Timebase(1, 2) != Timebase(2, 4));
    EXPECT_TRUE(Timebase(1, 2) != Timebase(3, 2));
    EXPECT_TRUE(Timebase(1, 2) != Timebase(1, 3));
}

TEST(Timestamp, IsNullAndInMicrosecondsByDefault) {
    expectFields(Timestamp(), {1, 1000000}, 0, true);
}

TEST(Timestamp, IsNotNullWhenMadeFromACount) {
    expectFields(Timestamp({1, 25}, 7), {1, 25}, 7, false);
    expectFields(Timestamp({1, 25}, 7, true), {1, 25}, 7, true);
}

TEST(TimestampRescale, RoundsToNearestAndHalfAwayFromZero) {
    const Timebase halves(1, 2);
    const Timebase wholes(1, 1);
    for (const auto& [value, expected] :
         {std::pair<std::int64_t, std::int64_t>{1, 1}, {-1, -1}, {3, 2}, {-3, -2}, {2, 1}, {0, 0}}) {
        EXPECT_EQ(Timestamp::rescale({halves, value}, wholes).value, expected) << value;
    }
    EXPECT_EQ(Timestamp::rescale({{1, 3}, 1}, wholes).value, 0);
    EXPECT_EQ(Timestamp::rescale({{1, 3}, -1}, wholes).value, 0);
    EXPECT_EQ(Timestamp::rescale({{1, 3}, 2}, wholes).value, 1);
    EXPECT_EQ(Timestamp::rescale({{1, 90000}, 90000}, {1, 1000000}).value, 1000000);
}

TEST(TimestampRescale, TakesTheNewBaseAndKeepsTheMark) {
    expectFields(Timestamp::rescale({{1, 25}, 5}, {1, 1000}), {1, 1000}, 200, false);
    expectFields(Timestamp::rescale({{1, 25}, 5, true}, {1, 1000}), {1, 1000}, 200, true);
}

TEST(TimestampRescale, LeavesItsOperandAlone) {
    const Timestamp time({1, 25}, 5);
    expectFields(time.rescale({1, 1000}), {1, 1000}, 200, false);
    expectFields(time, {1, 25}, 5, false);
}

TEST(TimestampRescale, IsThatOfFFmpegForAnyStampAndBase) {
    RandomStamps stamps(1);
    for (int i = 0; i < 20000; ++i) {
        const Timestamp time = stamps();
        const Timebase to = stamps.base();
        const std::int64_t expected = av_rescale_q(
            time.value, AVRational{time.timebase.num, time.timebase.den}, AVRational{to.num, to.den});
        SCOPED_TRACE(described(time));
        expectFields(Timestamp::rescale(time, to), to, expected, time.isNull);
        expectFields(time.rescale(to), to, expected, time.isNull);
    }
}

// A quotient of positive numbers, rounded; the remainder lies in 0..divisor.
Wide roundedDown(Wide dividend, Wide divisor) {
    const Wide quotient = dividend / divisor;
    return dividend % divisor < 0 ? quotient - 1 : quotient;
}

Wide nearest(Wide dividend, Wide divisor) {
    return dividend < 0 ? -roundedDown(-2 * dividend + divisor, 2 * divisor)
                        : roundedDown(2 * dividend + divisor, 2 * divisor);
}

Wide roundedUp(Wide dividend, Wide divisor) {
    return -roundedDown(-dividend, divisor);
}

TEST(TimestampRescale, IsExactOnOrdinaryStamps) {
    std::mt19937_64 random(2);
    for (int i = 0; i < 20000; ++i) {
        const auto positive = [&] { return static_cast<std::int32_t>(random() % 100000) + 1; };
        const Timestamp time({positive(), positive()},
                             static_cast<std::int64_t>(random() % 2000001) - 1000000);
        const Timebase to(positive(), positive());
        const Wide dividend = Wide{time.value} * time.timebase.num * to.den;
        const Wide divisor = Wide{time.timebase.den} * to.num;
        SCOPED_TRACE(described(time));
        EXPECT_EQ(Timestamp::rescale(time, to).value, wrapped(nearest(dividend, divisor)));
        EXPECT_EQ(Timestamp::rescaleUp(time, to).value, wrapped(roundedUp(dividend, divisor)));
    }
}

TEST(TimestampRescale, UpRoundsTowardsPlusInfinity) {
    const Timebase thirds(1, 3);
    const Timebase wholes(1, 1);
    for (const auto& [value, expected] : {std::pair<std::int64_t, std::int64_t>{0, 0},
                                          {1, 1},
                                          {2, 1},
                                          {3, 1},
                                          {4, 2},
                                          {-1, 0},
                                          {-2, 0},
                                          {-3, -1},
                                          {-4, -1}}) {
        EXPECT_EQ(Timestamp::rescaleUp({thirds, value}, wholes).value, expected) << value;
    }
}

TEST(TimestampRescale, UpIsThatOfFFmpegForAnyStampAndBase) {
    RandomStamps stamps(3);
    for (int i = 0; i < 20000; ++i) {
        const Timestamp time = stamps();
        const Timebase to = stamps.base();
        const std::int64_t multiplier = std::int64_t{time.timebase.num} * to.den;
        const std::int64_t divisor = std::int64_t{time.timebase.den} * to.num;
        SCOPED_TRACE(described(time));
        expectFields(Timestamp::rescaleUp(time, to), to,
                     av_rescale_rnd(time.value, multiplier, divisor, AV_ROUND_UP), time.isNull);
    }
}

TEST(TimestampArithmetic, RightOperandIsRescaledToTheBaseOfTheLeft) {
    const Timestamp left({1, 25}, 10);
    // 0.1 seconds are 2.5 units, which round to 3.
    expectFields(left + microseconds(100000), {1, 25}, 13, false);
    expectFields(left - microseconds(100000), {1, 25}, 7, false);
    expectFields(microseconds(100000) + left, {1, 1000000}, 500000, false);
    expectFields(microseconds(100000) - left, {1, 1000000}, -300000, false);
}

TEST(TimestampArithmetic, ResultHasTheMarkOfTheLeftOperand) {
    const Timestamp null({1, 1000000}, 5, true);
    const Timestamp set({1, 1000000}, 7);
    expectFields(null + set, {1, 1000000}, 12, true);
    expectFields(null - set, {1, 1000000}, -2, true);
    expectFields(set + null, {1, 1000000}, 12, false);
    expectFields(set - null, {1, 1000000}, 2, false);
}

TEST(TimestampArithmetic, LeavesItsOperandsAlone) {
    const Timestamp left({1, 25}, 10);
    const Timestamp right({1, 50}, 4, true);
    expectFields(left + right, {1, 25}, 12, false);
    expectFields(left - right, {1, 25}, 8, false);
    expectFields(left * 2.0F, {1, 25}, 20, false);
    expectFields(left / 2.0F, {1, 50}, 10, false);
    expectFields(left, {1, 25}, 10, false);
    expectFields(right, {1, 50}, 4, true);
}

TEST(TimestampArithmetic, WrapsAt64Bits) {
    EXPECT_EQ((microseconds(kMax64) + microseconds(1)).value, kMin64);
    EXPECT_EQ((microseconds(kMin64 + 1) - microseconds(2)).value, kMax64);
    EXPECT_EQ((microseconds(-2) - microseconds(kMax64)).value, kMax64);
}

TEST(TimestampArithmetic, FollowsItsRuleOnAnyStamps) {
    RandomStamps stamps(4);
    for (int i = 0; i < 20000; ++i) {
        const Timestamp left = stamps();
        const Timestamp right = stamps();
        const Wide other = av_rescale_q(right.value, AVRational{right.timebase.num, right.timebase.den},
                                        AVRational{left.timebase.num, left.timebase.den});
        SCOPED_TRACE(described(left) + " and " + described(right));
        expectFields(left + right, left.timebase, wrapped(Wide{left.value} + other), left.isNull);
        expectFields(left - right, left.timebase, wrapped(Wide{left.value} - other), left.isNull);
    }
}

TEST(TimestampArithmetic, ProductIsTruncatedTowardsZero) {
    EXPECT_EQ((microseconds(3) * 0.5F).value, 1);
    EXPECT_EQ((microseconds(-3) * 0.5F).value, -1);
    EXPECT_EQ((microseconds(10) * -0.25F).value, -2);
    EXPECT_EQ((microseconds(10) * 0.0F).value, 0);
    expectFields(Timestamp({2, 25}, 10, true) * 1.5F, {2, 25}, 15, true);
}

TEST(TimestampArithmetic, ProductIsComputedInSinglePrecision) {
    // 2 to the power of 24 and one more have the same single precision number.
    EXPECT_EQ((microseconds(16777217) * 1.0F).value, 16777216);
    EXPECT_EQ((microseconds(kMax64 / 2) * 1.0F).value, std::int64_t{1} << 62);
    // 33333333 becomes 33333332 and its product with a third 11111111; in double precision it is less.
    EXPECT_EQ((microseconds(33333333) * (1.0F / 3.0F)).value,
              static_cast<std::int64_t>(static_cast<float>(33333332.0F * (1.0F / 3.0F))));
}

TEST(TimestampArithmetic, ProductFollowsItsRuleOnAnyStamps) {
    RandomStamps stamps(5);
    std::mt19937 random(5);
    std::uniform_real_distribution<float> factors(-4.0F, 4.0F);
    int compared = 0;
    for (int i = 0; i < 20000; ++i) {
        const Timestamp time = stamps();
        const float factor = factors(random);
        const volatile float product = static_cast<float>(time.value) * factor;
        if (std::fabs(product) < 9.2e18F) {
            ++compared;
            SCOPED_TRACE(described(time) + " times " + std::to_string(factor));
            expectFields(time * factor, time.timebase, static_cast<std::int64_t>(std::trunc(product)),
                         time.isNull);
        }
    }
    EXPECT_GT(compared, 10000);
}

TEST(TimestampArithmetic, ProductThatDoesNotFitIsTheLowestCount) {
    for (const float factor :
         {4.0F, -4.0F, std::numeric_limits<float>::infinity(), -std::numeric_limits<float>::infinity(),
          std::numeric_limits<float>::quiet_NaN()}) {
        EXPECT_EQ((microseconds(kMax64) * factor).value, kMin64) << factor;
    }
    EXPECT_EQ((microseconds(kMax64) * 1.0F).value, kMin64);
    EXPECT_EQ((microseconds(kMin64) * 1.0F).value, kMin64);
}

TEST(TimestampArithmetic, DivisionChangesTheBaseAndNotTheCount) {
    const Timestamp half = microseconds(3) / 2.0F;
    expectFields(half, {1, 2000000}, 3, false);
    // 1.5 microseconds in a base that has them.
    EXPECT_TRUE(half == Timestamp({1, 2000000}, 3));
    EXPECT_TRUE(half == Timestamp({1, 4000000}, 6));
    EXPECT_TRUE(half > microseconds(1));
    EXPECT_TRUE(half < microseconds(2));
    expectFields(Timestamp({7, 25}, -9, true) / 4.0F, {7, 100}, -9, true);
}

TEST(TimestampArithmetic, DivisionTruncatesTheDenominatorInSinglePrecision) {
    EXPECT_EQ((Timestamp({1, 3}, 1) / 0.5F).timebase.den, 1);
    EXPECT_EQ((Timestamp({1, 3}, 1) / -0.5F).timebase.den, -1);
    EXPECT_EQ((Timestamp({1, 3}, 1) / 0.0F).timebase.den, 0);
    EXPECT_EQ((Timestamp({1, 16777217}, 1) / 1.0F).timebase.den, 16777216);
    EXPECT_EQ((Timestamp({1, 30000}, 1) / 1.001F).timebase.den, 30030);
}

TEST(TimestampArithmetic, DenominatorThatDoesNotFitIsTheLowest) {
    for (const float divisor :
         {2.0F, -3.0F, std::numeric_limits<float>::infinity(), std::numeric_limits<float>::quiet_NaN()}) {
        EXPECT_EQ((Timestamp({1, kMax32}, 1) / divisor).timebase.den, kMin32) << divisor;
    }
}

// The rule itself in numbers that are wide enough for each step, so that wrapping is one visible step.
int plainComparison(const Timestamp& a, const Timestamp& b) {
    Wide left = a.value;
    Wide right = b.value;
    if (a.timebase.num != b.timebase.num || a.timebase.den != b.timebase.den) {
        const Wide denA = a.timebase.den;
        const Wide denB = b.timebase.den;
        const Wide magnitudeA = denA < 0 ? -denA : denA;
        const Wide magnitudeB = denB < 0 ? -denB : denB;
        Wide divisor = magnitudeA;
        for (Wide rest = magnitudeB; rest != 0;) {
            const Wide next = divisor % rest;
            divisor = rest;
            rest = next;
        }
        const Wide multiple = magnitudeA == 0 || magnitudeB == 0 ? 0 : magnitudeA / divisor * magnitudeB;
        left = denA == 0 ? 0 : wrapped(Wide{wrapped(left * multiple)} / denA);
        right = denB == 0 ? 0 : wrapped(Wide{wrapped(right * multiple)} / denB);
    }
    return left < right ? -1 : left == right ? 0 : 1;
}

void expectComparison(const Timestamp& a, const Timestamp& b, int expected) {
    SCOPED_TRACE(described(a) + " and " + described(b));
    EXPECT_EQ(a == b, expected == 0);
    EXPECT_EQ(a != b, expected != 0);
    EXPECT_EQ(a < b, expected < 0);
    EXPECT_EQ(a <= b, expected <= 0);
    EXPECT_EQ(a > b, expected > 0);
    EXPECT_EQ(a >= b, expected >= 0);
}

TEST(TimestampComparison, ComparesCountsInOneBase) {
    expectComparison(microseconds(1), microseconds(2), -1);
    expectComparison(microseconds(2), microseconds(2), 0);
    expectComparison(microseconds(kMin64), microseconds(kMax64), -1);
    // Even in meaningless bases.
    expectComparison({{3, 0}, 5}, {{3, 0}, 4}, 1);
    expectComparison({{0, -1}, 5}, {{0, -1}, 4}, 1);
}

TEST(TimestampComparison, ComparesTimesAcrossBasesWithANumeratorOfOne) {
    expectComparison({{1, 90000}, 90000}, microseconds(1000000), 0);
    expectComparison({{1, 90000}, 90001}, microseconds(1000000), 1);
    expectComparison({{1, 90000}, 89999}, microseconds(1000000), -1);
    expectComparison({{1, 3}, 1}, {{1, 2}, 1}, -1);
    expectComparison({{1, 3}, -1}, {{1, 2}, -1}, 1);
}

TEST(TimestampComparison, LeavesNumeratorsOut) {
    expectComparison({{1001, 30000}, 10}, {{1, 30000}, 10}, 0);
    expectComparison({{1001, 30000}, 1}, {{1, 30000}, 2}, -1);
    // 2 seconds and 1.5 seconds.
    expectComparison({{2, 1}, 1}, {{1, 2}, 3}, -1);
}

TEST(TimestampComparison, LeavesTheNullMarkOut) {
    expectComparison({{1, 25}, 5, true}, {{1, 25}, 5, false}, 0);
    expectComparison({{1, 25}, 5, true}, {{1, 50}, 10, false}, 0);
    expectComparison({{1, 25}, 4, true}, {{1, 25}, 5, true}, -1);
}

TEST(TimestampComparison, ADenominatorOfZeroIsEqualToEverythingInAnotherBase) {
    for (const std::int64_t value : {kMin64, std::int64_t{-1}, std::int64_t{0}, kMax64}) {
        expectComparison({{1, 0}, value}, microseconds(77), 0);
        expectComparison(microseconds(-77), {{1, 0}, value}, 0);
        expectComparison({{1, 0}, value}, {{2, 0}, 77}, 0);
    }
}

TEST(TimestampComparison, NegativeDenominatorsCountWithTheirMagnitudeInTheScale) {
    expectComparison({{1, -2}, 1}, {{1, 2}, -1}, 0);
    expectComparison({{1, -3}, 1}, {{1, 2}, 1}, -1);
    expectComparison({{1, -1}, kMin64}, {{1, 1}, kMin64}, 0);
    expectComparison({{1, kMin32}, 1}, {{1, 1}, 0}, -1);
}

TEST(TimestampComparison, MultiplicationWrapsWithoutAGuard) {
    // 2 to the power of 62, four times: nothing is left.
    expectComparison({{1, 1}, std::int64_t{1} << 62}, {{1, 4}, 0}, 0);
    // Twice: the sign turns.
    expectComparison({{1, 1}, std::int64_t{1} << 62}, {{1, 2}, 0}, -1);
}

TEST(TimestampComparison, FollowsItsRuleOnAnyStamps) {
    RandomStamps stamps(6);
    std::array<int, 3> answers{};
    for (int i = 0; i < 200000; ++i) {
        const Timestamp a = stamps();
        Timestamp b = stamps();
        if (i % 8 == 0) {
            b.timebase = a.timebase;
        }
        const int expected = plainComparison(a, b);
        ++answers[static_cast<std::size_t>(expected + 1)];
        ASSERT_EQ(a == b, expected == 0) << described(a) << " and " << described(b);
        ASSERT_EQ(a != b, expected != 0) << described(a) << " and " << described(b);
        ASSERT_EQ(a < b, expected < 0) << described(a) << " and " << described(b);
        ASSERT_EQ(a <= b, expected <= 0) << described(a) << " and " << described(b);
        ASSERT_EQ(a > b, expected > 0) << described(a) << " and " << described(b);
        ASSERT_EQ(a >= b, expected >= 0) << described(a) << " and " << described(b);
    }
    for (const int count : answers) {
        EXPECT_GT(count, 5000);
    }
}

TEST(TimestampComparison, OfSmallStampsIsThatOfFractions) {
    for (int denA = 1; denA <= 7; ++denA) {
        for (int denB = 1; denB <= 7; ++denB) {
            for (int a = -10; a <= 10; ++a) {
                for (int b = -10; b <= 10; ++b) {
                    const int left = a * denB;
                    const int right = b * denA;
                    expectComparison({{1, denA}, a}, {{1, denB}, b},
                                     left < right   ? -1
                                     : left > right ? 1
                                                    : 0);
                }
            }
        }
    }
}

struct DescriptionRow {
    Timestamp time;
    const char* text;
};

TEST(TimestampText, IsSecondsWithSixDecimalsAndTheBaseUnlessMicroseconds) {
    const DescriptionRow rows[] = {
        {microseconds(0), "0.000000"},
        {microseconds(1500000), "1.500000"},
        {microseconds(-1), "-0.000001"},
        {microseconds(123456789), "123.456789"},
        {{{1, 90000}, 90000}, "1.000000 (1/90000)"},
        {{{1001, 30000}, 30}, "1.001000 (1001/30000)"},
        {{{2, 2000000}, 5}, "0.000005 (2/2000000)"},
        {{{2, 1000000}, 5}, "0.000010 (2/1000000)"},
        {{{1, 3}, 2}, "0.666667 (1/3)"},
        {{{1, -25}, 25}, "-1.000000 (1/-25)"},
        {{{1, 0}, 1}, "inf (1/0)"},
    };
    for (const DescriptionRow& row : rows) {
        EXPECT_EQ(row.time.debugDescription(), row.text);
    }
}

TEST(TimestampText, OfANullStampSaysSoInAnyBase) {
    EXPECT_EQ(Timestamp().debugDescription(), "null pts");
    EXPECT_EQ(Timestamp({1, 90000}, 90000, true).debugDescription(), "null pts");
}

TEST(TimestampText, SecondsAreComputedInDoublePrecision) {
    RandomStamps stamps(7);
    for (int i = 0; i < 2000; ++i) {
        Timestamp time = stamps();
        time.isNull = false;
        if (time.timebase.den == 0) {
            continue;
        }
        std::array<char, 64> seconds{};
        std::snprintf(seconds.data(), seconds.size(), "%0.6f",
                      double(time.value) * double(time.timebase.num) / double(time.timebase.den));
        std::string expected = seconds.data();
        if (time.timebase.num != 1 || time.timebase.den != 1000000) {
            expected +=
                " (" + std::to_string(time.timebase.num) + "/" + std::to_string(time.timebase.den) + ")";
        }
        ASSERT_EQ(time.debugDescription(), expected);
    }
}

TEST(TimestampText, StreamsWriteTheDescription) {
    std::ostringstream stream;
    stream << Timestamp({1, 90000}, 90000) << ", " << Timestamp();
    EXPECT_EQ(stream.str(), "1.000000 (1/90000), null pts");
}

std::int64_t clockMicroseconds() {
    timespec time{};
    clock_gettime(CLOCK_REALTIME, &time);
    return static_cast<std::int64_t>(time.tv_sec) * 1000000 + time.tv_nsec / 1000;
}

TEST(Now, IsTheWallClockInMicroseconds) {
    const std::int64_t before = clockMicroseconds();
    const Timestamp time = now();
    const std::int64_t after = clockMicroseconds();
    EXPECT_EQ(time.timebase.num, 1);
    EXPECT_EQ(time.timebase.den, 1000000);
    EXPECT_FALSE(time.isNull);
    EXPECT_LE(before, time.value);
    EXPECT_LE(time.value, after);
}

TEST(Now, PrintsSecondsWithSixDecimalsAndNoBase) {
    EXPECT_THAT(now().debugDescription(), testing::MatchesRegex("[0-9]+\\.[0-9][0-9][0-9][0-9][0-9][0-9]"));
}

}  // namespace
}  // namespace vidorra
