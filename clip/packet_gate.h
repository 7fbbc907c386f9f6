#pragma once

#include <deque>
#include <optional>

#include "clip/ticks.h"
#include "vidorra/core/av_ptr.h"

namespace vidorra {

/// Holds packets of pictures back, on the way to a time, and leaves out those before the last key picture at
/// or before it, so that they need not be decoded. Opens when that key picture is known, and then lets
/// everything pass.
///
/// Threads: one at a time.
class PacketGate {
public:
    /// Open from the beginning.
    PacketGate() = default;

    /// Closed until packets for `time` come, counted as their stamps are.
    explicit PacketGate(Ticks time) : mTime(time) {}

    /// Packets come in the order of decoding, with stamps in units of `base`.
    void add(AvPtr<AVPacket> packet, AVRational base);

    /// No more packets come.
    void open() { mTime.reset(); }

    /// The next packet to decode; null when there is none, or it is not known yet.
    [[nodiscard]] AvPtr<AVPacket> next();

    /// Whether a packet was left out.
    [[nodiscard]] bool hasDropped() const noexcept { return mDropped; }

private:
    std::optional<Ticks> mTime;
    std::deque<AvPtr<AVPacket>> mHeld;
    std::size_t mBytes = 0;
    bool mDropped = false;
};

}  // namespace vidorra
