#pragma once

#include "vidorra/demux/decoder_base.h"
#include "vidorra/picture/audio_frame.h"

namespace vidorra {

/// Decodes audio; see DecoderBase for how to drive it.
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
    /// channel mask gets the usual mask for its number of channels. Fails as receiveAvFrame() does. Throws
    /// std::runtime_error for a frame whose number of channels has no usual mask, and for one whose layout
    /// and format have no known size.
    [[nodiscard]] tl::expected<AudioFrame, AvError> receive() const;

    /// Converts a frame from receiveAvFrame() that has a channel mask, as receive() does.
    [[nodiscard]] static AudioFrame toAudioFrame(const AVFrame& frame);
};

}  // namespace vidorra
