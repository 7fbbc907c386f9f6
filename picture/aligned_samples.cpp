#include "picture/aligned_samples.h"

#include <cstddef>
#include <cstdint>

#include "ffmpeg/channels.h"
#include "vidorra/core/av_ptr.h"

extern "C" {
#include <libavutil/buffer.h>
#include <libavutil/cpu.h>
#include <libavutil/error.h>
#include <libavutil/frame.h>
#include <libavutil/samplefmt.h>
}

namespace vidorra {
namespace {

// Whether the frame's memory for a plane holds `size` bytes from the plane's start on.
bool hasRoom(AVFrame& frame, int plane, int size) {
    const AVBufferRef* buffer = av_frame_get_plane_buffer(&frame, plane);
    if (buffer == nullptr) {
        return false;
    }
    const std::ptrdiff_t start = frame.extended_data[plane] - buffer->data;
    return static_cast<std::ptrdiff_t>(buffer->size) - start >= size;
}

}  // namespace

int alignSamples(AVFrame& frame) {
    if (frame.nb_samples <= 0 || frame.buf[0] == nullptr) {
        return 0;
    }
    const auto format = static_cast<AVSampleFormat>(frame.format);
    const int channels = ffmpeg_ext::channelCount(frame);
    // The bytes of a plane without padding, and with the padding of FFmpeg's own frames.
    int used = 0;
    int padded = 0;
    if (av_samples_get_buffer_size(&used, channels, frame.nb_samples, format, 1) < 0 ||
        av_samples_get_buffer_size(&padded, channels, frame.nb_samples, format, 0) < 0) {
        return AVERROR(EINVAL);
    }
    bool isAligned = true;
    for (int plane = 0; plane < (av_sample_fmt_is_planar(format) != 0 ? channels : 1); ++plane) {
        const std::uint8_t* data = frame.extended_data[plane];
        if (data == nullptr) {
            return AVERROR(EINVAL);
        }
        isAligned = isAligned && reinterpret_cast<std::uintptr_t>(data) % av_cpu_max_align() == 0 &&
                    (padded == used || hasRoom(frame, plane, padded));
    }
    if (isAligned) {
        return 0;
    }
    // While its memory has a second owner, making the frame writable moves it into memory of its own.
    const AvPtr<AVFrame> owner(av_frame_clone(&frame), [](AVFrame* freed) { av_frame_free(&freed); });
    return owner != nullptr ? av_frame_make_writable(&frame) : AVERROR(ENOMEM);
}

}  // namespace vidorra
