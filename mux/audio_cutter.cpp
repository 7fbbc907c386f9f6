#include "mux/audio_cutter.h"

#include <algorithm>
#include <new>
#include <stdexcept>
#include <vector>

#include "ffmpeg/channels.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/audio_fifo.h>
#include <libavutil/mathematics.h>
}

namespace vidorra {
namespace {

// For encoders that take any number.
constexpr int kAnyFrameSize = 1024;

// How far times may be off before they count: a hundredth of a second.
constexpr int kJitterPerSecond = 100;

// More than a resampler's filter holds back at any ratio of common rates.
constexpr std::int64_t kPush = 1024;

AudioBuffer kindOf(const AVCodecContext& encoder) {
    std::uint64_t mask = ffmpeg_ext::channelMask(encoder);
    if (mask == 0) {
        mask = ffmpeg_ext::defaultChannelMask(ffmpeg_ext::channelCount(encoder));
    }
    AudioBuffer kind(mask, encoder.sample_fmt);
    kind.setSampleRate(encoder.sample_rate);
    return kind;
}

}  // namespace

void AudioCutter::Free::operator()(AVAudioFifo* fifo) const {
    av_audio_fifo_free(fifo);
}

AudioCutter::AudioCutter(const AVCodecContext& encoder)
    : mOutput(kindOf(encoder)),
      mFrameSize(encoder.frame_size > 0 ? encoder.frame_size : kAnyFrameSize),
      mFifo(av_audio_fifo_alloc(mOutput.sampleFormat(), mOutput.numberOfChannels(),
                                static_cast<int>(mFrameSize))) {
    if (mFifo == nullptr) {
        throw std::bad_alloc();
    }
}

AudioCutter::~AudioCutter() = default;

std::int64_t AudioCutter::endOfInput() const {
    return mRunStart + av_rescale(mRunInput, mOutput.sampleRate(), std::max(mKind.sampleRate(), 1));
}

std::int64_t AudioCutter::push(const AudioFrame& frame) {
    const AudioBuffer& samples = frame.audioBuffer();
    const std::int64_t time = frame.timestamp().rescale(Timebase(1, mOutput.sampleRate())).value;
    std::int64_t gap = 0;
    if (mKind.sampleRate() == 0) {
        mWritten = mRead = time;
        startRun(samples, time);
    } else {
        gap = time - endOfInput();
        if (std::abs(gap) <= mOutput.sampleRate() / kJitterPerSecond) {
            gap = 0;
        }
        if (gap != 0 || !mKind.isCompatibleWithBuffer(samples)) {
            const std::int64_t end = endOfInput();
            drainResampler();
            startRun(samples, end + gap);
            mSilence = std::max<std::int64_t>(gap, 0);
            mSkip = std::max<std::int64_t>(-gap, 0);
            mWritten += mSilence;
        }
    }
    if (mFlags.empty() || mFlags.back().second != frame.flags()) {
        mFlags.emplace_back(mWritten, frame.flags());
    }
    const AudioBuffer converted = convert(samples);
    mRunInput += static_cast<std::int64_t>(samples.numberOfSamples());
    append(converted);
    return gap;
}

void AudioCutter::startRun(const AudioBuffer& kind, std::int64_t time) {
    mKind = AudioBuffer(kind.channelLayout(), kind.sampleFormat());
    mKind.setSampleRate(kind.sampleRate());
    mRunStart = time;
    mRunInput = 0;
    mResampler = Resampler();
}

AudioBuffer AudioCutter::convert(const AudioBuffer& samples) {
    if (samples.isCompatibleWithBuffer(mOutput)) {
        return samples;
    }
    return mResampler.resample(samples, mOutput.sampleRate(), static_cast<long>(mOutput.channelLayout()),
                               mOutput.sampleFormat());
}

void AudioCutter::end() {
    if (mKind.sampleRate() != 0) {
        drainResampler();
    }
}

// Silence pushes out what is held back, of which as much is taken as the input lasts.
void AudioCutter::drainResampler() {
    while (mWritten - mSkip < endOfInput() && mKind.sampleRate() != mOutput.sampleRate()) {
        AudioBuffer rest = convert(silence(mKind, kPush));
        const auto missing = static_cast<unsigned long>(endOfInput() - (mWritten - mSkip));
        rest.resize(std::min(rest.numberOfSamples(), missing));
        append(rest);
    }
}

AudioBuffer AudioCutter::silence(const AudioBuffer& kind, std::int64_t samples) const {
    AudioBuffer buffer(kind.channelLayout(), kind.sampleFormat());
    buffer.setSampleRate(kind.sampleRate());
    buffer.resize(static_cast<unsigned long>(samples));
    std::vector<std::uint8_t*> planes = buffer.getPointersToPlanes();
    av_samples_set_silence(planes.data(), 0, static_cast<int>(samples), buffer.numberOfChannels(),
                           buffer.sampleFormat());
    return buffer;
}

void AudioCutter::append(const AudioBuffer& samples) {
    mWritten += static_cast<std::int64_t>(samples.numberOfSamples()) -
                std::min(mSkip, static_cast<std::int64_t>(samples.numberOfSamples()));
    mPending.push_back(samples);
    fill();
}

// Long silence stays a number until it is needed.
void AudioCutter::fill() {
    const auto write = [this](const AudioBuffer& samples, std::int64_t skip) {
        const bool planar = av_sample_fmt_is_planar(samples.sampleFormat()) != 0;
        const int step =
            av_get_bytes_per_sample(samples.sampleFormat()) * (planar ? 1 : samples.numberOfChannels());
        std::vector<void*> data;
        for (const std::uint8_t* plane : samples.getPointersToPlanes()) {
            data.push_back(const_cast<std::uint8_t*>(plane + skip * step));
        }
        const auto count = static_cast<int>(static_cast<std::int64_t>(samples.numberOfSamples()) - skip);
        if (count > 0 && av_audio_fifo_write(mFifo.get(), data.data(), count) != count) {
            throw std::bad_alloc();
        }
    };
    while (mSilence > 0 && av_audio_fifo_size(mFifo.get()) < mFrameSize) {
        const std::int64_t count = std::min(mSilence, mFrameSize);
        write(silence(mOutput, count), 0);
        mSilence -= count;
    }
    while (mSilence == 0 && !mPending.empty()) {
        const std::int64_t skip =
            std::min(mSkip, static_cast<std::int64_t>(mPending.front().numberOfSamples()));
        write(mPending.front(), skip);
        mSkip -= skip;
        mPending.pop_front();
    }
}

std::optional<AudioFrame> AudioCutter::pop() {
    fill();
    return av_audio_fifo_size(mFifo.get()) >= mFrameSize ? take(mFrameSize) : std::nullopt;
}

std::optional<AudioFrame> AudioCutter::popRest() {
    const int rest = av_audio_fifo_size(mFifo.get());
    return rest > 0 ? take(rest) : std::nullopt;
}

std::optional<AudioFrame> AudioCutter::take(std::int64_t samples) {
    AudioBuffer buffer(mOutput.channelLayout(), mOutput.sampleFormat());
    buffer.setSampleRate(mOutput.sampleRate());
    buffer.resize(static_cast<unsigned long>(samples));
    const std::vector<std::uint8_t*> planes = buffer.getPointersToPlanes();
    std::vector<void*> data(planes.begin(), planes.end());
    if (av_audio_fifo_read(mFifo.get(), data.data(), static_cast<int>(samples)) != samples) {
        throw std::runtime_error("samples are missing");
    }
    while (mFlags.size() > 1 && mFlags[1].first <= mRead) {
        mFlags.pop_front();
    }
    AudioFrame frame(std::move(buffer), Timestamp(Timebase(1, mOutput.sampleRate()), mRead));
    frame.setFlags(mFlags.front().second);
    mRead += samples;
    return frame;
}

}  // namespace vidorra
