#include "vidorra/demux/decoder_base.h"

#include <array>
#include <stdexcept>
#include <utility>

#include "core/log.h"
#include "ffmpeg/owners.h"

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace vidorra {
namespace {

// Ends the stream of a decoder and discards what it still holds; uses `frame` to receive it.
AvRes discardFrames(AVCodecContext& codec, AVFrame& frame) {
    const AvRes sent = avcodec_send_packet(&codec, nullptr);
    if (!sent.ok && sent.error != AvError::Eof) {
        return sent;
    }
    for (;;) {
        const AvRes res = avcodec_receive_frame(&codec, &frame);
        if (!res.ok) {
            return res.error == AvError::Eof ? AvRes(0) : res;
        }
    }
}

}  // namespace

DecoderBase::DecoderBase() : mCodecContext(ffmpeg_ext::adopt<AVCodecContext>(nullptr)) {}

DecoderBase::~DecoderBase() {
    // Deliberate: after a failure that was already reported nothing is drained or logged.
    if (!mCodecContext || mFailed) {
        return;
    }
    try {
        const AvRes res = drain();
        if (!res.ok) {
            logFormatted(kLogError, mPrefix, "Decoder draining is failed: {}", res);
        }
    } catch (...) {
        // There is no memory for the log line.
    }
}

AvRes DecoderBase::send(const Packet& packet) const {
    if (packet.size <= 0) {
        logger::log(kLogError, mPrefix) << "DecoderBase::send: could not encode empty Packet.";
        return AvError::InvalidArgument;
    }
    return send(static_cast<const AVPacket&>(packet));
}

AvRes DecoderBase::send(const AVPacket& packet) const {
    AVCodecContext& codec = context();
    return isGivenUp() ? AvRes(AvError::OutOfMemory) : watched(avcodec_send_packet(&codec, &packet));
}

tl::expected<AvPtr<AVFrame>, AvError> DecoderBase::receiveAvFrame() const {
    AVCodecContext& codec = context();
    AvPtr<AVFrame> frame = makeAvPtr<AVFrame>();
    if (!frame) {
        return tl::unexpected(AvError::OutOfMemory);
    }
    const AvRes res =
        isGivenUp() ? AvRes(AvError::OutOfMemory) : watched(avcodec_receive_frame(&codec, frame.get()));
    if (!res.ok) {
        return tl::unexpected(res.error);
    }
    return frame;
}

bool DecoderBase::isGivenUp() const noexcept {
    return mFailed && mCodecContext && avcodec_is_open(mCodecContext.get()) != 0;
}

AvRes DecoderBase::watched(AvRes res) const noexcept {
    if (res.error == AvError::OutOfMemory) {
        mFailed = true;
    }
    return res;
}

Dictionary DecoderBase::prepareCodec(std::optional<ChosenCodec> chosen, const AVCodecParameters& parameters) {
    ChosenCodec choice;
    choice.codec = avcodec_find_decoder(parameters.codec_id);
    if (chosen) {
        choice = std::move(*chosen);
    }
    if (choice.codec == nullptr) {
        throw FFmpegError(AvError::DecoderNotFound, fmt::format("Codec {}", parameters.codec_id));
    }
    mCodecContext.reset(avcodec_alloc_context3(choice.codec));
    if (!mCodecContext) {
        throw FFmpegError(AvError::OutOfMemory,
                          fmt::format("Cannot allocate codec context for codec {}", parameters.codec_id));
    }
    mPrefix = logPrefix() + " ";
    const AvRes res = avcodec_parameters_to_context(mCodecContext.get(), &parameters);
    mFailed = !res.ok;
    res.throwIfError("Cannot copy codec parameters to context for codec {}", parameters.codec_id);
    return std::move(choice.options);
}

void DecoderBase::openCodec(Dictionary& options) {
    const AVCodec* codec = context().codec;
    // FFmpeg does nothing for an open codec.
    const bool givenUp = isGivenUp();
    logger::log(kLogCodec, mPrefix) << "opening codec: \"" << codec->name << "\"";
    const AvRes res = avcodec_open2(mCodecContext.get(), codec, options.address());
    mFailed = givenUp || !res.ok;
    if (!res.ok) {
        // FFmpeg clears the field when it fails.
        mCodecContext->codec = codec;
        res.throwIfError("Could not open decoder \"{}\"", codec->name);
    }
    mPrefix = logPrefix() + " ";
    logger::log(kLogCodec, mPrefix) << "codec \"" << codec->name << "\" opened";
}

AvRes DecoderBase::drain() {
    AVCodecContext& codec = context();
    if (isGivenUp()) {
        return AvError::OutOfMemory;
    }
    const AvPtr<AVFrame> frame = makeAvPtr<AVFrame>();
    const AvRes res = frame ? watched(discardFrames(codec, *frame)) : AvRes(AvError::OutOfMemory);
    // Deliberate: even after a failure. A decoder whose stream has ended refuses everything until it is
    // flushed, and the last frame of many files cannot be decoded, for example because a sample is cut in
    // half.
    if (!isGivenUp() && avcodec_is_open(&codec) != 0) {
        avcodec_flush_buffers(&codec);
    }
    return res;
}

AVCodecContext& DecoderBase::context() const {
    if (!mCodecContext) {
        throw std::logic_error("mCodecContext cannot be nullptr");
    }
    return *mCodecContext;
}

std::string DecoderBase::logPrefix() const {
    AVCodecContext& codec = context();
    return avcodec_is_open(&codec) != 0 ? codec.codec->name : avcodec_get_name(codec.codec_id);
}

std::string DecoderBase::codecInfo() const {
    std::array<char, 255> text{};
    avcodec_string(text.data(), static_cast<int>(text.size()), &context(), 0);
    return text.data();
}

}  // namespace vidorra
