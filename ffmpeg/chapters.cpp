#include "ffmpeg/chapters.h"

#include <array>
#include <string>
#include <utility>

#include "ffmpeg/owners.h"
#include "ffmpeg/packets.h"

extern "C" {
#include <libavcodec/packet.h>
#include <libavutil/dict.h>
}

namespace vidorra::ffmpeg_ext {

int av_side_data_set_chapter_metadata(AVPacket* packet, long first, unsigned long second, const char* title) {
    const std::array<std::pair<const char*, std::string>, 3> chapter = {
        {{"chapter-first", std::to_string(first)},
         {"chapter-second", std::to_string(second)},
         {"chapter-title", title}}};
    AVDictionary* strings = nullptr;
    int res = packetStrings(*packet, &strings);
    for (const auto& [key, value] : chapter) {
        if (res >= 0) {
            res = av_dict_set(&strings, key, value.c_str(), 0);
        }
    }
    const Owner<AVDictionary> owner = adopt(strings);
    return res < 0 ? res : setPacketStrings(*packet, strings);
}

}  // namespace vidorra::ffmpeg_ext
