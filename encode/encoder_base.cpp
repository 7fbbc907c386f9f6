#include "vidorra/encode/encoder_base.h"

#include <stdexcept>
#include <utility>

#include "core/log.h"
#include "ffmpeg/codec_options.h"
#include "ffmpeg/owners.h"
#include "vidorra/core/ffmpeg_error.h"

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace vidorra {

const AVCodec* EncoderBase::encoderById(AVCodecID id) {
    const AVCodec* encoder = avcodec_find_encoder(id);
    if (encoder == nullptr) {
        throw std::runtime_error(fmt::format("Could not find encoder \"{}\"", id));
    }
    return encoder;
}

const AVCodec* EncoderBase::encoderFromParams(const objstream::object& config) {
    if (config.hasKey("codec_id")) {
        return encoderById(config["codec_id"].getValue<AVCodecID>(AV_CODEC_ID_NONE));
    }
    if (config.hasKey("codec")) {
        const auto name = config["codec"].getValue<std::string>();
        const AVCodec* encoder = avcodec_find_encoder_by_name(name.c_str());
        if (encoder == nullptr) {
            throw std::runtime_error(fmt::format("Could not find encoder \"{}\"", name));
        }
        return encoder;
    }
    throw std::runtime_error("\"codec\" param not found in encoder's config");
}

EncoderBase::EncoderBase(const objstream::object& config, const std::string& name)
    : mCodecContext(ffmpeg_ext::adopt<AVCodecContext>(nullptr)) {
    const AVCodec* codec = encoderFromParams(config);
    mCodecContext.reset(avcodec_alloc_context3(codec));
    if (!mCodecContext) {
        throw std::runtime_error(
            fmt::format("Could not alloc AVCodecContext for {} \"{}\"", name, codec->name));
    }
    mLogName = fmt::format("{}-{}: ", name, codec->name);
}

EncoderBase::~EncoderBase() = default;

void EncoderBase::setOption(const std::string& name, const std::string& value) {
    const AvRes res = ffmpeg_ext::setCodecOption(*mCodecContext, name.c_str(), value.c_str());
    if (res.ok) {
        return;
    }
    std::string message = "AvCodecContext::av_opt_set() error";
    if (res.error == AvError::OptionNotFound) {
        message = fmt::format("param {} not found. No matching option exists.", name);
    } else if (res.error == AvError::OutOfRange) {
        message = fmt::format("value \"{}\" is out of range for {} param", value, name);
    } else if (res.error == AvError::InvalidArgument) {
        message = fmt::format("value \"{}\" is invalid for {} param", value, name);
    }
    throw FFmpegError(res.error, message);
}

void EncoderBase::setOptions(const objstream::object& options) {
    if (options.empty()) {
        return;
    }
    options.for_each_kv([this](const std::string& name, const objstream::object& value) {
        setOption(name, value.getValue<std::string>(std::string()));
        return true;
    });
}

void EncoderBase::openCodec() {
    const AVCodec* codec = mCodecContext->codec;
    logger::log(kLogCodec, mLogName) << "opening codec: \"" << codec->name << "\"";
    const AvRes res = avcodec_open2(mCodecContext.get(), codec, nullptr);
    if (!res.ok) {
        // FFmpeg clears the field when it fails.
        mCodecContext->codec = codec;
        res.throwIfError("Could not open encoder \"{}\"", codec->name);
    }
    logger::log(kLogCodec, mLogName) << "codec \"" << codec->name << "\" opened";
}

AvRes EncoderBase::fillCodecParameters(AVCodecParameters& parameters) const {
    return avcodec_parameters_from_context(&parameters, mCodecContext.get());
}

void EncoderBase::pushNoSignalState(bool noSignal, const Timestamp& timestamp) {
    if (noSignal) {
        if (!mNoSignalStart.isNull) {
            return;
        }
        logger::log(kLogDebug, mLogName) << "No signal frame. Set start PTS to " << timestamp;
        mNoSignalStart = timestamp;
        mNoSignalEnd = Timestamp();
        return;
    }
    if (!mNoSignalEnd.isNull) {
        return;
    }
    // Deliberate: the first frame of a stream with a signal sets the end too. Nothing before it is lost.
    logger::log(kLogDebug, mLogName) << "No signal frame. Set end PTS to " << timestamp;
    mNoSignalEnd = timestamp;
    mNoSignalStart = Timestamp();
}

bool EncoderBase::wasNoSignalAt(const Timestamp& timestamp) const {
    if (!mNoSignalStart.isNull) {
        return timestamp >= mNoSignalStart;
    }
    return !mNoSignalEnd.isNull && timestamp < mNoSignalEnd;
}

tl::expected<Packet, AvError> EncoderBase::receivePacket() {
    const AvPtr<AVPacket> received = makeAvPtr<AVPacket>();
    if (!received) {
        return tl::unexpected(AvError::OutOfMemory);
    }
    const AvRes res = mIsGivenUp ? AvRes(AvError::OutOfMemory)
                                 : watched(avcodec_receive_packet(mCodecContext.get(), received.get()));
    if (!res.ok) {
        return tl::unexpected(res.error);
    }
    // Moved, since making another reference could fail.
    Packet packet;
    av_packet_move_ref(&packet, received.get());
    if (wasNoSignalAt(Timestamp(mCodecContext->time_base, packet.pts))) {
        packet.setFlag(Packet::NoSignal::Yes);
    }
    return packet;
}

AvRes EncoderBase::send(const AVFrame* frame) {
    return mIsGivenUp ? AvRes(AvError::OutOfMemory) : watched(avcodec_send_frame(mCodecContext.get(), frame));
}

AvRes EncoderBase::watched(AvRes res) noexcept {
    mIsGivenUp = res.error == AvError::OutOfMemory;
    return res;
}

AvRes EncoderBase::sendEndOfStream() {
    return send(nullptr);
}

bool EncoderBase::drain() {
    if (mIsGivenUp) {
        return false;
    }
    // A stream that has already ended refuses to end again, and is drained anyway.
    static_cast<void>(avcodec_send_frame(mCodecContext.get(), nullptr));
    for (;;) {
        const AvPtr<AVPacket> packet = makeAvPtr<AVPacket>();
        if (!packet) {
            return false;
        }
        const AvRes res = avcodec_receive_packet(mCodecContext.get(), packet.get());
        if (!res.ok) {
            return res.error == AvError::Eof;
        }
    }
}

}  // namespace vidorra
