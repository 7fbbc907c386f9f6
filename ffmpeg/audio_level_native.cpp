// For an FFmpeg that has this function itself.
#include "ffmpeg/audio_level.h"

extern "C" void av_audio_level_calc(const void* samples, std::int64_t count, std::int64_t channels,
                                    AVSampleFormat format, void* level);

namespace vidorra::ffmpeg_ext {

void av_audio_level_calc(const void* samples, std::int64_t count, std::int64_t channels,
                         AVSampleFormat format, AudioLevelRecord* level) {
    ::av_audio_level_calc(samples, count, channels, format, level);
}

}  // namespace vidorra::ffmpeg_ext
