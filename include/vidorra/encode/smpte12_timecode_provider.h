#pragma once

#include <optional>

#include "vidorra/core/export.h"
#include "vidorra/core/smpte12_timecode.h"
#include "vidorra/core/timestamp.h"

namespace vidorra {

/// Turns the presentation times of one stream into timecodes.
///
///     SMPTE12TimecodeProvider provider(Timebase(1001, 30000));
///     frame.addSideData(provider.nextTimecode(frame.timestamp()));
///
/// At a whole frame rate the timecode is the number of the frame, counted from time 0. At a fractional rate,
/// such as 29.97, numbers run at the rate rounded up. To keep them in step with the clock, each cycle of
/// 1001 seconds skips as many numbers as they would fall behind, a few at a time. The first numbers of a
/// cycle (24 seconds at 23.976, 30 at 29.97 and 60 at 59.94) have no drop mark. All others have it, are one
/// higher than the count, and are never the first of their second.
///
/// A timecode that would repeat the latest one is increased by one. Since only the latest is compared, equal
/// times give two timecodes in turns, and at a fractional rate numbers may step back by one where a new
/// second begins.
///
/// Threads: one at a time; one object for each stream.
class VIDORRA_API SMPTE12TimecodeProvider {
public:
    /// `frameDuration` is one frame of the stream in seconds, such as 1/25 or 1001/30000.
    explicit SMPTE12TimecodeProvider(Timebase frameDuration) noexcept : mFrameDuration(frameDuration) {}

    /// The timecode of the frame at a time, which must be in microseconds. Throws std::invalid_argument for
    /// a frame duration that is not positive and for a time below 0; the latest timecode stays unchanged.
    [[nodiscard]] SMPTE12Timecode nextTimecode(const Timestamp& timestamp);

private:
    std::optional<SMPTE12Timecode> mLast;
    Timebase mFrameDuration;
};

}  // namespace vidorra
