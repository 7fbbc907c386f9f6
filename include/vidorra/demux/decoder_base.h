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

/// One decoder: FFmpeg's cycle of sending packets and receiving frames. Call prepareCodec() and openCodec()
/// first: before prepareCodec(), sending, receiving and draining throw std::logic_error, and before
/// openCodec() they return AvError::InvalidArgument.
///
///     VideoDecoder decoder;
///     Dictionary options = decoder.prepareCodec(std::nullopt, *stream->codecpar);
///     decoder.openCodec(options);
///     decoder.send(packet).throwIfError("the decoder does not take a packet");
///     while (const auto frame = decoder.receive()) { ... }
///
/// FormatContext makes its decoders itself.
///
/// Owns: its AVCodecContext. The destructor drains the decoder and logs a failure to do so, unless the
/// decoder could not be opened or is given up.
/// Threads: one at a time.
class VIDORRA_API DecoderBase {
public:
    /// A decoder to use in place of FFmpeg's own choice, and the options to open it with.
    struct ChosenCodec {
        /// Static data of FFmpeg, never freed.
        const AVCodec* codec = nullptr;
        Dictionary options;
    };

    DecoderBase();
    DecoderBase(const DecoderBase&) = delete;
    DecoderBase& operator=(const DecoderBase&) = delete;
    virtual ~DecoderBase();

    /// Sends a packet to the decoder. An empty packet is logged and refused with AvError::InvalidArgument.
    /// AvError::Again means that frames must be received first.
    AvRes send(const Packet& packet) const;

    /// The same without the check for an empty packet. An AVPacket without data ends the stream: receiving
    /// then returns the frames that the decoder holds back, followed by AvError::Eof. drain() makes the
    /// decoder ready for new packets.
    AvRes send(const AVPacket& packet) const;

    /// The next frame. AvError::Again means that more packets are needed, AvError::Eof that the stream has
    /// ended.
    [[nodiscard]] virtual tl::expected<AvPtr<AVFrame>, AvError> receiveAvFrame() const;

    /// Makes the codec context for `chosen`, or else for FFmpeg's default decoder, and replaces any earlier
    /// one. Returns the options to open the codec with. Throws FFmpegError with AvError::DecoderNotFound,
    /// AvError::OutOfMemory or FFmpeg's error for the parameters.
    [[nodiscard]] Dictionary prepareCodec(std::optional<ChosenCodec> chosen,
                                          const AVCodecParameters& parameters);

    /// Opens the codec and removes the options that it knows from the dictionary. Throws std::logic_error
    /// before prepareCodec(), FFmpegError when the codec cannot be opened.
    void openCodec(Dictionary& options);

    /// Discards what the decoder still holds and makes it ready for new data. Returns AvError::OutOfMemory
    /// or FFmpeg's error when some of it could not be decoded; the decoder is ready even then, unless it is
    /// not open or is given up.
    AvRes drain();

    /// Whether FFmpeg has run out of memory in the open codec. Some codecs access invalid memory when they
    /// are used after that, so sending, receiving and draining return AvError::OutOfMemory without calling
    /// FFmpeg, until prepareCodec() makes a new context.
    [[nodiscard]] bool isGivenUp() const noexcept;

    /// The codec's name, as log lines show it. Throws std::logic_error before prepareCodec().
    [[nodiscard]] std::string logPrefix() const;

    /// One line about the codec and its parameters. Throws std::logic_error before prepareCodec().
    [[nodiscard]] std::string codecInfo() const;

    /// FFmpeg's own object, null before prepareCodec().
    [[nodiscard]] const AVCodecContext* codecContext() const noexcept { return mCodecContext.get(); }

protected:
    /// The prefix of this decoder's log lines.
    [[nodiscard]] const std::string& prefix() const noexcept { return mPrefix; }

private:
    [[nodiscard]] AVCodecContext& context() const;
    AvRes watched(AvRes res) const noexcept;

    AvPtr<AVCodecContext> mCodecContext;
    std::string mPrefix;
    // prepareCodec() or openCodec() has thrown, or FFmpeg has run out of memory in the open codec. Mutable,
    // like FFmpeg's own state: the const functions send() and receiveAvFrame() change both.
    mutable bool mFailed = false;
};

}  // namespace vidorra
