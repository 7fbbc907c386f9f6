#include "vidorra/encode/smpte12_timecode_provider.h"

#include <cstdint>
#include <numeric>
#include <stdexcept>

#include "core/wrapping.h"

namespace vidorra {
namespace {

// How the frames of a fractional rate are counted at the next whole rate.
struct Cycle {
    // `skips` numbers are skipped in `seconds` seconds.
    std::int64_t seconds;
    std::int64_t skips;
    // In numbers: the length, and how many at the start have no drop mark.
    std::int64_t length;
    std::int64_t plain;
};

// `rest` is the fractional part of the rate, in units of 1/num.
Cycle cycleOf(std::int64_t num, std::int64_t rest, std::int64_t fps) {
    const std::int64_t missing = num - rest;
    const std::int64_t common = std::lcm(num, missing);
    const std::int64_t seconds = common / missing;
    const std::int64_t skips = common / num;
    return {seconds, skips, fps * seconds, skips * fps};
}

}  // namespace

SMPTE12Timecode SMPTE12TimecodeProvider::nextTimecode(const Timestamp& timestamp) {
    const std::int64_t num = mFrameDuration.num;
    const std::int64_t den = mFrameDuration.den;
    if (num <= 0 || den <= 0) {
        throw std::invalid_argument("SMPTE12TimecodeProvider: the frame duration must be positive");
    }
    // Deliberate: numbers are not negative, and the remainders below would be.
    if (timestamp.value < 0) {
        throw std::invalid_argument("SMPTE12TimecodeProvider: the time must not be negative");
    }
    std::int64_t fps = den / num;
    const std::int64_t rest = den - fps * num;
    std::int64_t number = timestamp.rescale(mFrameDuration).value;
    Cycle cycle{};
    if (rest != 0) {
        ++fps;
        cycle = cycleOf(num, rest, fps);
        // Deliberate: the time counts as microseconds, whatever its base, and is truncated to whole seconds.
        number =
            wrappingAdd(number, wrappingMultiply(timestamp.value / 1000000, cycle.skips) / cycle.seconds);
    }

    for (;;) {
        bool dropped = false;
        if (rest != 0 && number % cycle.length >= cycle.plain) {
            // Below one frame a second each number is the first of its second, up to the next cycle.
            number = wrappingAdd(number, fps == 1 ? cycle.length - number % cycle.length : 1);
            if (number % fps == 0) {
                continue;
            }
            dropped = true;
        }
        if (mLast && *mLast == SMPTE12Timecode(number, dropped, mFrameDuration)) {
            number = wrappingAdd(number, 1);
            if (number % fps == 0) {
                continue;
            }
        }
        mLast = SMPTE12Timecode(number, dropped, mFrameDuration);
        return *mLast;
    }
}

}  // namespace vidorra
