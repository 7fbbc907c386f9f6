#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "objstream/object.h"
#include "vidorra/core/export.h"
#include "vidorra/core/ffmpeg_fwd.h"
#include "vidorra/core/timestamp.h"
#include "vidorra/demux/packet.h"
#include "vidorra/io/byte_sink.h"
#include "vidorra/picture/audio_frame.h"
#include "vidorra/picture/video_frame.h"

namespace vidorra {

/// Options of a MediaFileWriter. The defaults are right for most programs.
struct WriterOptions {
    /// FFmpeg's name of a container, such as "matroska"; if empty, the file's name chooses it.
    std::string format{};

    /// FFmpeg's options of the container, such as {"movflags", "faststart"}.
    std::map<std::string, std::string> container{};

    /// Writes MP4 and MOV in fragments that play on their own, so that a crash loses only the latest
    /// fragment. 0 makes a fragment for each key frame, or of a second if there is only sound; otherwise
    /// fragments have at least this length. Nothing means a file in one piece, which is useless until
    /// finish(), unless the sink cannot seek.
    std::optional<std::chrono::microseconds> fragmentDuration{};

    /// Begins a new file at the first key frame after this length, counted by the first video track, or
    /// without one by the first audio track; 0 for one file. Video encoders have to close their groups of
    /// pictures, so that each file plays on its own.
    std::chrono::microseconds segmentDuration{0};

    /// The path of a segment by its number, from 0, and the time of its first frame. Without it the path of
    /// the writer has a "%d", or "%05d" for leading zeros, in place of the number.
    std::function<std::string(std::uint64_t number, const Timestamp& start)> segmentName{};

    /// Where to write an HLS playlist of the segments, which have to be MPEG-TS then; empty for none. It is
    /// replaced as a whole after each segment. With a playlist times continue from segment to segment;
    /// without one each segment begins at 0.
    std::string playlist{};

    /// The most bytes of packets that may wait for those of another track. Tracks are written in the order of
    /// time, so packets wait for a track that lags.
    std::size_t mostWaiting = std::size_t{64} << 20;

    /// Writes each file under its name with ".part" appended, and renames it when it is complete. Otherwise
    /// it has its name from the start.
    bool whole = true;

    /// Reads each file before it is called complete, and compares the packets with those that were written:
    /// their number, times and content. Takes 8 bytes of memory for each packet of a file. Not for a path at
    /// which there is a device or a FIFO.
    bool verify = false;

    /// Called at the end of each write() with the number of frames and packets taken so far, and the time up
    /// to which the file is written. Its exceptions pass through write(), and the writer stays usable.
    std::function<void(std::uint64_t frames, const Timestamp& time)> progress{};
};

/// What a MediaFileWriter has written.
struct WriterReport {
    /// A half-open stretch of time, and the packets in it.
    struct Stretch {
        Timestamp begin;
        Timestamp end;
        std::uint64_t packets = 0;
    };

    struct Track {
        /// FFmpeg's name of the codec, such as "h264".
        std::string codec;
        /// How many frames write() took; 0 for a track of packets.
        std::uint64_t frames = 0;
        std::uint64_t packets = 0;
        /// The bytes of the packets, without the container's overhead.
        std::uint64_t bytes = 0;
        /// When the first frame begins and the last one ends, as write() was told, in the unit of the encoder
        /// or of the packets; null without packets.
        Timestamp begin;
        Timestamp end;
        /// The stretches in which packets have the mark Packet::NoSignal, in order.
        std::vector<Stretch> noSignal;
    };

    std::vector<Track> tracks;
    /// The paths of the files, in order; none for a sink.
    std::vector<std::string> files;
    /// The most bytes of packets that waited for another track.
    std::size_t mostWaiting = 0;
};

/// Encodes frames into a media file, or takes packets unchanged. The file is complete, or an exception says
/// why it is not.
///
///     MediaFileWriter writer("out.mp4");
///     const MediaFileWriter::Track video = writer.addVideo(config["video"]);
///     const MediaFileWriter::Track audio = writer.addAudio(config["audio"]);
///     writer.write(video, frame);
///     writer.write(audio, AudioFrame(buffer, time));  // of any number of samples, rate and layout
///     ...
///     const WriterReport report = writer.finish();
///
/// Times of frames and packets are on one scale for all tracks. The earliest time becomes 0 in the file.
/// Gaps in the sound of more than a hundredth of a second become silence, and overlapping sound is cut. The
/// tracks may be written in any order, but not far apart: see WriterOptions::mostWaiting.
///
/// Container and encoders agree about headers and time bases. Pictures last until the next one, the last one
/// as long as the one before. Aspect and colours are those of the encoder's options. If the container has a
/// timecode track, it begins with the timecode of the first picture that has one.
///
/// Errors: after an exception that a frame or packet was refused the writer is unchanged. After any other
/// exception the writer has failed: the file is completed as far as possible and closed under the name in
/// the exception, and every further call throws std::logic_error.
///
/// Owns: encoders, filters and files, and a share of the sink. Threads: one at a time.
class VIDORRA_API MediaFileWriter {
public:
    /// The number of a track, from 0.
    using Track = std::size_t;

    /// Writes to a path. Throws FFmpegError when FFmpeg has no container for it, std::invalid_argument for
    /// options that do not exist or contradict each other, std::system_error when the file cannot be
    /// created.
    explicit MediaFileWriter(const std::string& path, WriterOptions options = {});

    /// Writes to a sink, which is closed when the file is complete; the options must set the format. If the
    /// sink cannot seek, MP4 and MOV are written in fragments, and other containers that have to seek fail.
    /// Throws as above, and std::invalid_argument for segments, verification, a null sink, and a format that
    /// makes files by itself.
    explicit MediaFileWriter(std::shared_ptr<ByteSink> sink, WriterOptions options = {});

    MediaFileWriter(MediaFileWriter&& other) noexcept;
    MediaFileWriter& operator=(MediaFileWriter&& other) noexcept;

    /// Without finish(), completes the file as far as possible, leaves it under its temporary name, and logs
    /// the name. Does not throw.
    ~MediaFileWriter();

    /// Adds a track of pictures, with the configuration of a VideoEncoder. Throws as its constructor, and
    /// std::logic_error after the first write().
    Track addVideo(const objstream::object& config);

    /// Adds a track of sound, with the configuration of an AudioEncoder, whose filter may change the number
    /// of samples. Throws as addVideo().
    Track addAudio(const objstream::object& config);

    /// Adds a track of packets that are written unchanged, with times in units of `timebase`. Throws
    /// std::invalid_argument for parameters without a codec and a time base that is not positive,
    /// std::logic_error after the first write().
    Track addPackets(const AVCodecParameters& parameters, Timebase timebase);

    /// Takes a frame or packet. Within a track the times of pictures and sound must rise, and so must the
    /// decoding times of packets.
    ///
    /// A refused frame or packet throws
    ///
    /// - std::invalid_argument if it is empty or has no time, or if its time does not rise in the unit of
    ///   the encoder;
    /// - FFmpegError with AvError::InvalidArgument if the encoder does not take the frame;
    /// - std::runtime_error if it would have to wait for a track that lags, which the text names;
    /// - what VideoEncoder::sendFrame() and Resampler::resample() throw.
    ///
    /// Also throws std::out_of_range for a track that does not exist, and std::logic_error for one of
    /// another kind and after finish() or end().
    ///
    /// The writer fails with FFmpegError when encoding or writing fails, std::system_error when the file
    /// takes no more bytes, std::runtime_error when the silence before a frame is so long that twice
    /// WriterOptions::mostWaiting would wait for a track that lags, or what the sink throws. A frame after
    /// the end of a filter that ends by itself is ignored.
    void write(Track track, const VideoFrame& frame);
    void write(Track track, const AudioFrame& frame);
    void write(Track track, const Packet& packet);

    /// Tells that a track has ended, so that the others do not wait for it. Throws as write().
    void end(Track track);

    /// Writes what filters and encoders still hold, and completes the file. It omits tracks without a
    /// packet. Throws as write(), and std::runtime_error when nothing was written at all or the verification
    /// finds a difference.
    WriterReport finish();

private:
    class Work;
    std::unique_ptr<Work> mWork;
};

}  // namespace vidorra
