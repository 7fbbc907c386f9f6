#pragma once

#include <deque>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "clip/clip_input.h"
#include "clip/clip_warnings.h"
#include "clip/frame_cutter.h"
#include "clip/packet_gate.h"
#include "clip/ticks.h"
#include "clip/track_clock.h"
#include "clip/track_decoder.h"
#include "vidorra/clip/clip_reader.h"

namespace vidorra {

/// One reading of a source, from a time to the out point: opens the source and its decoders, and gives the
/// frames with times from the source's start.
///
/// A loop makes a new one for each pass, since FFmpeg's demuxers and decoders do not give after a seek what
/// they gave at first: priming comes back or is missing, and noise generators go on. So all passes are equal
/// by construction.
///
/// Threads: one at a time. What the constructor takes has to outlive it.
class ClipPass {
public:
    /// Opens everything, at the in point. Before another pass (`isFollowed`), padding of sound is cut that
    /// FFmpeg leaves where the container tells of it. Throws as ClipReader::open().
    ClipPass(const ClipOrigin& origin, const ClipOptions& options, Interruption& interruption,
             ClipCounts& counts, bool isFollowed);
    ClipPass(const ClipPass&) = delete;
    ClipPass& operator=(const ClipPass&) = delete;
    ~ClipPass();

    /// Whether next() and seek() can go on. After an exception the source may be closed for good.
    [[nodiscard]] bool isOpen() const noexcept { return mInput != nullptr && !mSelected.empty(); }

    [[nodiscard]] const ClipInput& input() const noexcept { return *mInput; }
    [[nodiscard]] const std::vector<ClipTrack>& tracks() const noexcept { return mTracks; }
    [[nodiscard]] std::vector<std::string> unusedOptions() const;

    /// The next frame; nothing at the end, and when interrupted. After an error while reading, the frames
    /// that the decoders hold come first.
    [[nodiscard]] std::optional<PlacedFrame> next();

    /// The time of the first frame when reading began at the start of the source, else 0. Some decoders give
    /// nothing for the first packets, and a loop would have a hole there.
    [[nodiscard]] Ticks lead() const noexcept { return mLead; }

    /// Whether seek() can go to a time. It cannot go back in a source that cannot seek.
    [[nodiscard]] bool canReach(Ticks time) const;

    /// Continues at a time that canReach() allows: with the picture that shows then, and the sample at it.
    /// `isFollowed` as in the constructor.
    void seek(Ticks to, bool isFollowed);

    /// The time of the last key picture at or before a time, or else that time. Loses the place: seek() has
    /// to follow.
    [[nodiscard]] Ticks keyPictureBefore(Ticks time);

private:
    struct Track;

    void open();
    void goTo(Ticks to, Ticks back);
    void skipTo(Ticks to);
    void findLead();
    [[nodiscard]] std::optional<PlacedFrame> nextCut();
    void advance();
    [[nodiscard]] FrameCutter::Range rangeFrom(Ticks from) const;
    void readPacket();
    void drainNext();
    void place(AvPtr<AVFrame> frame);
    [[nodiscard]] Track* trackOf(int stream) const noexcept;
    [[nodiscard]] std::optional<Ticks> sourceTime(std::int64_t stamp, const Track& track) const;

    const ClipOrigin& mOrigin;
    const ClipOptions& mOptions;
    Interruption& mInterruption;
    ClipCounts& mCounts;
    bool mIsFollowed;

    std::unique_ptr<ClipInput> mInput;
    std::vector<ClipTrack> mTracks;
    std::vector<std::unique_ptr<Track>> mSelected;
    // One of mSelected, null without pictures.
    Track* mVideo = nullptr;
    // Whether nothing was read since the source was opened.
    bool mFresh = true;

    // Reading is to give frames from mFrom on, and began so much before it, or at the start of the source.
    Ticks mFrom = 0;
    Ticks mBack = 0;
    bool mFromStart = true;
    FrameCutter mCutter;
    PacketGate mGate;
    Ticks mLead = 0;
    // Frames that were read to find it.
    std::deque<PlacedFrame> mAhead;
    // The track whose decoder may have frames.
    Track* mCurrent = nullptr;
    std::optional<ClipWarnings> mWarnings;
    // Where the last packet of sound ends, when the container counts samples.
    std::optional<Ticks> mSoundEnd;
    std::size_t mDrained = 0;
    bool mEnding = false;
    bool mDone = false;
    std::exception_ptr mError;
};

}  // namespace vidorra
