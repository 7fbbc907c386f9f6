#pragma once

#include "vidorra/demux/decoder_base.h"

namespace vidorra {

/// A decoder of samples.
class VIDORRA_API AudioDecoder : public DecoderBase {
public:
    ~AudioDecoder() override;

    /// Throws FFmpegError with AvError::InvalidArgument when the parameters are not those of an audio stream.
    static void validateCodecParams(const AVCodecParameters& parameters);
};

}  // namespace vidorra
