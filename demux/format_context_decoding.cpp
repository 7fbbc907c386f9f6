// The operations of FormatContext that turn packets into frames.

#include "core/log.h"
#include "core/shown_url.h"
#include "core/wrapping.h"
#include "demux/decode_packet.h"
#include "demux/default_channels.h"
#include "ffmpeg/channels.h"
#include "ffmpeg/frame_duration.h"
#include "vidorra/core/timestamp.h"
#include "vidorra/demux/audio_decoder.h"
#include "vidorra/demux/format_context.h"
#include "vidorra/demux/video_decoder.h"

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace vidorra {
namespace {

// Whether `decoder` exists and has the type that `operation` decodes; a wrong type is logged.
bool canDecode(const DecoderBase* decoder, AVMediaType wanted, const char* operation, const std::string& url,
               int stream) {
    if (decoder == nullptr) {
        return false;
    }
    const AVMediaType type = decoder->codecContext()->codec_type;
    if (type == wanted) {
        return true;
    }
    const bool audioOrVideo = type == AVMEDIA_TYPE_AUDIO || type == AVMEDIA_TYPE_VIDEO;
    logger::warning("%s%s:%d media format \"%s\" is not supported", audioOrVideo ? operation : "",
                    shownUrl(url).c_str(), stream, av_get_media_type_string(type));
    return false;
}

// Fits a frame to the duration of its packet.
void repairDuration(AVFrame& frame) {
    const std::int64_t duration = ffmpeg_ext::frameDuration(frame);
    if (duration <= 0 || frame.sample_rate <= 0) {
        return;
    }
    const Timebase samples{1, frame.sample_rate};
    const std::int64_t expected = Timestamp({}, duration).rescale(samples).value;
    if (frame.nb_samples >= expected) {
        frame.nb_samples = static_cast<int>(expected);
        return;
    }
    const std::int64_t missing = Timestamp(samples, expected - frame.nb_samples).rescale(Timebase()).value;
    if (frame.best_effort_timestamp != AV_NOPTS_VALUE) {
        frame.best_effort_timestamp = wrappingAdd(frame.best_effort_timestamp, missing);
    }
    if (duration >= missing) {
        ffmpeg_ext::setFrameDuration(frame, duration - missing);
    }
}

}  // namespace

VideoFrame FormatContext::decodeVideoPacket(const Packet& packet) {
    const DecoderBase* decoder = getCodecContext(static_cast<unsigned>(packet.stream_index)).get();
    if (!canDecode(decoder, AVMEDIA_TYPE_VIDEO, "decodeVideoPacket(): ", mUrl, packet.stream_index)) {
        return {};
    }
    const tl::expected<AvPtr<AVFrame>, AvError> frame = decodePacket(mUrl, *decoder, packet);
    return frame ? VideoDecoder::toVideoFrame(**frame) : VideoFrame();
}

AudioFrame FormatContext::decodeAudioPacket(const Packet& packet) {
    const DecoderBase* decoder = getCodecContext(static_cast<unsigned>(packet.stream_index)).get();
    if (!canDecode(decoder, AVMEDIA_TYPE_AUDIO, "decodeAudioPacket(): ", mUrl, packet.stream_index)) {
        return {};
    }
    const tl::expected<AvPtr<AVFrame>, AvError> frame = decodePacket(mUrl, *decoder, packet);
    if (!frame) {
        return {};
    }
    // Deliberate: a frame that AudioBuffer cannot hold is logged and not an exception, since a decoder's
    // problems do not reach the reader's caller.
    if (!setDefaultChannelMask(**frame)) {
        if (mRefusedSounds.insert(packet.stream_index).second) {
            logFormatted(kLogWarning, {}, "Sound of {}:{} gives no frames: {} channels have no channel mask",
                         shownUrl(mUrl), packet.stream_index, ffmpeg_ext::channelCount(**frame));
        }
        return {};
    }
    repairDuration(**frame);
    return AudioDecoder::toAudioFrame(**frame);
}

}  // namespace vidorra
