#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>

#include "vidorra/core/export.h"
#include "vidorra/core/ffmpeg_fwd.h"

namespace vidorra {

/// The unit of a time in seconds, num/den. The library works in microseconds, 1/1000000, which is the
/// default.
struct VIDORRA_API Timebase {
    std::int32_t num = 1;
    std::int32_t den = 1000000;

    constexpr Timebase() noexcept = default;
    constexpr Timebase(std::int32_t numerator, std::int32_t denominator) noexcept
        : num(numerator), den(denominator) {}
    constexpr Timebase(AVRational rational) noexcept : num(rational.num), den(rational.den) {}
    constexpr operator AVRational() const noexcept { return AVRational{num, den}; }

    /// Equal when both numbers are equal; 1/2 is not 2/4.
    friend constexpr bool operator==(Timebase a, Timebase b) noexcept {
        return a.num == b.num && a.den == b.den;
    }
    friend constexpr bool operator!=(Timebase a, Timebase b) noexcept { return !(a == b); }
};

/// A time: a count of units of its base, or a null mark for a time that is not set.
///
///     const Timestamp time(Timebase(1, 25), 250);
///     const std::int64_t microseconds = time.rescale(Timebase()).value;  // 10000000
///     const Timestamp next = time + Timestamp(Timebase(), 40000);        // 251, in units of 1/25 s
///
/// Arithmetic wraps at 64 bits and never fails. Arithmetic and comparison ignore the null mark: a null
/// operand counts with its value, and a sum has the mark of its left operand.
///
/// Comparison is exact within one base. Across bases both counts are converted to the least common multiple
/// of the two denominators, and numerators are ignored: stamps in different bases compare by time only when
/// both numerators are 1. A denominator of 0 on either side makes stamps of different bases equal.
///
/// Threads: a plain value.
struct VIDORRA_API Timestamp {
    Timebase timebase;
    std::int64_t value = 0;
    bool isNull = true;

    /// Null, in microseconds.
    constexpr Timestamp() noexcept = default;
    constexpr Timestamp(Timebase base, std::int64_t count, bool null = false) noexcept
        : timebase(base), value(count), isNull(null) {}

    /// The same time in another base, rounded to the nearest unit, halves away from zero.
    [[nodiscard]] static Timestamp rescale(const Timestamp& time, Timebase to);
    [[nodiscard]] Timestamp rescale(Timebase to) const;

    /// As rescale(), rounded towards plus infinity.
    [[nodiscard]] static Timestamp rescaleUp(const Timestamp& time, Timebase to);

    /// Sum and difference in the base of the left operand; the right one is rescaled to it.
    [[nodiscard]] Timestamp operator+(const Timestamp& other) const;
    [[nodiscard]] Timestamp operator-(const Timestamp& other) const;

    /// The value times `factor` in single precision, truncated to 64 bits.
    [[nodiscard]] Timestamp operator*(float factor) const;

    /// The same count in units that are `divisor` times shorter: the denominator is multiplied, so the count
    /// is not rounded. The multiplication is in single precision, truncated to 32 bits.
    [[nodiscard]] Timestamp operator/(float divisor) const;

    /// "null pts", or the seconds with six decimals, followed by " (num/den)" unless the base is 1/1000000.
    [[nodiscard]] std::string debugDescription() const;
};

VIDORRA_API bool operator==(const Timestamp& a, const Timestamp& b) noexcept;
VIDORRA_API bool operator!=(const Timestamp& a, const Timestamp& b) noexcept;
VIDORRA_API bool operator<(const Timestamp& a, const Timestamp& b) noexcept;
VIDORRA_API bool operator<=(const Timestamp& a, const Timestamp& b) noexcept;
VIDORRA_API bool operator>(const Timestamp& a, const Timestamp& b) noexcept;
VIDORRA_API bool operator>=(const Timestamp& a, const Timestamp& b) noexcept;

/// Writes debugDescription().
VIDORRA_API std::ostream& operator<<(std::ostream& stream, const Timestamp& time);

/// The wall clock: microseconds since 1970, truncated.
[[nodiscard]] VIDORRA_API Timestamp now();

}  // namespace vidorra
