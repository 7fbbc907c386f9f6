#include "mux/interleaver.h"

#include <algorithm>
#include <utility>

extern "C" {
#include <libavutil/mathematics.h>
}

namespace vidorra {

void Interleaver::addTrack(Timebase base, bool isWaitedFor) {
    mTracks.push_back({base, isWaitedFor, {}});
}

void Interleaver::add(std::size_t track, Packet packet) {
    mWaiting += static_cast<std::size_t>(packet.size);
    mMostWaiting = std::max(mMostWaiting, mWaiting);
    mTracks[track].packets.push_back(std::move(packet));
}

void Interleaver::end(std::size_t track) {
    mTracks[track].isWaitedFor = false;
}

std::optional<std::size_t> Interleaver::next(const std::optional<Cut>& cut) const {
    std::optional<std::size_t> found;
    for (std::size_t i = 0; i < mTracks.size(); ++i) {
        const Track& track = mTracks[i];
        if (cut && cut->track == i) {
            continue;
        }
        if (track.packets.empty()) {
            if (track.isWaitedFor) {
                return std::nullopt;
            }
            continue;
        }
        const Packet& packet = track.packets.front();
        if (cut && av_compare_ts(packet.pts, track.base, cut->time.value, cut->time.timebase) >= 0) {
            continue;
        }
        if (!found || av_compare_ts(packet.dts, track.base, mTracks[*found].packets.front().dts,
                                    mTracks[*found].base) < 0) {
            found = i;
        }
    }
    return found || !cut ? found : cut->track;
}

const Packet* Interleaver::first(std::size_t track) const {
    return mTracks[track].packets.empty() ? nullptr : &mTracks[track].packets.front();
}

Packet Interleaver::take(std::size_t track) {
    Packet packet = std::move(mTracks[track].packets.front());
    mTracks[track].packets.pop_front();
    mWaiting -= static_cast<std::size_t>(packet.size);
    return packet;
}

std::optional<std::size_t> Interleaver::lagging() const {
    for (std::size_t i = 0; i < mTracks.size(); ++i) {
        if (mTracks[i].isWaitedFor && mTracks[i].packets.empty()) {
            return i;
        }
    }
    return std::nullopt;
}

}  // namespace vidorra
