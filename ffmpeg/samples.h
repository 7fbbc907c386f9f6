#pragma once

#include <cstdint>

extern "C" {
#include <libavutil/samplefmt.h>
}

/// What FFmpeg's sample functions lack.
namespace vidorra::ffmpeg_ext {

/// av_samples_get_buffer_size without padding: the bytes of `samples` samples in each of `channels` channels,
/// or a negative FFmpeg code. Unlike FFmpeg's, it takes 0 samples, of valid channels and format, for a size
/// of 0.
int sampleBufferSize(int channels, std::uint64_t samples, AVSampleFormat format);

}  // namespace vidorra::ffmpeg_ext
