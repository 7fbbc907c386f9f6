#include "vidorra/demux/audio_decoder.h"

#include <utility>

#include "demux/default_channels.h"

extern "C" {
#include <libavcodec/codec_par.h>
#include <libavutil/frame.h>
}

namespace vidorra {

AudioDecoder::~AudioDecoder() = default;

void AudioDecoder::validateCodecParams(const AVCodecParameters& parameters) {
    if (parameters.codec_type != AVMEDIA_TYPE_AUDIO) {
        throw FFmpegError(AvError::InvalidArgument, "AudioDecoder cannot be used for video");
    }
}

tl::expected<AudioFrame, AvError> AudioDecoder::receive() const {
    return receiveAvFrame().map([](const AvPtr<AVFrame>& frame) {
        setDefaultChannelMask(*frame);
        return toAudioFrame(*frame);
    });
}

AudioFrame AudioDecoder::toAudioFrame(const AVFrame& frame) {
    AudioBuffer buffer;
    buffer.loadAVFrame(&frame);
    return {std::move(buffer), Timestamp(Timebase(), frame.best_effort_timestamp)};
}

}  // namespace vidorra
