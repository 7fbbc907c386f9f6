#include "vidorra/demux/decoder_base.h"

#include <array>
#include <stdexcept>
#include <utility>

#include "core/log.h"

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace vidorra {
namespace {

// Ends the stream of an open decoder and throws away what it still holds.
AvRes discardFrames(AVCodecContext& codec) {
    const AvRes sent = avcodec_send_packet(&codec, nullptr);
    if (!sent.ok && sent.error != AvError::Eof) {
        return sent;
    }
    for (;;) {
        const AvPtr<AVFrame> frame = makeAvPtr<AVFrame>();
        if (!frame) {
            return AvError::OutOfMemory;
        }
        const AvRes res = avcodec_receive_frame(&codec, frame.get());
        if (!res.ok) {
            return res.error == AvError::Eof ? AvRes(0) : res;
        }
    }
}

}  // namespace

DecoderBase::DecoderBase()
    : mCodecContext(nullptr, [](AVCodecContext* context) { avcodec_free_context(&context); }) {}

DecoderBase::~DecoderBase() {
    if (!mCodecContext) {
        return;
    }
    try {
        const AvRes res = drain();
        // Deliberate: an exception has told of a decoder that could not be opened.
        if (!res.ok && !mFailed) {
            logFormatted(kLogError, mPrefix, "Decoder draining is failed: {}", res);
        }
    } catch (...) {
        // No memory for the log line.
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
    return avcodec_send_packet(&context(), &packet);
}

tl::expected<AvPtr<AVFrame>, AvError> DecoderBase::receiveAvFrame() const {
    AvPtr<AVFrame> frame = makeAvPtr<AVFrame>();
    if (!frame) {
        return tl::unexpected(AvError::OutOfMemory);
    }
    const AvRes res = avcodec_receive_frame(&context(), frame.get());
    if (!res.ok) {
        return tl::unexpected(res.error);
    }
    return frame;
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
    logger::log(kLogCodec, mPrefix) << "opening codec: \"" << codec->name << "\"";
    const AvRes res = avcodec_open2(mCodecContext.get(), codec, options.address());
    mFailed = !res.ok;
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
    const AvRes res = discardFrames(codec);
    // Deliberate: after a failure too. A decoder whose stream has ended refuses everything until it is
    // flushed, and the last frame of many files, a sample cut in half for one, cannot be decoded.
    if (avcodec_is_open(&codec) != 0) {
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
