#pragma once

#include <cstdint>
#include <new>
#include <vector>

#include "ffmpeg/channels.h"
#include "vidorra/core/av_ptr.h"

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/samplefmt.h>
}

namespace vidorra::test {

/// Stereo sound in planes of 16 bits, whose left samples count from `first` and whose right ones are their
/// negatives.
inline AvPtr<AVFrame> countingSamples(int first, int samples, int rate) {
    AvPtr<AVFrame> frame = makeAvPtr<AVFrame>();
    frame->format = AV_SAMPLE_FMT_S16P;
    frame->sample_rate = rate;
    frame->nb_samples = samples;
    ffmpeg_ext::setChannelMask(*frame, 0x3);
    if (av_frame_get_buffer(frame.get(), 0) < 0) {
        throw std::bad_alloc();
    }
    for (int i = 0; i < samples; ++i) {
        reinterpret_cast<std::int16_t*>(frame->data[0])[i] = static_cast<std::int16_t>(first + i);
        reinterpret_cast<std::int16_t*>(frame->data[1])[i] = static_cast<std::int16_t>(-(first + i));
    }
    return frame;
}

/// The left samples, -1000000 for one whose right sample is not its negative.
inline std::vector<int> samplesOf(const AVFrame& frame) {
    std::vector<int> result;
    for (int i = 0; i < frame.nb_samples; ++i) {
        const int left = reinterpret_cast<const std::int16_t*>(frame.extended_data[0])[i];
        const int right = reinterpret_cast<const std::int16_t*>(frame.extended_data[1])[i];
        result.push_back(left == -right ? left : -1000000);
    }
    return result;
}

}  // namespace vidorra::test
