#include "vidorra/encode/smpte12_timecode_provider.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/throw_text.h"

namespace vidorra {
namespace {

constexpr Timebase k25(1, 25);
constexpr Timebase k29(1001, 30000);
constexpr Timebase k59(1001, 60000);

Timestamp micros(std::int64_t value) {
    return {Timebase(), value};
}

// A new provider's timecode for one time.
std::string first(Timebase frameDuration, std::int64_t time) {
    return SMPTE12TimecodeProvider(frameDuration).nextTimecode(micros(time)).debugDescription();
}

std::vector<std::string> sequence(Timebase frameDuration, const std::vector<std::int64_t>& times) {
    SMPTE12TimecodeProvider provider(frameDuration);
    std::vector<std::string> result;
    for (const std::int64_t time : times) {
        result.push_back(provider.nextTimecode(micros(time)).debugDescription());
    }
    return result;
}

TEST(Smpte12TimecodeProvider, NumbersTheFramesOfAWholeRate) {
    EXPECT_EQ(sequence(k25, {0, 40000, 80000, 960000, 1000000, 3600000000}),
              (std::vector<std::string>{"00:00:00:00 (1/25)", "00:00:00:01 (1/25)", "00:00:00:02 (1/25)",
                                        "00:00:00:24 (1/25)", "00:00:01:00 (1/25)", "01:00:00:00 (1/25)"}));
}

TEST(Smpte12TimecodeProvider, RoundsTimesToTheNearestFrame) {
    EXPECT_EQ(first(k25, 59999), "00:00:00:01 (1/25)");
    EXPECT_EQ(first(k25, 60000), "00:00:00:02 (1/25)");
}

TEST(Smpte12TimecodeProvider, MovesOnOnlyFromTheLatestTimecode) {
    EXPECT_EQ(sequence(k25, {1000000, 1000000, 1000000}),
              (std::vector<std::string>{"00:00:01:00 (1/25)", "00:00:01:01 (1/25)", "00:00:01:00 (1/25)"}));
}

TEST(Smpte12TimecodeProvider, MovesOnIntoTheNextSecond) {
    EXPECT_EQ(sequence(k25, {960000, 960000}),
              (std::vector<std::string>{"00:00:00:24 (1/25)", "00:00:01:00 (1/25)"}));
    EXPECT_EQ(sequence(Timebase(1, 1), {5000000, 5000000}),
              (std::vector<std::string>{"00:00:05:00 (1/1)", "00:00:06:00 (1/1)"}));
}

// The number after a second's last one is compared again.
TEST(Smpte12TimecodeProvider, LooksAgainAtTheFirstNumberOfASecond) {
    EXPECT_EQ(
        sequence(k29, {31031000, 31031000}),
        (std::vector<std::string>{"00:00:31:01 dropped (1001/30000)", "00:00:31:02 dropped (1001/30000)"}));
}

TEST(Smpte12TimecodeProvider, MarksAllButTheBeginOfACycleAt29) {
    EXPECT_EQ(first(k29, 0), "00:00:00:00 (1001/30000)");
    EXPECT_EQ(first(k29, 29996633), "00:00:29:29 (1001/30000)");
    EXPECT_EQ(first(k29, 30030000), "00:00:30:01 dropped (1001/30000)");
    EXPECT_EQ(first(k29, 34034000), "00:00:34:02 dropped (1001/30000)");
}

TEST(Smpte12TimecodeProvider, MarksAllButTheBeginOfACycleAt59) {
    EXPECT_EQ(first(k59, 17000316), "00:00:17:00 (1001/60000)");
    EXPECT_EQ(first(k59, 60009950), "00:01:00:01 dropped (1001/60000)");
}

TEST(Smpte12TimecodeProvider, BeginsANewCycleEvery1001Seconds) {
    // 30000 frames and the 30 numbers that were skipped make 30030.
    EXPECT_EQ(first(k29, 1001000000), "00:16:41:00 (1001/30000)");
    EXPECT_EQ(first(k29, 1000966633), "00:16:40:29 dropped (1001/30000)");
    EXPECT_EQ(first(k29, 1031030000), "00:17:11:01 dropped (1001/30000)");
}

// Skips are counted by whole microseconds and whole seconds.
TEST(Smpte12TimecodeProvider, ReadsTheTimeAsMicrosecondsForItsSkips) {
    EXPECT_EQ(first(k59, 16999999), "00:00:16:59 (1001/60000)");
    EXPECT_EQ(
        SMPTE12TimecodeProvider(k59).nextTimecode(Timestamp(Timebase(1, 1000), 34000)).debugDescription(),
        "00:00:33:58 (1001/60000)");
    EXPECT_EQ(SMPTE12TimecodeProvider(k59).nextTimecode(micros(34000000)).debugDescription(),
              "00:00:34:00 (1001/60000)");
}

TEST(Smpte12TimecodeProvider, RefusesAFrameDurationThatIsNotPositive) {
    for (const Timebase duration :
         {Timebase(0, 25), Timebase(1, 0), Timebase(-1001, 30000), Timebase(1, -25)}) {
        SMPTE12TimecodeProvider provider(duration);
        EXPECT_THROW_TEXT(std::invalid_argument,
                          "SMPTE12TimecodeProvider: the frame duration must be positive",
                          (void)provider.nextTimecode(micros(0)));
    }
}

TEST(Smpte12TimecodeProvider, RefusesNegativeTimesAndGoesOn) {
    for (const Timebase duration : {k25, k29, Timebase(1, 1), Timebase(3, 2)}) {
        SMPTE12TimecodeProvider provider(duration);
        for (const std::int64_t time : {std::int64_t{-1}, std::int64_t{-40000}, std::int64_t{-90000000000},
                                        std::numeric_limits<std::int64_t>::min()}) {
            EXPECT_THROW_TEXT(std::invalid_argument, "SMPTE12TimecodeProvider: the time must not be negative",
                              (void)provider.nextTimecode(micros(time)));
        }
        EXPECT_EQ(provider.nextTimecode(micros(0)),
                  SMPTE12TimecodeProvider(duration).nextTimecode(micros(0)));
    }
}

TEST(Smpte12TimecodeProvider, EndsForEveryTimeAndFrameDuration) {
    constexpr int kMost = std::numeric_limits<int>::max();
    const auto start = std::chrono::steady_clock::now();
    for (const Timebase duration : {k25, k29, Timebase(1, 1), Timebase(3, 2), Timebase(kMost, kMost - 1),
                                    Timebase(kMost, 1), Timebase(1, kMost), Timebase(kMost - 1, kMost)}) {
        SMPTE12TimecodeProvider provider(duration);
        for (const std::int64_t time :
             {std::int64_t{0}, std::int64_t{1000000}, std::numeric_limits<std::int64_t>::max(),
              std::int64_t{1}, std::int64_t{1} << 50}) {
            EXPECT_EQ(provider.nextTimecode(micros(time)).timebase(), duration);
            EXPECT_EQ(provider.nextTimecode(micros(time)).timebase(), duration);
        }
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
}

// One of the usual rates with what is known about its cycle.
struct Rate {
    const char* name;
    int num;
    int den;
    std::int64_t fps;
    // 0 where no numbers are skipped.
    std::int64_t skips;
    std::int64_t length;
    std::int64_t plain;
};

constexpr Rate kRates[] = {
    {.name = "23.976", .num = 1001, .den = 24000, .fps = 24, .skips = 24, .length = 24024, .plain = 576},
    {.name = "25", .num = 1, .den = 25, .fps = 25, .skips = 0, .length = 0, .plain = 0},
    {.name = "29.97", .num = 1001, .den = 30000, .fps = 30, .skips = 30, .length = 30030, .plain = 900},
    {.name = "50", .num = 1, .den = 50, .fps = 50, .skips = 0, .length = 0, .plain = 0},
    {.name = "59.94", .num = 1001, .den = 60000, .fps = 60, .skips = 60, .length = 60060, .plain = 3600},
};

// The same rules, written in another way.
class Reference {
public:
    explicit Reference(const Rate& rate) : mRate(rate) {}

    struct Label {
        std::int64_t number;
        bool dropped;
    };

    Label next(std::int64_t frame, std::int64_t micro) {
        Label label = settle(mRate.skips == 0 ? frame : frame + micro / 1000000 * mRate.skips / 1001);
        while (mHasLast && label.number == mLast.number && label.dropped == mLast.dropped) {
            ++label.number;
            if (label.number % mRate.fps != 0) {
                break;
            }
            label = settle(label.number);
        }
        mHasLast = true;
        mLast = label;
        return label;
    }

private:
    Label settle(std::int64_t number) const {
        if (mRate.skips == 0 || number % mRate.length < mRate.plain) {
            return {number, false};
        }
        ++number;
        return number % mRate.fps != 0 ? Label{number, true} : settle(number);
    }

    Rate mRate;
    bool mHasLast = false;
    Label mLast{};
};

class TimecodesOfADay : public testing::TestWithParam<Rate> {};

TEST_P(TimecodesOfADay, AreThoseOfAReferenceAndKeepUpWithTheClock) {
    const Rate& rate = GetParam();
    const Timebase duration(rate.num, rate.den);
    SMPTE12TimecodeProvider provider(duration);
    Reference reference(rate);
    const std::int64_t frames = std::int64_t{86400} * rate.den / rate.num;
    std::int64_t marked = 0;
    std::int64_t unmarked = 0;
    SMPTE12Timecode last(0, 0, 0, 99, false, duration);
    for (std::int64_t frame = 0; frame < frames; ++frame) {
        // Rounded to whole microseconds.
        const std::int64_t micro = (frame * rate.num * 2000000 + rate.den) / (2 * rate.den);
        const SMPTE12Timecode timecode = provider.nextTimecode(micros(micro));
        const std::int64_t second = (timecode.hours() * 60 + timecode.minutes()) * 60 + timecode.seconds();
        const std::int64_t number = second * rate.fps + timecode.frames();

        const Reference::Label expected = reference.next(frame, micro);
        const bool isExpected =
            number == expected.number % (86400 * rate.fps) && timecode.dropped() == expected.dropped;

        // Properties independent of the rules: no number twice in a row, every number within its second, no
        // mark on the first number of a second, and never far from the clock.
        const double ahead =
            static_cast<double>(number) / static_cast<double>(rate.fps) - static_cast<double>(micro) / 1e6;
        const double distance = std::abs(ahead > 43200    ? ahead - 86400
                                         : ahead < -43200 ? ahead + 86400
                                                          : ahead);
        const bool isSound = timecode != last && timecode.frames() < static_cast<std::uint32_t>(rate.fps) &&
                             !(timecode.dropped() && timecode.frames() == 0) &&
                             distance < 3.01 / static_cast<double>(rate.fps);
        // One check for both, since there are millions of frames.
        if (!isExpected || !isSound) {
            FAIL() << "frame " << frame << " has " << timecode << " after " << last << ", expected number "
                   << expected.number << " with mark " << expected.dropped;
        }
        last = timecode;
        ++(timecode.dropped() ? marked : unmarked);
    }
    if (rate.skips == 0) {
        EXPECT_EQ(marked, 0);
        EXPECT_EQ(unmarked, 86400 * rate.fps);
    } else {
        // 86 cycles and a part of one, each with its unmarked start; some numbers are skipped.
        const std::int64_t skipped = rate.plain / rate.fps * rate.skips / 1001;
        EXPECT_NEAR(static_cast<double>(unmarked), static_cast<double>(87 * (rate.plain - skipped)), 87);
        EXPECT_GT(marked, frames * 9 / 10);
    }
}

INSTANTIATE_TEST_SUITE_P(Rates, TimecodesOfADay, testing::ValuesIn(kRates), [](const auto& row) {
    std::string name = row.param.name;
    for (char& letter : name) {
        letter = letter == '.' ? '_' : letter;
    }
    return "Fps" + name;
});

}  // namespace
}  // namespace vidorra
