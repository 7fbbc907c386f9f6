#pragma once

#include <cstdint>

extern "C" {
#include <libavutil/samplefmt.h>
}

namespace vidorra::ffmpeg_ext {

/// The loudness of up to eight channels, in the layout that av_audio_level_calc fills.
struct AudioLevelRecord {
    float peak[8];
    float rms[8];
};

/// Measures interleaved samples: for each of the first eight channels the greatest magnitude and the root
/// mean square. Both are linear with full scale at 1, and floating-point samples are clamped to full scale.
/// Some FFmpeg builds have this function, under the same name. Planar formats are treated as their
/// interleaved counterparts. Nothing is written for an unknown format.
void av_audio_level_calc(const void* samples, std::int64_t count, std::int64_t channels,
                         AVSampleFormat format, AudioLevelRecord* level);

}  // namespace vidorra::ffmpeg_ext
