#include "clip/packet_gate.h"

#include <utility>

extern "C" {
#include <libavcodec/packet.h>
}

namespace vidorra {
namespace {

constexpr std::size_t kMostBytes = std::size_t{64} << 20;

// Later packets may need what such a packet says.
bool changesTheStream(const AVPacket& packet) {
    for (int i = 0; i < packet.side_data_elems; ++i) {
        const AVPacketSideDataType type = packet.side_data[i].type;
        if (type == AV_PKT_DATA_NEW_EXTRADATA || type == AV_PKT_DATA_PARAM_CHANGE) {
            return true;
        }
    }
    return false;
}

}  // namespace

void PacketGate::add(AvPtr<AVPacket> packet, AVRational base) {
    if (mTime) {
        const std::optional<Ticks> shown = ticksOf(packet->pts, base);
        const std::optional<Ticks> decoded =
            ticksOf(packet->dts != AV_NOPTS_VALUE ? packet->dts : packet->pts, base);
        if (!shown || !decoded || *decoded > *mTime || changesTheStream(*packet) || mBytes > kMostBytes) {
            open();
        } else if ((packet->flags & AV_PKT_FLAG_KEY) != 0 && *shown <= *mTime + kHalfMicrosecond) {
            mDropped = mDropped || !mHeld.empty();
            mHeld.clear();
            mBytes = 0;
        }
    }
    mBytes += static_cast<std::size_t>(packet->size);
    mHeld.push_back(std::move(packet));
}

AvPtr<AVPacket> PacketGate::next() {
    if (mTime || mHeld.empty()) {
        return {nullptr, [](AVPacket*) {}};
    }
    AvPtr<AVPacket> packet = std::move(mHeld.front());
    mHeld.pop_front();
    return packet;
}

}  // namespace vidorra
