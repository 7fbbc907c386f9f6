#pragma once

#include <optional>

#include "clip/ticks.h"

namespace vidorra {

/// Gives the frames of one track times that rise: pictures at their own, sound by the count of its samples,
/// as long as the stamps of the source agree with that to their own precision.
class TrackClock {
public:
    struct Place {
        Ticks time = 0;
        /// Whether the time was missing or did not rise.
        bool repaired = false;
    };

    /// `precision` is the unit of the stamps. The first frame of a track that is read from its start is at 0
    /// or later.
    TrackClock(Ticks precision, bool fromStart) noexcept : mPrecision(precision), mFromStart(fromStart) {}

    /// The next picture.
    Place placePicture(std::optional<Ticks> stamp, Ticks duration);

    /// The next samples.
    Place placeSound(std::optional<Ticks> stamp, int samples, int rate);

    /// The end of the last frame; nothing before the first.
    [[nodiscard]] std::optional<Ticks> end() const noexcept { return mEnd; }

private:
    [[nodiscard]] Place placeFirst(std::optional<Ticks> stamp, Ticks tolerance) const;

    Ticks mPrecision;
    bool mFromStart;
    Ticks mLast = 0;
    std::optional<Ticks> mEnd;
    // Sound is counted from here on.
    Ticks mAnchor = 0;
    std::int64_t mSamples = 0;
    int mRate = 0;
};

}  // namespace vidorra
