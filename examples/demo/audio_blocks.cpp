#include "audio_blocks.h"

#include <stdexcept>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/audio_fifo.h>
#include <libavutil/channel_layout.h>
}

namespace demo {
namespace {

constexpr int kBlockOfAnySize = 1024;

}  // namespace

AudioBlocks::AudioBlocks(const AVCodecContext& encoder)
    : mRate(encoder.sample_rate),
      // The demonstration encodes in stereo.
      mLayout(static_cast<long>(AV_CH_LAYOUT_STEREO)),
      mFormat(encoder.sample_fmt),
      mBlock(encoder.frame_size > 0 ? encoder.frame_size : kBlockOfAnySize),
      mFifo(av_audio_fifo_alloc(mFormat, 2, mBlock)) {
    if (!mFifo) {
        throw std::bad_alloc();
    }
}

AudioBlocks::~AudioBlocks() = default;

void AudioBlocks::Free::operator()(AVAudioFifo* fifo) const {
    av_audio_fifo_free(fifo);
}

void AudioBlocks::push(const vidorra::AudioFrame& frame) {
    if (mStart.isNull) {
        mStart = frame.timestamp();
    }
    mFlags = frame.flags();
    vidorra::AudioBuffer buffer = frame.audioBuffer();
    const std::vector<std::uint8_t*> planes = buffer.getPointersToPlanes();
    std::vector<void*> data(planes.begin(), planes.end());
    if (av_audio_fifo_write(mFifo.get(), data.data(), static_cast<int>(buffer.numberOfSamples())) < 0) {
        throw std::bad_alloc();
    }
}

std::optional<vidorra::AudioFrame> AudioBlocks::pop() {
    return av_audio_fifo_size(mFifo.get()) >= mBlock ? take(mBlock) : std::nullopt;
}

std::optional<vidorra::AudioFrame> AudioBlocks::popRest() {
    const int rest = av_audio_fifo_size(mFifo.get());
    return rest > 0 ? take(rest) : std::nullopt;
}

std::optional<vidorra::AudioFrame> AudioBlocks::take(int samples) {
    vidorra::AudioBuffer buffer(static_cast<unsigned long>(mLayout), mFormat);
    buffer.setSampleRate(mRate);
    buffer.resize(static_cast<unsigned long>(samples));
    const std::vector<std::uint8_t*> planes = buffer.getPointersToPlanes();
    std::vector<void*> data(planes.begin(), planes.end());
    if (av_audio_fifo_read(mFifo.get(), data.data(), samples) != samples) {
        throw std::runtime_error("samples are missing");
    }
    const vidorra::Timestamp time = mStart + vidorra::Timestamp({1, mRate}, mSamplesOut);
    mSamplesOut += samples;
    vidorra::AudioFrame frame(std::move(buffer), time);
    frame.setFlags(mFlags);
    return frame;
}

}  // namespace demo
