#include "vidorra/core/timestamp.h"

#include <ctime>
#include <limits>
#include <numeric>
#include <ostream>

#include "core/wrapping.h"
#include "vidorra/core/format.h"

extern "C" {
#include <libavutil/mathematics.h>
}

namespace vidorra {
namespace {

// Truncates as the hardware does: a value that does not fit, including NaN, becomes the lowest value.
template <class Int>
Int truncateTo(float value) {
    constexpr auto kLowest = static_cast<float>(std::numeric_limits<Int>::min());
    return value >= kLowest && value < -kLowest ? static_cast<Int>(value) : std::numeric_limits<Int>::min();
}

std::uint64_t magnitude(std::int32_t number) {
    const std::int64_t wide = number;
    return static_cast<std::uint64_t>(wide < 0 ? -wide : wide);
}

// The count of a stamp on the scale for comparison. Deliberate: the numerator is ignored, callers rely on
// it.
std::int64_t onScale(const Timestamp& time, std::uint64_t scale) {
    if (time.timebase.den == 0) {
        return 0;
    }
    const std::int64_t product = wrappingMultiply(time.value, static_cast<std::int64_t>(scale));
    // The only quotient that does not fit wraps too.
    return time.timebase.den == -1 ? wrappingSubtract(0, product) : product / time.timebase.den;
}

int compare(const Timestamp& a, const Timestamp& b) {
    std::int64_t left = a.value;
    std::int64_t right = b.value;
    if (a.timebase != b.timebase) {
        const std::uint64_t scale = std::lcm(magnitude(a.timebase.den), magnitude(b.timebase.den));
        left = onScale(a, scale);
        right = onScale(b, scale);
    }
    return left < right ? -1 : left > right ? 1 : 0;
}

}  // namespace

Timestamp Timestamp::rescale(const Timestamp& time, Timebase to) {
    return {to, av_rescale_q(time.value, time.timebase, to), time.isNull};
}

Timestamp Timestamp::rescale(Timebase to) const {
    return rescale(*this, to);
}

Timestamp Timestamp::rescaleUp(const Timestamp& time, Timebase to) {
    const std::int64_t multiplier = std::int64_t{time.timebase.num} * to.den;
    const std::int64_t divisor = std::int64_t{time.timebase.den} * to.num;
    return {to, av_rescale_rnd(time.value, multiplier, divisor, AV_ROUND_UP), time.isNull};
}

Timestamp Timestamp::operator+(const Timestamp& other) const {
    return {timebase, wrappingAdd(value, other.rescale(timebase).value), isNull};
}

Timestamp Timestamp::operator-(const Timestamp& other) const {
    return {timebase, wrappingSubtract(value, other.rescale(timebase).value), isNull};
}

Timestamp Timestamp::operator*(float factor) const {
    return {timebase, truncateTo<std::int64_t>(static_cast<float>(value) * factor), isNull};
}

Timestamp Timestamp::operator/(float divisor) const {
    // Deliberate: the base changes, not the count.
    const float denominator = static_cast<float>(timebase.den) * divisor;
    return {Timebase(timebase.num, truncateTo<std::int32_t>(denominator)), value, isNull};
}

std::string Timestamp::debugDescription() const {
    if (isNull) {
        return "null pts";
    }
    const double seconds =
        static_cast<double>(value) * static_cast<double>(timebase.num) / static_cast<double>(timebase.den);
    std::string text = fmt::format("{:0.6f}", seconds);
    if (timebase != Timebase()) {
        text += fmt::format(" ({}/{})", timebase.num, timebase.den);
    }
    return text;
}

bool operator==(const Timestamp& a, const Timestamp& b) noexcept {
    return compare(a, b) == 0;
}
bool operator!=(const Timestamp& a, const Timestamp& b) noexcept {
    return compare(a, b) != 0;
}
bool operator<(const Timestamp& a, const Timestamp& b) noexcept {
    return compare(a, b) < 0;
}
bool operator<=(const Timestamp& a, const Timestamp& b) noexcept {
    return compare(a, b) <= 0;
}
bool operator>(const Timestamp& a, const Timestamp& b) noexcept {
    return compare(a, b) > 0;
}
bool operator>=(const Timestamp& a, const Timestamp& b) noexcept {
    return compare(a, b) >= 0;
}

std::ostream& operator<<(std::ostream& stream, const Timestamp& time) {
    return stream << time.debugDescription();
}

Timestamp now() {
    timespec time{};
    clock_gettime(CLOCK_REALTIME, &time);
    return {Timebase(), std::int64_t{time.tv_sec} * 1000000 + time.tv_nsec / 1000};
}

}  // namespace vidorra
