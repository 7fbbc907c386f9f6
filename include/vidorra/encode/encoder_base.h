#pragma once

#include <string>

#include "objstream/object.h"
#include "vidorra/core/av_ptr.h"
#include "vidorra/core/av_res.h"
#include "vidorra/core/export.h"
#include "vidorra/core/ffmpeg_fwd.h"
#include "vidorra/core/timestamp.h"
#include "vidorra/demux/packet.h"

#include <tl/expected.hpp>

namespace vidorra {

/// One encoder: the choice of an FFmpeg encoder by a configuration, its options, and the packets that come
/// out of it. Frames go in through the derived classes.
///
///     encoder.sendFrame(frame).throwIfError("the encoder does not take a frame");
///     while (const auto packet = encoder.receivePacket()) { ... }
///
/// At the end sendEndOfStream() and the same loop. docs/RECIPES.md shows how packets get into a file.
///
/// The configuration chooses the encoder by one of two keys, each a scalar:
///
///     codec_id   the name of a codec, such as "h264": FFmpeg's default encoder for it; wins over codec
///     codec      the name of an encoder, such as "libx264"
///
/// It also keeps a ledger of the stretches in which the input had no signal, by which packets are marked.
///
/// Owns: its AVCodecContext. Nothing is flushed by the destructor.
/// Threads: one at a time.
class VIDORRA_API EncoderBase {
public:
    /// FFmpeg's default encoder for a codec, never null. Throws std::runtime_error when there is none.
    [[nodiscard]] static const AVCodec* encoderById(AVCodecID id);

    /// The encoder that a configuration chooses, never null. Throws std::runtime_error when it has neither
    /// key or FFmpeg has no such encoder, BadCast for an unknown codec_id, std::bad_cast for a codec that is
    /// no scalar. A codec_id that is no scalar counts as "none", for which there is no encoder.
    [[nodiscard]] static const AVCodec* encoderFromParams(const objstream::object& config);

    /// Allocates the context of the chosen encoder; it is not open yet. Log lines begin with `name`, a hyphen
    /// and the encoder's name. Throws as encoderFromParams(), and std::runtime_error when memory is short.
    EncoderBase(const objstream::object& config, const std::string& name);
    EncoderBase(const EncoderBase&) = delete;
    EncoderBase& operator=(const EncoderBase&) = delete;
    /// Not virtual: delete an encoder through its own class.
    ~EncoderBase();

    /// Sets an option of the context or of the codec by name. Once the codec is open, as the derived classes
    /// leave it, most options have no effect, and that is no error. Throws FFmpegError with
    /// AvError::OptionNotFound, AvError::OutOfRange, AvError::InvalidArgument or another error of FFmpeg.
    /// "ac", "channel_layout" and "ch_layout" are known whatever the version of FFmpeg.
    void setOption(const std::string& name, const std::string& value);

    /// Opens the codec. Throws FFmpegError when that fails; it may be tried again then.
    void openCodec();

    /// Copies what a muxer has to know of the stream. AvError::OutOfMemory when there is no memory for it.
    AvRes fillCodecParameters(AVCodecParameters& parameters) const;

    /// Tells the ledger whether a frame had no signal, with its time in the time base of the context. Derived
    /// classes call this once for every frame that they take. Only changes count: the first frame without
    /// signal begins an outage, and the first one with signal ends it.
    void pushNoSignalState(bool noSignal, const Timestamp& timestamp);

    /// Whether a time lies in a stretch without signal, as far as the latest change tells: from the begin of
    /// an outage on, or before its end. What came before the latest change is forgotten, so after an outage
    /// everything before its end counts. The null mark of the time plays no part.
    [[nodiscard]] bool wasNoSignalAt(const Timestamp& timestamp) const;

    /// The next packet, with times in the time base of the context, and marked Packet::NoSignal by the
    /// ledger. Packets of video have no duration. AvError::Again asks for more frames, AvError::Eof says that
    /// the stream has ended; AvError::InvalidArgument when the codec is not open, and other errors of FFmpeg.
    [[nodiscard]] tl::expected<Packet, AvError> receivePacket();

    /// Begins the end of the stream: receivePacket() gives what is left, then AvError::Eof. AvError::Eof for
    /// a stream that is ending already, AvError::Again when packets have to be received first,
    /// AvError::InvalidArgument when the codec is not open. It does not reach a filter in front of the codec:
    /// frames that are still in there are lost unless endFilter() of the derived class was called before.
    AvRes sendEndOfStream();

    /// Ends the stream and throws away the packets that are left. Gives whether the end was reached. FFmpeg
    /// does not begin to end while it holds packets that nobody has received: then this throws those away and
    /// gives false, and a second call ends.
    bool drain();

    /// FFmpeg's own object, never null: its time base, sizes and formats.
    [[nodiscard]] const AVCodecContext* codecContext() const noexcept { return mCodecContext.get(); }

protected:
    /// The same to be filled and used.
    [[nodiscard]] AVCodecContext* context() noexcept { return mCodecContext.get(); }

    /// Sets each pair of a map as an option; a value that is no scalar is passed as an empty text. An object
    /// that is nothing, or no map, has none. Throws as setOption().
    void setOptions(const objstream::object& options);

    /// What log lines of this encoder start with.
    [[nodiscard]] const std::string& logName() const noexcept { return mLogName; }

private:
    AvPtr<AVCodecContext> mCodecContext;
    std::string mLogName;
    // The latest change: after the first one, one of the two is set and the other one null.
    Timestamp mNoSignalStart;
    Timestamp mNoSignalEnd;
};

}  // namespace vidorra
