#pragma once

#include <cstddef>
#include <deque>
#include <optional>
#include <vector>

#include "vidorra/core/timestamp.h"
#include "vidorra/demux/packet.h"

namespace vidorra {

/// Brings the packets of all tracks into one order, that of decoding. A packet waits until each track has one
/// to compare it with, or has ended. Tracks of subtitles and data are not waited for: they have long pauses.
class Interleaver {
public:
    /// Where the file is to be cut: before the first packet of a track.
    struct Cut {
        std::size_t track;
        Timestamp time;
    };

    /// Adds a track, whose packets have their times in `base`.
    void addTrack(Timebase base, bool isWaitedFor);

    void add(std::size_t track, Packet packet);

    /// No packet follows in a track.
    void end(std::size_t track);

    /// The track whose first packet is next, or nothing while another one is waited for. Before a cut these
    /// are the packets of other tracks that show before its time, and then that of the cut.
    [[nodiscard]] std::optional<std::size_t> next(const std::optional<Cut>& cut) const;

    /// The first packet of a track, null when it has none.
    [[nodiscard]] const Packet* first(std::size_t track) const;
    [[nodiscard]] Packet take(std::size_t track);

    [[nodiscard]] bool isWaitedFor(std::size_t track) const { return mTracks[track].isWaitedFor; }

    /// The bytes that wait, and the most that ever did.
    [[nodiscard]] std::size_t waiting() const noexcept { return mWaiting; }
    [[nodiscard]] std::size_t mostWaiting() const noexcept { return mMostWaiting; }

    /// The track that the others wait for.
    [[nodiscard]] std::optional<std::size_t> lagging() const;

private:
    struct Track {
        Timebase base;
        // Until it ends.
        bool isWaitedFor;
        std::deque<Packet> packets;
    };

    std::vector<Track> mTracks;
    std::size_t mWaiting = 0;
    std::size_t mMostWaiting = 0;
};

}  // namespace vidorra
