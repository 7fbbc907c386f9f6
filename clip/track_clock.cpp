#include "clip/track_clock.h"

#include <algorithm>
#include <cstdlib>

namespace vidorra {
namespace {

// The end of a frame, which does not pass what can be counted. A duration that FFmpeg could not count is
// negative.
Ticks endOf(Ticks begin, Ticks duration) {
    return duration >= 0 && duration <= kMostTicks - begin ? begin + duration : std::max(begin, kMostTicks);
}

}  // namespace

TrackClock::Place TrackClock::placeFirst(std::optional<Ticks> stamp, Ticks tolerance) const {
    if (!mFromStart) {
        return {stamp.value_or(0), !stamp};
    }
    if (!stamp) {
        return {0, true};
    }
    if (std::abs(*stamp) <= tolerance) {
        return {0, false};
    }
    return {std::max<Ticks>(*stamp, 0), *stamp < 0};
}

TrackClock::Place TrackClock::placePicture(std::optional<Ticks> stamp, Ticks duration) {
    Place place;
    if (!mEnd) {
        place = placeFirst(stamp, 0);
    } else if (!stamp || *stamp < mLast + kMicrosecond) {
        place = {std::max(*mEnd, mLast + kMicrosecond), true};
    } else {
        place = {*stamp, false};
    }
    mLast = place.time;
    mEnd = endOf(place.time, std::max<Ticks>(duration, 0));
    return place;
}

TrackClock::Place TrackClock::placeSound(std::optional<Ticks> stamp, int samples, int rate) {
    const Ticks tolerance = mPrecision + ticksOfSamples(1, rate);
    Place place;
    if (!mEnd) {
        place = placeFirst(stamp, tolerance);
    } else if (!stamp || *stamp < *mEnd - tolerance) {
        place = {*mEnd, true};
    } else {
        // Sound goes on where it ended, but for a gap.
        place = {*stamp > *mEnd + tolerance ? *stamp : *mEnd, false};
    }
    if (!mEnd || place.time != *mEnd || rate != mRate) {
        mAnchor = place.time;
        mSamples = 0;
        mRate = rate;
    }
    mSamples += samples;
    mEnd = endOf(mAnchor, ticksOfSamples(mSamples, rate));
    return place;
}

}  // namespace vidorra
