#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <utility>

#include "vidorra/audio/resampler.h"
#include "vidorra/picture/audio_frame.h"

struct AVAudioFifo;

namespace vidorra {

/// Brings sound of any rate, layout, format and length into the frames that an encoder takes: samples in its
/// format, as many as it wants, and fewer at the end.
///
/// Samples are counted from the time of the first frame. Where a frame's time differs from that count by more
/// than a hundredth of a second, sound is missing or there twice: silence fills a gap, and samples whose time
/// is over are dropped.
class AudioCutter {
public:
    /// For an open encoder.
    explicit AudioCutter(const AVCodecContext& encoder);
    ~AudioCutter();

    /// Appends the samples. pop() has to have given all frames before. Gives how many samples of the encoder
    /// are missing before them, or negative how many are dropped; 0 as a rule.
    std::int64_t push(const AudioFrame& frame);

    /// Appends what the resampler holds back.
    void end();

    /// The next frame of the encoder's size, with a time in samples; nothing when there are too few samples.
    std::optional<AudioFrame> pop();

    /// What is left, in a shorter frame; nothing when there is none.
    std::optional<AudioFrame> popRest();

private:
    struct Free {
        void operator()(AVAudioFifo* fifo) const;
    };

    [[nodiscard]] AudioBuffer convert(const AudioBuffer& samples);
    [[nodiscard]] AudioBuffer silence(const AudioBuffer& kind, std::int64_t samples) const;
    [[nodiscard]] std::int64_t endOfInput() const;
    void startRun(const AudioBuffer& kind, std::int64_t time);
    void drainResampler();
    void append(const AudioBuffer& samples);
    void fill();
    std::optional<AudioFrame> take(std::int64_t samples);

    // What the encoder takes, without samples.
    AudioBuffer mOutput;
    std::int64_t mFrameSize;
    std::unique_ptr<AVAudioFifo, Free> mFifo;
    Resampler mResampler;

    // A run is sound of one kind without a gap: its kind, the time of its start in samples of the encoder,
    // and how many samples have come since.
    AudioBuffer mKind;
    std::int64_t mRunStart = 0;
    std::int64_t mRunInput = 0;

    // What comes after the samples of the queue: silence, then samples.
    std::int64_t mSilence = 0;
    std::deque<AudioBuffer> mPending;
    // How many of the next samples are dropped.
    std::int64_t mSkip = 0;

    // Positions in samples of the encoder: where the queue ends with all that follows it, and where it
    // begins.
    std::int64_t mWritten = 0;
    std::int64_t mRead = 0;
    // From which position on which flags hold.
    std::deque<std::pair<std::int64_t, Frame::FrameFlags>> mFlags;
};

}  // namespace vidorra
