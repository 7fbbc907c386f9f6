#pragma once

#include <deque>
#include <optional>

#include "clip/ticks.h"
#include "vidorra/core/av_ptr.h"

namespace vidorra {

/// A decoded frame at its place in the source.
struct PlacedFrame {
    AvPtr<AVFrame> frame;
    bool picture = false;
    Ticks time = 0;
    Ticks duration = 0;
};

/// Cuts the frames of a pass to the time between two points: sound to the sample; of the pictures before the
/// first point, the one that shows at it stays, and begins there.
///
/// Threads: one at a time.
class FrameCutter {
public:
    struct Range {
        Ticks from = 0;
        Ticks to = 0;
        /// Whether pictures before `from` may come. Without, all up to `to` stay.
        bool approach = false;
        /// Whether sound after the last picture is cut too.
        bool endWithPictures = false;
        /// Whether finish() may cut the last sound.
        bool cutPadding = false;
    };

    explicit FrameCutter(const Range& range) noexcept : mRange(range) {}

    /// Frames of a kind come in the order of their times.
    void add(PlacedFrame frame);

    /// No more frames come. With Range::cutPadding sound after `soundEnd` is cut, where that is known.
    void finish(std::optional<Ticks> soundEnd);

    /// The next frame that is cut; nothing when more have to be added first, or none is left.
    [[nodiscard]] std::optional<PlacedFrame> next();

    /// Whether a picture at or before the first point came, or none is waited for.
    [[nodiscard]] bool hasFirstPicture() const noexcept { return !mRange.approach || mFirst; }

    /// Whether frames of a kind have passed the last point, so that no more of them are needed.
    [[nodiscard]] bool pastEnd(bool pictures) const noexcept { return pictures ? mPicturesPast : mSoundPast; }

private:
    void addPicture(PlacedFrame frame);
    void addSound(PlacedFrame frame);
    void giveFirst(Ticks until);
    void givePicture(PlacedFrame frame);
    void releaseSound();

    Range mRange;
    // The last picture at or before the first point, while a later one could be the one.
    std::optional<PlacedFrame> mFirst;
    bool mPicturesPast = false;
    bool mSoundPast = false;
    bool mFinished = false;
    std::optional<Ticks> mPicturesEnd;
    // Sound that may have to be cut where the pictures end.
    std::deque<PlacedFrame> mSoundAhead;
    std::deque<PlacedFrame> mReady;
};

}  // namespace vidorra
