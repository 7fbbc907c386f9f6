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
/// time scale and decodes them, with one decoder for each stream.
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
/// ClipReader reads frames with less work, and all of them. Use this class for packets, streams and decoders
/// themselves.
///
/// Times are in microseconds and include the source's time origin: its start by the wall clock if it knows
/// that, or its metadata "timeorigin".
///
/// A source is closed until open() succeeds and open until close(); then it can be opened again.
/// Owns: the AVFormatContext and the decoders.
/// Threads: one at a time, except for interrupt(), which any thread may call while another one reads.
class VIDORRA_API FormatContext {
public:
    FormatContext();
    FormatContext(const FormatContext&) = delete;
    FormatContext& operator=(const FormatContext&) = delete;
    /// The moved-from source is as if new. Do not move while another thread calls interrupt() on either.
    FormatContext(FormatContext&& other);  // NOLINT(performance-noexcept-move-constructor): allocates
    FormatContext& operator=(FormatContext&& other) noexcept;
    ~FormatContext();

    /// Sets what the next open() opens.
    void setUrl(const std::string& url);

    /// Lets interrupt() end a blocking open or read, from the next open() on.
    void setInterruptCallback();

    /// Opens the source. `format` names an FFmpeg demuxer to use; when it is empty or unknown, which is
    /// logged, the format is detected. `findStreamInfo` reads up to `analyzeDuration` of media ahead to find
    /// what the headers do not say about the streams. An open source is closed first. Always returns true.
    /// Throws std::runtime_error for a source that cannot be opened or read. If finding the stream
    /// information fails, isOpened() is true afterwards, and close() releases the source.
    bool open(const std::string& format, bool findStreamInfo, std::chrono::microseconds analyzeDuration);

    /// Releases the decoders and the source. Does nothing when closed.
    void close();

    /// Interrupts FFmpeg where it polls for that, which is while it waits on sockets. A wait for a local
    /// pipe or file that is already under way continues; the next access fails. An interrupted read throws.
    /// The interruption lasts until the next open(). Has no effect on a source that was opened before
    /// setInterruptCallback().
    void interrupt() noexcept;

    [[nodiscard]] bool isOpened() const noexcept { return mFormatContext != nullptr; }

    /// Whether a read has reached the end of the data.
    [[nodiscard]] bool isEOF() const noexcept { return mEof; }

    /// The number of streams, 0 when closed.
    [[nodiscard]] unsigned tracksNumber() const noexcept;

    /// A stream of the open source, owned by it. The index is not checked.
    [[nodiscard]] AVStream* trackAtIndex(unsigned index) const noexcept;

    /// FFmpeg's own object, null when closed.
    [[nodiscard]] AVFormatContext* getAVFormatContext() const noexcept { return mFormatContext; }

    /// The next packet of any stream; at the end of the data an empty one, and isEOF() is true. If only one
    /// of pts and dts is known, both get that value. Throws std::runtime_error with FFmpeg's text when
    /// reading fails or is interrupted; std::logic_error when closed.
    [[nodiscard]] Packet readPacket();

    /// Sets the key flag of a packet by its content, since the demuxers' flags are unreliable. An H.264
    /// packet is a key packet when it holds a sequence parameter set, a picture parameter set and an IDR
    /// slice in this order, with Annex B start codes; every packet of another video codec is one. Packets of
    /// other streams stay unchanged.
    void setKeyFrameFlag(Packet& packet) const;

    /// Decodes a packet of a video stream into at most one frame, which shares the decoder's memory. The
    /// frame is empty when the decoder needs more input, and when the packet cannot be decoded, which is
    /// logged. At the end of the data the decoder may still hold frames back. Throws std::out_of_range for a
    /// packet of a stream that does not exist, std::logic_error when closed.
    [[nodiscard]] VideoFrame decodeVideoPacket(const Packet& packet);

    /// The decoder of a stream, made and opened at the first call. Null for a stream that is neither audio
    /// nor video, and for one whose decoder could not be found or opened, which is logged once. A decoder
    /// that is given up (see DecoderBase::isGivenUp()) is replaced by a new one, even if the caller had put
    /// it there. Throws std::out_of_range for a stream that does not exist, std::logic_error when closed.
    [[nodiscard]] std::unique_ptr<DecoderBase>& getCodecContext(unsigned streamIndex);

    /// Decodes a packet of an audio stream into at most one frame, with a copy of the samples. Empty results
    /// and errors are those of decodeVideoPacket(); it also throws std::runtime_error for a frame whose
    /// sample format has no known size.
    ///
    /// A frame without a channel mask gets the usual mask for its number of channels. If that number has
    /// none, as 9 to 15 channels and more than 16, the result is empty, and this is logged once per stream.
    ///
    /// Each frame is fitted to the duration of its packet: samples past the duration are cut off, and a
    /// frame with too few samples, such as the first frame of many files, starts later by the missing time.
    [[nodiscard]] AudioFrame decodeAudioPacket(const Packet& packet);

    /// Takes over the open decoders of another source for streams with equal parameters; the bit rate may
    /// differ. Both sources need the same number of streams. This saves opening the decoders, and the
    /// decoded streams continue without a break. Wherever this source then has a decoder, the stream of
    /// `other` is left without one, and `other` does not make a new one.
    void moveDecodersFromContext(FormatContext* other);

    /// Tells the demuxer which packets of a stream to discard, as a value of FFmpeg's AVDiscard:
    /// AVDISCARD_NONE or AVDISCARD_ALL. Throws std::runtime_error when closed, std::out_of_range for a
    /// stream that does not exist.
    void discardTrackAtIndex(unsigned index, int discard);

    /// Seeks to the last key frame at or before a time, which includes the time origin. Does nothing when
    /// closed. Throws std::runtime_error with FFmpeg's text when the source cannot seek there. Decoders keep
    /// what they hold: see drainDecoders(). Decoding continues at that key frame, so the caller has to skip
    /// the frames before the time.
    void seek(Timestamp to);

    /// Discards what the decoders still hold and makes them ready for new data. A failure of one decoder is
    /// logged, and the others are still drained.
    void drainDecoders();

    /// A value of the source's metadata; empty when there is none or the source is closed.
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
    // On the heap, because FFmpeg keeps its address in places that a move cannot reach.
    std::unique_ptr<std::atomic<bool>> mInterrupted;
    std::uint64_t mPacketsRead = 0;
    bool mRawPacket = false;
    bool mEof = false;
    bool mInterruptEnabled = false;
    std::unordered_map<int, std::unique_ptr<DecoderBase>> mDecoders;
    // The streams for which the missing channel mask has been logged.
    std::unordered_set<int> mRefusedSounds;
};

}  // namespace vidorra
