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

/// One encoder: a configuration chooses the FFmpeg encoder and its options, and receivePacket() returns the
/// packets. Derived classes take the frames.
///
///     encoder.sendFrame(frame).throwIfError("the encoder does not take a frame");
///     while (const auto packet = encoder.receivePacket()) { ... }
///
/// At the end call sendEndOfStream() and run the loop again. docs/RECIPES.md shows how to write packets into
/// a file.
///
/// The configuration chooses the encoder by one of two keys, each a scalar:
///
///     codec_id   the name of a codec, such as "h264": FFmpeg's default encoder for it; wins over codec
///     codec      the name of an encoder, such as "libx264"
///
/// When the codec runs out of memory it is given up: after that, every call that sends a frame or asks for a
/// packet fails with AvError::OutOfMemory. Only a new object encodes again.
///
/// It also keeps a ledger of the times at which the input had no signal, and marks packets accordingly.
///
/// Owns: its AVCodecContext. The destructor flushes nothing.
/// Threads: one at a time.
class VIDORRA_API EncoderBase {
public:
    /// FFmpeg's default encoder for a codec, never null. Throws std::runtime_error when there is none.
    [[nodiscard]] static const AVCodec* encoderById(AVCodecID id);

    /// The encoder that a configuration chooses, never null. Throws std::runtime_error when it has neither
    /// key or FFmpeg has no such encoder, BadCast for an unknown codec_id, std::bad_cast for a codec that is
    /// not a scalar. A codec_id that is not a scalar counts as "none", for which there is no encoder.
    [[nodiscard]] static const AVCodec* encoderFromParams(const objstream::object& config);

    /// Allocates the context of the chosen encoder; it is not open yet. Log lines begin with `name`, a
    /// hyphen and the encoder's name. Throws as encoderFromParams(), and std::runtime_error when there is no
    /// memory.
    EncoderBase(const objstream::object& config, const std::string& name);
    EncoderBase(const EncoderBase&) = delete;
    EncoderBase& operator=(const EncoderBase&) = delete;
    /// Not virtual: delete an encoder through its own class.
    ~EncoderBase();

    /// Sets an option of the context or of the codec by name. The constructors of derived classes open the
    /// codec; after that most options have no effect, which is not an error. Throws FFmpegError with
    /// AvError::OptionNotFound, AvError::OutOfRange, AvError::InvalidArgument or another error of FFmpeg.
    /// "ac", "channel_layout" and "ch_layout" work with every FFmpeg version.
    void setOption(const std::string& name, const std::string& value);

    /// Opens the codec. Throws FFmpegError when that fails; you may then try again.
    void openCodec();

    /// Copies what a muxer needs to know about the stream. Returns AvError::OutOfMemory when there is no
    /// memory for it.
    AvRes fillCodecParameters(AVCodecParameters& parameters) const;

    /// Tells the ledger whether a frame had no signal, with its time in the time base of the context.
    /// Derived classes call this once for every frame that they take. Only changes count: the first frame
    /// without a signal starts an outage, and the next frame with a signal ends it.
    void pushNoSignalState(bool noSignal, const Timestamp& timestamp);

    /// Whether there was no signal at a time, judged by the latest change only: during an outage, every time
    /// from its start on; after an outage, every time before its end. Earlier changes are forgotten. The
    /// null mark of the time is ignored.
    [[nodiscard]] bool wasNoSignalAt(const Timestamp& timestamp) const;

    /// The next packet, with times in the time base of the context, and marked Packet::NoSignal according to
    /// the ledger. Video packets have no duration. AvError::Again means that more frames are needed,
    /// AvError::Eof that the stream has ended, AvError::InvalidArgument that the codec is not open. Other
    /// FFmpeg errors are returned too.
    [[nodiscard]] tl::expected<Packet, AvError> receivePacket();

    /// Starts the end of the stream: receivePacket() then returns the remaining packets and finally
    /// AvError::Eof. Returns AvError::Eof for a stream that is already ending, AvError::Again when packets
    /// must be received first, AvError::InvalidArgument when the codec is not open. A filter before the
    /// codec is not ended: frames that are still in it are lost unless endFilter() of the derived class was
    /// called first.
    AvRes sendEndOfStream();

    /// Ends the stream and discards the remaining packets. Returns whether the end was reached. FFmpeg
    /// cannot end a stream while it holds packets that were not received; this then discards them and
    /// returns false, and a second call ends the stream. Returns false for a codec that is given up.
    bool drain();

    /// FFmpeg's own object, never null: its time base, sizes and formats.
    [[nodiscard]] const AVCodecContext* codecContext() const noexcept { return mCodecContext.get(); }

protected:
    /// The same, writable.
    [[nodiscard]] AVCodecContext* context() noexcept { return mCodecContext.get(); }

    /// Sets each pair of a map as an option; a value that is not a scalar is passed as an empty text. An
    /// object that is not a map has no options. Throws as setOption().
    void setOptions(const objstream::object& options);

    /// Sends the codec a frame, or null for the end of the stream. AvError::OutOfMemory once it is given up.
    AvRes send(const AVFrame* frame);

    /// The prefix of this encoder's log lines.
    [[nodiscard]] const std::string& logName() const noexcept { return mLogName; }

private:
    AvRes watched(AvRes res) noexcept;

    AvPtr<AVCodecContext> mCodecContext;
    std::string mLogName;
    // The latest change: once there was one, one of the two is set and the other one is null.
    Timestamp mNoSignalStart;
    Timestamp mNoSignalEnd;
    // The codec has run out of memory. FFmpeg's encoders crash when they are used on.
    bool mIsGivenUp = false;
};

}  // namespace vidorra
