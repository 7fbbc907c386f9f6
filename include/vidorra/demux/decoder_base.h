#pragma once

#include <memory>
#include <optional>
#include <string>

#include "vidorra/core/av_ptr.h"
#include "vidorra/core/av_res.h"
#include "vidorra/core/dictionary.h"
#include "vidorra/core/export.h"
#include "vidorra/core/ffmpeg_fwd.h"
#include "vidorra/demux/packet.h"

#include <tl/expected.hpp>

namespace vidorra {

/// One decoder: FFmpeg's cycle of sending packets and receiving frames. It becomes usable by prepareCodec()
/// and openCodec(): before the first of them to send, receive and drain throws std::logic_error, and between
/// the two it gives AvError::InvalidArgument.
///
///     VideoDecoder decoder;
///     Dictionary options = decoder.prepareCodec(std::nullopt, *stream->codecpar);
///     decoder.openCodec(options);
///     decoder.send(packet).throwIfError("the decoder does not take a packet");
///     while (const auto frame = decoder.receive()) { ... }
///
/// FormatContext makes such decoders by itself.
///
/// Owns: its AVCodecContext. The destructor drains the decoder and logs a failure of that, unless the decoder
/// could not be opened or is given up.
/// Threads: one at a time.
class VIDORRA_API DecoderBase {
public:
    /// A decoder to use in place of FFmpeg's own choice, and the options to open it with.
    struct ChosenCodec {
        /// Owned by FFmpeg, which never frees it.
        const AVCodec* codec = nullptr;
        Dictionary options;
    };

    DecoderBase();
    DecoderBase(const DecoderBase&) = delete;
    DecoderBase& operator=(const DecoderBase&) = delete;
    virtual ~DecoderBase();

    /// Hands a packet to the decoder. An empty packet is refused with AvError::InvalidArgument, and logged.
    /// AvError::Again asks to receive first.
    AvRes send(const Packet& packet) const;

    /// The same without the look at the size. An AVPacket without data begins the end of the stream, after
    /// which receiving gives what the decoder holds back, then AvError::Eof; drain() makes it ready for new
    /// packets.
    AvRes send(const AVPacket& packet) const;

    /// The next frame. AvError::Again asks for more packets, AvError::Eof says that the stream has ended.
    [[nodiscard]] virtual tl::expected<AvPtr<AVFrame>, AvError> receiveAvFrame() const;

    /// Makes the codec context, in place of one that was there, for `chosen` or else FFmpeg's default
    /// decoder. Gives the options to open the codec with. Throws FFmpegError with AvError::DecoderNotFound,
    /// AvError::OutOfMemory or what FFmpeg says of the parameters.
    [[nodiscard]] Dictionary prepareCodec(std::optional<ChosenCodec> chosen,
                                          const AVCodecParameters& parameters);

    /// Opens the codec. Takes the options that it knows out of the dictionary. Throws std::logic_error before
    /// prepareCodec(), FFmpegError when the codec cannot be opened.
    void openCodec(Dictionary& options);

    /// Throws away what the decoder still holds and makes it ready for new data. Gives AvError::OutOfMemory
    /// or FFmpeg's error when something of that could not be decoded; the decoder is ready all the same,
    /// unless it is not open or given up.
    AvRes drain();

    /// Whether FFmpeg has run out of memory in the open codec. Some codecs access invalid memory when they
    /// are used after that, so sending, receiving and draining give AvError::OutOfMemory without calling
    /// FFmpeg, until prepareCodec() makes a new context.
    [[nodiscard]] bool isGivenUp() const noexcept;

    /// The codec's name, as log lines show it. Throws std::logic_error before prepareCodec().
    [[nodiscard]] std::string logPrefix() const;

    /// One line about the codec and its parameters. Throws std::logic_error before prepareCodec().
    [[nodiscard]] std::string codecInfo() const;

    /// FFmpeg's own object, null before prepareCodec().
    [[nodiscard]] const AVCodecContext* codecContext() const noexcept { return mCodecContext.get(); }

protected:
    /// What log lines of this decoder start with.
    [[nodiscard]] const std::string& prefix() const noexcept { return mPrefix; }

private:
    [[nodiscard]] AVCodecContext& context() const;
    AvRes watched(AvRes res) const noexcept;

    AvPtr<AVCodecContext> mCodecContext;
    std::string mPrefix;
    // prepareCodec() or openCodec() has thrown, or FFmpeg has run out of memory in the open codec. Mutable,
    // as what FFmpeg keeps is: send() and receiveAvFrame() are const and change it.
    mutable bool mFailed = false;
};

}  // namespace vidorra
