#include "ffmpeg/chapters.h"

#include <cstdint>
#include <memory>
#include <string>

#include "ffmpeg/packets.h"

extern "C" {
#include <libavcodec/packet.h>
#include <libavutil/dict.h>
#include <libavutil/mem.h>
}

namespace vidorra::ffmpeg_ext {
namespace {

struct StringsGuard {
    AVDictionary* strings = nullptr;
    ~StringsGuard() { av_dict_free(&strings); }
};

int setString(AVDictionary** strings, const char* key, const std::string& value) {
    return av_dict_set(strings, key, value.c_str(), 0);
}

}  // namespace

int av_side_data_set_chapter_metadata(AVPacket* packet, long first, unsigned long second, const char* title) {
    StringsGuard guard;
    int res = packetStrings(*packet, &guard.strings);
    if (res >= 0) {
        res = setString(&guard.strings, "chapter-first", std::to_string(first));
    }
    if (res >= 0) {
        res = setString(&guard.strings, "chapter-second", std::to_string(second));
    }
    if (res >= 0) {
        res = setString(&guard.strings, "chapter-title", title);
    }
    return res < 0 ? res : setPacketStrings(*packet, guard.strings);
}

}  // namespace vidorra::ffmpeg_ext
