#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>

#include "vidorra/core/export.h"
#include "vidorra/core/timestamp.h"

namespace vidorra {

/// A timecode of SMPTE ST 12-1: hours, minutes, seconds, frames and a drop mark, for one frame rate.
///
///     frame.addSideData(SMPTE12Timecode(10, 0, 0, 12, false, Timebase(1, 25)));
///
/// Threads: a plain value.
class VIDORRA_API SMPTE12Timecode {
public:
    /// `timebase` is the duration of one frame, such as 1001/30000. `frames` is not checked. Throws
    /// std::range_error for hours above 23, minutes above 59 or seconds above 59; the message names the
    /// first of these.
    SMPTE12Timecode(unsigned char hours, unsigned char minutes, unsigned char seconds, unsigned int frames,
                    bool dropped, Timebase timebase);

    /// Splits a frame number, counted from 0, at the frame rate rounded up to a whole number: at 1001/30000
    /// each second has 30 numbers. Numbers wrap after a day. The drop mark is stored but skips no numbers.
    /// Meaningless if either member of the time base is below 1.
    SMPTE12Timecode(long frameNumber, bool dropped, Timebase timebase);

    [[nodiscard]] std::uint8_t hours() const noexcept { return mHours; }
    [[nodiscard]] std::uint8_t minutes() const noexcept { return mMinutes; }
    [[nodiscard]] std::uint8_t seconds() const noexcept { return mSeconds; }
    [[nodiscard]] bool dropped() const noexcept { return mDropped; }
    [[nodiscard]] std::uint32_t frames() const noexcept { return mFrames; }
    /// The duration of one frame.
    [[nodiscard]] Timebase timebase() const noexcept { return mTimebase; }

    /// The word of SMPTE ST 12-1, in the form of FFmpeg's side data AV_FRAME_DATA_S12M_TIMECODE. Above 30
    /// frames a second it counts pairs of frames and marks the second frame of a pair.
    [[nodiscard]] std::uint32_t toBinaryCodedDecimal() const;

    /// "01:02:03:04 dropped (1001/30000)", or without the word.
    [[nodiscard]] std::string debugDescription() const;

    /// Compares everything, including the drop mark and the frame rate.
    friend bool operator==(const SMPTE12Timecode& a, const SMPTE12Timecode& b) noexcept {
        return a.mHours == b.mHours && a.mMinutes == b.mMinutes && a.mSeconds == b.mSeconds &&
               a.mDropped == b.mDropped && a.mFrames == b.mFrames && a.mTimebase == b.mTimebase;
    }
    friend bool operator!=(const SMPTE12Timecode& a, const SMPTE12Timecode& b) noexcept { return !(a == b); }

private:
    std::uint8_t mHours;
    std::uint8_t mMinutes;
    std::uint8_t mSeconds;
    bool mDropped;
    std::uint32_t mFrames;
    Timebase mTimebase;
};

/// Writes debugDescription().
VIDORRA_API std::ostream& operator<<(std::ostream& stream, const SMPTE12Timecode& timecode);

}  // namespace vidorra
