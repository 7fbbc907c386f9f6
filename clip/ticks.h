#pragma once

#include <cstdint>
#include <limits>
#include <optional>

#include "vidorra/core/timestamp.h"

extern "C" {
#include <libavutil/mathematics.h>
}

namespace vidorra {

/// The unit in which readers of clips count: 1/705,600,000 s. Milliseconds, units of 90 kHz, the durations of
/// pictures at the usual rates and of samples at the usual rates are whole numbers of it, so that sums do not
/// drift.
using Ticks = std::int64_t;

inline constexpr AVRational kTickBase = {1, 705600000};
inline constexpr Ticks kSecond = 705600000;
/// The least distance at which two times differ in microseconds too.
inline constexpr Ticks kMicrosecond = 706;
/// Times that differ by this much or less are equal in microseconds.
inline constexpr Ticks kHalfMicrosecond = 353;

/// The greatest time that is counted, a bit more than a hundred years: four of them can be added.
inline constexpr Ticks kMostTicks = std::numeric_limits<Ticks>::max() / 4;

/// A count of units of `base`. Nothing for a time that is not set, and beyond kMostTicks, which no clip
/// means.
inline std::optional<Ticks> ticksOf(std::int64_t value, AVRational base) {
    if (value == AV_NOPTS_VALUE || base.num <= 0 || base.den <= 0) {
        return std::nullopt;
    }
    const Ticks ticks = av_rescale_q(value, base, kTickBase);
    return ticks >= -kMostTicks && ticks <= kMostTicks ? std::optional(ticks) : std::nullopt;
}

/// The nearest time in microseconds.
inline Timestamp timestampOf(Ticks ticks) {
    return {Timebase(), av_rescale_q(ticks, kTickBase, Timebase())};
}

/// How long `samples` last at `rate` Hz.
inline Ticks ticksOfSamples(std::int64_t samples, int rate) {
    return av_rescale_q(samples, {1, rate}, kTickBase);
}

/// The number of samples nearest to a duration.
inline std::int64_t samplesIn(Ticks duration, int rate) {
    return av_rescale_q(duration, kTickBase, {1, rate});
}

}  // namespace vidorra
