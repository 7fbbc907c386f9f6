#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "vidorra/picture/audio_buffer.h"

struct SwrContext;

namespace vidorra::test {

/// Direct use of libswresample, with the options of Resampler and more room for output than it can need.
class PlainResampling {
public:
    PlainResampling(const AudioBuffer& like, int outRate, std::uint64_t outLayout, AVSampleFormat outFormat);

    /// The bytes of each plane.
    std::vector<std::vector<std::uint8_t>> convert(const AudioBuffer& input);

    std::int64_t delayInMicroseconds() const;

    SwrContext* context() const { return mContext.get(); }

private:
    std::unique_ptr<SwrContext, void (*)(SwrContext*)> mContext;
    int mChannels;
    AVSampleFormat mFormat;
};

/// The bytes of each plane that hold samples.
std::vector<std::vector<std::uint8_t>> bytesOf(const AudioBuffer& buffer);

/// `samples` samples, from sample `start` on, with a different tone in each channel.
AudioBuffer tones(std::uint64_t layout, AVSampleFormat format, int rate, int samples, int start = 0);

}  // namespace vidorra::test
