#pragma once

#include "vidorra/demux/decoder_base.h"
#include "vidorra/picture/audio_frame.h"

namespace vidorra {

/// A decoder of samples, driven as DecoderBase shows.
///
///     if (auto* decoder = dynamic_cast<AudioDecoder*>(source.getCodecContext(1).get())) {
///         while (const auto frame = decoder->receive()) { ... }
///     }
class VIDORRA_API AudioDecoder : public DecoderBase {
public:
    ~AudioDecoder() override;

    /// Throws FFmpegError with AvError::InvalidArgument when the parameters are not those of an audio stream.
    static void validateCodecParams(const AVCodecParameters& parameters);

    /// The next frame with a copy of its samples, at its best-effort time in microseconds. A frame without a
    /// channel mask gets the usual one for its number of channels. Errors as receiveAvFrame(); throws
    /// std::runtime_error for a frame whose number of channels has no usual mask, and for one whose channel
    /// layout and sample format have no size.
    [[nodiscard]] tl::expected<AudioFrame, AvError> receive() const;

    /// What receive() makes of a frame from receiveAvFrame() that has a channel mask.
    [[nodiscard]] static AudioFrame toAudioFrame(const AVFrame& frame);
};

}  // namespace vidorra
