#include "vidorra/demux/audio_decoder.h"

extern "C" {
#include <libavcodec/codec_par.h>
}

namespace vidorra {

AudioDecoder::~AudioDecoder() = default;

void AudioDecoder::validateCodecParams(const AVCodecParameters& parameters) {
    if (parameters.codec_type != AVMEDIA_TYPE_AUDIO) {
        throw FFmpegError(AvError::InvalidArgument, "AudioDecoder cannot be used for video");
    }
}

}  // namespace vidorra
