#include "ffmpeg/samples.h"

#include <climits>

extern "C" {
#include <libavutil/error.h>
}

namespace vidorra::ffmpeg_ext {

int sampleBufferSize(int channels, std::uint64_t samples, AVSampleFormat format) {
    if (samples == 0) {
        return channels > 0 && av_get_bytes_per_sample(format) > 0 ? 0 : AVERROR(EINVAL);
    }
    if (samples > INT_MAX) {
        return AVERROR(EINVAL);
    }
    return av_samples_get_buffer_size(nullptr, channels, static_cast<int>(samples), format, 1);
}

}  // namespace vidorra::ffmpeg_ext
