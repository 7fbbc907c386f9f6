#pragma once

#include <cstdint>

extern "C" {
#include <libavutil/samplefmt.h>
}

/// Additions to FFmpeg's sample functions.
namespace vidorra::ffmpeg_ext {

/// av_samples_get_buffer_size without padding: the bytes of `samples` samples in each of `channels`
/// channels, or a negative FFmpeg code. Unlike FFmpeg's function it returns 0 for 0 samples, if channels and
/// format are valid.
int sampleBufferSize(int channels, std::uint64_t samples, AVSampleFormat format);

}  // namespace vidorra::ffmpeg_ext
