#include "mux/packet_durations.h"

#include <iterator>
#include <utility>

namespace vidorra {

std::int64_t PacketDurations::durationOf(const Packet& packet, bool isEnd) const {
    if (packet.duration > 0) {
        return packet.duration;
    }
    const auto next = mTimes.upper_bound(packet.pts);
    if (next != mTimes.end()) {
        // A packet to come is decoded later than this, and shown no earlier than decoded.
        return isEnd || *next <= mLastDecoded + 1 ? *next - packet.pts : 0;
    }
    if (!isEnd) {
        return 0;
    }
    const auto own = mTimes.find(packet.pts);
    return own != mTimes.begin() && own != mTimes.end() ? packet.pts - *std::prev(own) : mDefault;
}

void PacketDurations::give(bool isEnd, const Take& take) {
    while (!mHeld.empty()) {
        const std::int64_t duration = durationOf(mHeld.front(), isEnd);
        if (duration == 0) {
            return;
        }
        Packet packet = std::move(mHeld.front());
        mHeld.pop_front();
        packet.duration = duration;
        take(std::move(packet));
    }
}

void PacketDurations::add(Packet packet, const Take& take) {
    mTimes.insert(packet.pts);
    mLastDecoded = packet.dts;
    mHeld.push_back(std::move(packet));
    give(false, take);
    // One before the earliest that may come is kept, for the duration of the last one.
    const std::int64_t earliest = mHeld.empty() ? mLastDecoded : mHeld.front().dts;
    while (mTimes.size() > 2 && *std::next(mTimes.begin()) < earliest) {
        mTimes.erase(mTimes.begin());
    }
}

void PacketDurations::end(const Take& take) {
    give(true, take);
}

}  // namespace vidorra
