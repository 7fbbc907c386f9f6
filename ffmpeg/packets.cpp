#include "ffmpeg/packets.h"

#include <cstddef>
#include <cstdint>

#include "ffmpeg/owners.h"
#include "ffmpeg/versions.h"

extern "C" {
#include <libavcodec/packet.h>
#include <libavutil/avutil.h>
#include <libavutil/dict.h>
#include <libavutil/error.h>
}

namespace vidorra::ffmpeg_ext {

void resetPacket(AVPacket& packet) {
    packet = AVPacket{};
    packet.pts = AV_NOPTS_VALUE;
    packet.dts = AV_NOPTS_VALUE;
    packet.pos = -1;
#if HAVE_PACKET_TIME_BASE
    packet.time_base = AVRational{0, 1};
#endif
}

int packetStrings(const AVPacket& packet, AVDictionary** strings) {
    for (int i = 0; i < packet.side_data_elems; ++i) {
        const AVPacketSideData& entry = packet.side_data[i];
        if (entry.type == AV_PKT_DATA_STRINGS_METADATA) {
            return av_packet_unpack_dictionary(entry.data, entry.size, strings);
        }
    }
    return 0;
}

int setPacketStrings(AVPacket& packet, const AVDictionary* strings) {
#if DICTIONARY_SIZE_IS_INT
    int size = 0;
    std::uint8_t* data = av_packet_pack_dictionary(const_cast<AVDictionary*>(strings), &size);
#else
    std::size_t size = 0;
    std::uint8_t* data = av_packet_pack_dictionary(const_cast<AVDictionary*>(strings), &size);
#endif
    Owner<void> owner = adoptMemory(data);
    if (owner == nullptr) {
        return AVERROR(ENOMEM);
    }
    const int res = av_packet_add_side_data(&packet, AV_PKT_DATA_STRINGS_METADATA, data, size);
    if (res < 0) {
        return res;
    }
    static_cast<void>(owner.release());
    return 0;
}

}  // namespace vidorra::ffmpeg_ext
