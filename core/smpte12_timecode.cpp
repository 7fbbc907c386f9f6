#include "vidorra/core/smpte12_timecode.h"

#include <ostream>
#include <stdexcept>

#include "ffmpeg/timecode.h"
#include "vidorra/core/format.h"

namespace vidorra {
namespace {

// Whole frames a second, rounded up; 1 for a meaningless time base.
long nominalRate(Timebase timebase) {
    if (timebase.num <= 0 || timebase.den <= 0) {
        return 1;
    }
    return (long{timebase.den} + timebase.num - 1) / timebase.num;
}

}  // namespace

SMPTE12Timecode::SMPTE12Timecode(unsigned char hours, unsigned char minutes, unsigned char seconds,
                                 unsigned int frames, bool dropped, Timebase timebase)
    : mHours(hours),
      mMinutes(minutes),
      mSeconds(seconds),
      mDropped(dropped),
      mFrames(frames),
      mTimebase(timebase) {
    if (hours > 23) {
        throw std::range_error("hours is out of range (valid: 0..23)");
    }
    if (minutes > 59) {
        throw std::range_error("minutes is out of range (valid: 0..59)");
    }
    if (seconds > 59) {
        throw std::range_error("seconds is out of range (valid: 0..59)");
    }
}

SMPTE12Timecode::SMPTE12Timecode(long frameNumber, bool dropped, Timebase timebase)
    : mDropped(dropped), mTimebase(timebase) {
    const long fps = nominalRate(timebase);
    mFrames = static_cast<std::uint32_t>(frameNumber % fps);
    mSeconds = static_cast<std::uint8_t>(frameNumber / fps % 60);
    mMinutes = static_cast<std::uint8_t>(frameNumber / (fps * 60) % 60);
    mHours = static_cast<std::uint8_t>(frameNumber / (fps * 3600) % 24);
}

std::uint32_t SMPTE12Timecode::toBinaryCodedDecimal() const {
    return ffmpeg_ext::smpteTimecode(mTimebase.den, mTimebase.num, mDropped, mHours, mMinutes, mSeconds,
                                     mFrames);
}

std::string SMPTE12Timecode::debugDescription() const {
    return fmt::format("{:02}:{:02}:{:02}:{:02} {}({}/{})", mHours, mMinutes, mSeconds, mFrames,
                       mDropped ? "dropped " : "", mTimebase.num, mTimebase.den);
}

std::ostream& operator<<(std::ostream& stream, const SMPTE12Timecode& timecode) {
    return stream << timecode.debugDescription();
}

}  // namespace vidorra
