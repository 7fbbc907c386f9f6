#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <unordered_set>

#include "vidorra/core/export.h"
#include "vidorra/core/ffmpeg_fwd.h"
#include "vidorra/core/timestamp.h"
#include "vidorra/demux/decoder_base.h"
#include "vidorra/demux/packet.h"
#include "vidorra/picture/audio_frame.h"
#include "vidorra/picture/video_frame.h"

namespace vidorra {

/// An open media source: a file, a device, a network stream, whatever FFmpeg opens. It reads packets on one
/// time scale and decodes them, with one decoder a stream.
///
///     FormatContext source;
///     source.setUrl("clip.mp4");
///     source.open("", true, std::chrono::seconds(2));
///     const int video =
///         av_find_best_stream(source.getAVFormatContext(), AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
///     for (Packet packet = source.readPacket(); !source.isEOF(); packet = source.readPacket()) {
///         if (packet.stream_index == video) {
///             const VideoFrame frame = source.decodeVideoPacket(packet);
///             if (!frame.empty()) { ... }
///         }
///     }
///
/// Times are in microseconds with the source's time origin added: its start by the wall clock, where it knows
/// that, or its metadata "timeorigin".
///
/// Closed until open() succeeds, open until close(), and then ready to be opened again.
/// Owns: the AVFormatContext and the decoders.
/// Threads: one at a time, but for interrupt(), which any thread may call while another one reads.
class VIDORRA_API FormatContext {
public:
    FormatContext();
    FormatContext(const FormatContext&) = delete;
    FormatContext& operator=(const FormatContext&) = delete;
    /// Leaves the other one as if new. Not while another thread calls interrupt() on either.
    FormatContext(FormatContext&& other);  // NOLINT(performance-noexcept-move-constructor): allocates
    FormatContext& operator=(FormatContext&& other) noexcept;
    ~FormatContext();

    /// What the next open() opens.
    void setUrl(const std::string& url);

    /// Lets interrupt() end a blocking open or read, from the next open() on.
    void setInterruptCallback();

    /// Opens the source. `format` names a demuxer of FFmpeg to force; when it is empty, or unknown, which is
    /// logged, the format is detected. `findStreamInfo` reads ahead, for up to `analyzeDuration` of media,
    /// for what the headers do not say of the streams. An open source is closed first. Gives true. Throws
    /// std::runtime_error for a source that cannot be opened or read; after the failure to find stream
    /// information isOpened() is true, and close() releases it.
    bool open(const std::string& format, bool findStreamInfo, std::chrono::microseconds analyzeDuration);

    /// Releases the decoders and the source. Does nothing when closed.
    void close();

    /// Interrupts FFmpeg where it polls for that, which is while it waits on sockets. A wait for a local pipe
    /// or file that is already under way goes on; the next access fails. A read then throws. It holds until
    /// the next open(). Does nothing to a source that was opened before setInterruptCallback().
    void interrupt() noexcept;

    [[nodiscard]] bool isOpened() const noexcept { return mFormatContext != nullptr; }

    /// Whether a read has met the end of the data.
    [[nodiscard]] bool isEOF() const noexcept { return mEof; }

    /// The number of streams, 0 when closed.
    [[nodiscard]] unsigned tracksNumber() const noexcept;

    /// A stream of the open source, owned by it. The index is not checked.
    [[nodiscard]] AVStream* trackAtIndex(unsigned index) const noexcept;

    /// FFmpeg's own object, null when closed.
    [[nodiscard]] AVFormatContext* getAVFormatContext() const noexcept { return mFormatContext; }

    /// The next packet, of whatever stream. At the end of the data an empty one, and isEOF() is true. Where
    /// only one of pts and dts is known, both have it. Throws std::runtime_error with FFmpeg's text when
    /// reading fails, also when interrupt() ended it; std::logic_error when closed.
    [[nodiscard]] Packet readPacket();

    /// Sets the key flag of a packet by its content, since demuxers are not to be trusted with it. An H.264
    /// packet is a key packet when it holds a sequence parameter set, a picture parameter set and an IDR
    /// slice in this order, with Annex B start codes; every packet of another video codec is one. Packets of
    /// other streams are left alone.
    void setKeyFrameFlag(Packet& packet) const;

    /// Decodes a packet of a video stream: at most one frame for one packet, sharing the decoder's memory.
    /// Empty when the decoder wants more input, and when the packet cannot be decoded, which is logged. The
    /// decoder may keep frames back at the end of the data. Throws std::out_of_range for a packet of a stream
    /// that does not exist, std::logic_error when closed.
    [[nodiscard]] VideoFrame decodeVideoPacket(const Packet& packet);

    /// The decoder of a stream, made and opened at the first call. Null for a stream that is neither audio
    /// nor video, and for one whose decoder could not be found or opened, which is logged once. A decoder
    /// that is given up (see DecoderBase::isGivenUp()), one of the caller's too, is replaced by a new one.
    /// Throws std::out_of_range for a stream that does not exist, std::logic_error when closed.
    [[nodiscard]] std::unique_ptr<DecoderBase>& getCodecContext(unsigned streamIndex);

    /// Decodes a packet of an audio stream: at most one frame for one packet, with a copy of the samples. As
    /// decodeVideoPacket(); also throws std::runtime_error for a frame whose sample format has no size.
    ///
    /// A frame without a channel mask gets the usual one for its number of channels. Where there is none, as
    /// for 9 to 15 channels and more than 16, that is logged once per stream, and the result is empty.
    ///
    /// A frame and the duration of its packet are brought together: samples beyond the duration are cut at
    /// the end, and a frame with too few, as the first of many files is, starts later by what is missing.
    [[nodiscard]] AudioFrame decodeAudioPacket(const Packet& packet);

    /// Takes over the open decoders of another source for streams of equal parameters, the bit rate aside;
    /// both sources need the same number of streams. It saves opening them, and the decoded streams continue
    /// without a break. Streams of `other` for which this source has a decoder afterwards have none there,
    /// and no new one is made for them.
    void moveDecodersFromContext(FormatContext* other);

    /// Tells the demuxer which packets of a stream to leave out, as a value of FFmpeg's AVDiscard:
    /// AVDISCARD_NONE or AVDISCARD_ALL. Throws std::runtime_error when closed, std::out_of_range for a stream
    /// that does not exist.
    void discardTrackAtIndex(unsigned index, int discard);

    /// Goes to the last key frame at or before a time, given with the time origin in it. Does nothing when
    /// closed. Throws std::runtime_error with FFmpeg's text when the source cannot do that. Decoders keep
    /// what they hold: see drainDecoders(). Decoding then begins at that key frame: what comes before the
    /// time is for the caller to leave out.
    void seek(Timestamp to);

    /// Throws away what the decoders still hold and makes them ready for new data. A decoder that cannot do
    /// that is logged and passed over.
    void drainDecoders();

    /// A value of the source's metadata, empty when there is none, and when closed.
    [[nodiscard]] std::string metadata(const std::string& key) const;

    /// Whether the source cannot seek, as a pipe cannot. False when closed.
    [[nodiscard]] bool isStreamed() const noexcept;

protected:
    [[nodiscard]] const std::string& url() const noexcept { return mUrl; }
    [[nodiscard]] std::int64_t timeOrigin() const noexcept { return mTimeOrigin; }
    void setTimeOrigin(std::int64_t origin) noexcept { mTimeOrigin = origin; }

private:
    static int interrupt_cb(void* opaque);

    [[nodiscard]] std::unique_ptr<DecoderBase> makeDecoder(const AVStream& stream) const;
    void readTimeOrigin();

    std::string mUrl;
    AVFormatContext* mFormatContext = nullptr;
    std::int64_t mTimeOrigin = 0;
    // Not a plain member: FFmpeg keeps its address in places that a move cannot reach.
    std::unique_ptr<std::atomic<bool>> mInterrupted;
    std::uint64_t mPacketsRead = 0;
    bool mRawPacket = false;
    bool mEof = false;
    bool mInterruptEnabled = false;
    std::unordered_map<int, std::unique_ptr<DecoderBase>> mDecoders;
    // The streams of which it was logged that their sound has no channel mask.
    std::unordered_set<int> mRefusedSounds;
};

}  // namespace vidorra
