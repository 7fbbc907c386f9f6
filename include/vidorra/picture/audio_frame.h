#pragma once

#include <string>

#include "vidorra/core/export.h"
#include "vidorra/picture/audio_buffer.h"
#include "vidorra/picture/frame.h"

namespace vidorra {

/// A frame with audio samples.
///
///     const AudioFrame sound(buffer, Timestamp(Timebase(1, 48000), 0));
class VIDORRA_API AudioFrame : public Frame {
public:
    /// Empty, with a null time stamp.
    AudioFrame();

    /// Takes over the buffer; no flags are set.
    AudioFrame(AudioBuffer buffer, const Timestamp& timestamp);

    AudioFrame(const AudioFrame& other) = default;
    AudioFrame(AudioFrame&& other) = default;
    AudioFrame& operator=(const AudioFrame& other) = default;
    AudioFrame& operator=(AudioFrame&& other) = default;
    ~AudioFrame() override;

    [[nodiscard]] const AudioBuffer& audioBuffer() const noexcept { return mAudioBuffer; }
    [[nodiscard]] AudioBuffer& audioBuffer() noexcept { return mAudioBuffer; }

    /// Copies the samples into the frame.
    void fillAVFrame(AVFrame* frame) const override;
    [[nodiscard]] bool empty() const override;
    /// "audio frame 1024 samples 48000Hz stereo fltp, pts 1.000000".
    [[nodiscard]] std::string debugDescription() const override;
    [[nodiscard]] bool isAudio() const override;
    [[nodiscard]] bool isVideo() const override;

private:
    AudioBuffer mAudioBuffer;
};

}  // namespace vidorra
