#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <set>

#include "vidorra/demux/packet.h"

namespace vidorra {

/// Gives each packet of a track of pictures the duration until the next picture; the last one that of the
/// picture before it, or the default when it is the only one. A duration that a packet has already is kept.
///
/// Holds packets back until the next picture is known: one, and as many as pictures are reordered by.
class PacketDurations {
public:
    using Take = std::function<void(Packet)>;

    /// `defaultDuration` is in the time base of the packets.
    explicit PacketDurations(std::int64_t defaultDuration) : mDefault(defaultDuration) {}

    /// Takes a packet in the order of decoding, and gives those that are ready, in that order.
    void add(Packet packet, const Take& take);

    /// Gives the rest.
    void end(const Take& take);

private:
    // 0 when it is not known yet.
    [[nodiscard]] std::int64_t durationOf(const Packet& packet, bool isEnd) const;
    void give(bool isEnd, const Take& take);

    std::int64_t mDefault;
    std::deque<Packet> mHeld;
    // When pictures show that can be next to those that are held, or to come.
    std::set<std::int64_t> mTimes;
    std::int64_t mLastDecoded = 0;
};

}  // namespace vidorra
