#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "vidorra/core/av_ptr.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/frame.h>
}

namespace vidorra::test {

using ContextPtr = std::unique_ptr<AVCodecContext, void (*)(AVCodecContext*)>;

/// A codec context that is not open, with the settings that a graph reads: 64x48 YUV420P in 1/25 without a
/// range, or 48000 Hz S16 in 1/48000, stereo unless told.
ContextPtr videoContext();
ContextPtr audioContext(std::uint64_t layout = 3);

/// A picture in one colour: every byte of plane i is values[i]. Size and format are those of videoContext().
AvPtr<AVFrame> plainPicture(std::uint8_t luma, std::uint8_t chroma, std::int64_t pts = 0);
AvPtr<AVFrame> plainPicture(AVPixelFormat format, int width, int height);

/// Interleaved stereo samples at 48000 Hz.
AvPtr<AVFrame> stereo(const std::vector<std::int16_t>& samples, std::int64_t pts = 0);

/// The samples of an interleaved frame.
std::vector<std::int16_t> samplesOf(const AVFrame& frame);

}  // namespace vidorra::test
