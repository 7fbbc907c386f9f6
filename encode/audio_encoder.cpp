#include "vidorra/encode/audio_encoder.h"

#include <stdexcept>
#include <utility>

#include "core/log.h"
#include "encode/config_keys.h"
#include "ffmpeg/channels.h"
#include "ffmpeg/encoder_formats.h"
#include "picture/aligned_samples.h"
#include "vidorra/core/enum_text.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/frame.h>
}

namespace vidorra {
namespace {

constexpr std::uint64_t kMono = 4;
constexpr std::uint64_t kStereo = 3;

void checkMediaType(const AVCodecContext& context) {
    if (context.codec_type == AVMEDIA_TYPE_VIDEO) {
        throw std::runtime_error(fmt::format(
            "AudioEncoder: Trying to use video codec \"{}\" by audio encoder.", context.codec->id));
    }
    if (context.codec_type != AVMEDIA_TYPE_AUDIO) {
        throw std::runtime_error(
            fmt::format("AudioEncoder: Unsupported media type \"{}\". Expected "
                        "AVMediaType::AVMEDIA_TYPE_AUDIO.",
                        static_cast<int>(context.codec->type)));
    }
}

// Encoders read as many planes and channels as they were opened for, without checking the frame.
bool isReadable(const AVFrame& frame, const AVCodecContext& context) {
    return frame.nb_samples > 0 && frame.format == context.sample_fmt &&
           ffmpeg_ext::channelCount(frame) == ffmpeg_ext::channelCount(context);
}

}  // namespace

AudioEncoder::AudioEncoder(const objstream::object& config) : EncoderBase(config, "audio-encoder") {
    AVCodecContext& codec = *context();
    checkMediaType(codec);
    logUnknownKeys(config, {"codec", "codec_id", "sample_fmt", "options", "filter"}, logName());
    codec.sample_fmt = static_cast<AVSampleFormat>(
        config["sample_fmt"].getValue<int>(ffmpeg_ext::firstSampleFormat(*codec.codec)));
    setOptions(config["options"]);
    // Deliberate: this overrides a layout from the options.
    switch (ffmpeg_ext::channelCount(codec)) {
    case 1:
        ffmpeg_ext::setChannelMask(codec, kMono);
        break;
    case 2:
        ffmpeg_ext::setChannelMask(codec, kStereo);
        break;
    default:
        break;
    }
    openCodec();
    if (config.hasKey("filter")) {
        mFilterGraph = FilterGraphAudio(config["filter"].getValue<std::string>(), codec);
    }
}

AudioEncoder::~AudioEncoder() = default;

AvRes AudioEncoder::sendFrame(const AudioFrame& frame) {
    AVCodecContext& codec = *context();
    if (frame.empty()) {
        logger::log(kLogError, logName()) << "sendFrame(): Couldn't encode empty AudioFrame.";
        return AvError::InvalidArgument;
    }
    const AudioBuffer& samples = frame.audioBuffer();
    if (samples.sampleRate() != codec.sample_rate) {
        logger::log(kLogWarning, logName())
            << "Audio audioFrame " << frame << " is not compatible with encoder";
        return 0;
    }
    AudioFrame local;
    if (samples.sampleFormat() == codec.sample_fmt) {
        local = frame;
    } else {
        // Deliberate: metadata and side data are dropped.
        local = AudioFrame(mResampler.resample(samples, samples.sampleRate(),
                                               static_cast<long>(samples.channelLayout()), codec.sample_fmt),
                           frame.timestamp());
        local.setFlags(frame.flags());
    }
    local.setTimestamp(local.timestamp().rescale(codec.time_base));
    pushNoSignalState((local.flags() & Frame::NoSignal) != 0, local.timestamp());

    AvPtr<AVFrame> avFrame = local.toAvFrame();
    const AvRes filtered = mFilterGraph.filterFrame(avFrame);
    if (!filtered.ok) {
        return handleFilterFailure(filtered, local);
    }
    return encode(*avFrame);
}

AvRes AudioEncoder::sendFiltered() {
    AvPtr<AVFrame> avFrame = makeAvPtr<AVFrame>();
    const AvRes filtered = mFilterGraph.receiveFrame(avFrame);
    return filtered.ok ? encode(*avFrame) : filtered;
}

AvRes AudioEncoder::endFilter() {
    if (mFilterGraph.empty()) {
        return AvError::Again;
    }
    AvPtr<AVFrame> avFrame = makeAvPtr<AVFrame>();
    avFrame.reset();
    const AvRes filtered = mFilterGraph.filterFrame(avFrame);
    return filtered.ok ? encode(*avFrame) : filtered;
}

AvRes AudioEncoder::encode(AVFrame& frame) {
    if (!isReadable(frame, *context())) {
        logger::log(kLogWarning, logName())
            << "sendFrame(): not of the encoder's channels and format: " << frame.nb_samples << " samples, "
            << ffmpeg_ext::channelCount(frame) << " channels, " << static_cast<AVSampleFormat>(frame.format);
        return AvError::InvalidArgument;
    }
    if (const AvRes aligned = alignSamples(frame); !aligned.ok) {
        return aligned;
    }
    return send(&frame);
}

AvRes AudioEncoder::handleFilterFailure(const AvRes& res, const AudioFrame& frame) {
    if (res.error == AvError::Eof) {
        static_cast<void>(sendEndOfStream());
        if (!frame.empty()) {
            logger::log(kLogDebug, logName()) << "Audio filter at EOF: " << res;
        }
        return res;
    }
    if (res.error == AvError::Again) {
        logger::log(kLogDebug, logName()) << "No audio audioFrame available from filter";
        return 0;
    }
    logger::log(kLogWarning, logName())
        << "Couldn't filter audio audioFrame: " << frame << ". Error: " << res;
    return res;
}

}  // namespace vidorra
