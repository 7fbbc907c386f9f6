// For an FFmpeg that has this function itself.
#include "ffmpeg/chapters.h"

#include <cstdint>

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace vidorra::ffmpeg_ext {

int av_side_data_set_chapter_metadata(AVPacket* packet, long first, unsigned long second, const char* title) {
    return ::av_side_data_set_chapter_metadata(packet, first, second, title);
}

}  // namespace vidorra::ffmpeg_ext
