#include "ffmpeg/audio_level.h"

#include <algorithm>
#include <cmath>

namespace vidorra::ffmpeg_ext {
namespace {

struct Sum {
    double peak = 0;
    double squares = 0;
};

constexpr std::int64_t kMaxChannels = 8;

// `scale` makes full scale 1; `zero` is the value of silence.
template <class Sample>
void measure(const void* data, std::int64_t count, std::int64_t channels, double zero, double scale,
             AudioLevelRecord& level) {
    const auto* samples = static_cast<const Sample*>(data);
    for (std::int64_t channel = 0; channel < std::min(channels, kMaxChannels); ++channel) {
        Sum sum;
        for (std::int64_t i = 0; i < count; ++i) {
            const double value = (static_cast<double>(samples[i * channels + channel]) - zero) * scale;
            // A NaN counts as silence.
            const double magnitude = std::isnan(value) ? 0 : std::min(std::abs(value), 1.0);
            sum.peak = std::max(sum.peak, magnitude);
            sum.squares += magnitude * magnitude;
        }
        level.peak[channel] = static_cast<float>(sum.peak);
        level.rms[channel] =
            static_cast<float>(count > 0 ? std::sqrt(sum.squares / static_cast<double>(count)) : 0);
    }
}

}  // namespace

void av_audio_level_calc(const void* samples, std::int64_t count, std::int64_t channels,
                         AVSampleFormat format, AudioLevelRecord* level) {
    switch (av_get_packed_sample_fmt(format)) {
    case AV_SAMPLE_FMT_U8:
        measure<std::uint8_t>(samples, count, channels, 128, 0x1p-7, *level);
        break;
    case AV_SAMPLE_FMT_S16:
        measure<std::int16_t>(samples, count, channels, 0, 0x1p-15, *level);
        break;
    case AV_SAMPLE_FMT_S32:
        measure<std::int32_t>(samples, count, channels, 0, 0x1p-31, *level);
        break;
    case AV_SAMPLE_FMT_S64:
        measure<std::int64_t>(samples, count, channels, 0, 0x1p-63, *level);
        break;
    case AV_SAMPLE_FMT_FLT:
        measure<float>(samples, count, channels, 0, 1, *level);
        break;
    case AV_SAMPLE_FMT_DBL:
        measure<double>(samples, count, channels, 0, 1, *level);
        break;
    default:
        break;
    }
}

}  // namespace vidorra::ffmpeg_ext
