#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "vidorra/core/export.h"
#include "vidorra/core/timestamp.h"
#include "vidorra/io/byte_source.h"
#include "vidorra/picture/audio_frame.h"
#include "vidorra/picture/video_frame.h"

namespace vx::vdr::utils {
class WarningsStoreAsync;
}

namespace vidorra {

/// The result of ClipReader::read(): a picture or sound, with its position in the clip. Converts to false
/// when it is empty.
struct ClipFrame {
    std::variant<std::monostate, AudioFrame, VideoFrame> content;
    /// How long it shows or sounds, in microseconds.
    Timestamp duration;
    /// Its position in microseconds from the start of the source. The frame's time stamp differs from this
    /// by the in point and by the previous passes.
    Timestamp sourceTime;
    /// The pass of a loop that it belongs to, from 0.
    std::uint64_t pass = 0;

    explicit operator bool() const noexcept { return content.index() != 0; }

    /// The picture, null for sound.
    [[nodiscard]] const VideoFrame* video() const noexcept { return std::get_if<VideoFrame>(&content); }
    [[nodiscard]] VideoFrame* video() noexcept { return std::get_if<VideoFrame>(&content); }

    /// The sound, null for a picture.
    [[nodiscard]] const AudioFrame* audio() const noexcept { return std::get_if<AudioFrame>(&content); }
    [[nodiscard]] AudioFrame* audio() noexcept { return std::get_if<AudioFrame>(&content); }
};

/// An audio or video track of a source.
struct ClipTrack {
    enum class Kind { Audio, Video };

    Kind kind = Kind::Video;
    /// Its number among the tracks of its kind, from 0, as used in ClipOptions.
    int number = 0;
    /// FFmpeg's name, such as "h264".
    std::string codec;
    /// The language as in the source, such as "deu"; empty when it does not say.
    std::string language;
    /// A picture that belongs to the whole source, such as the cover of an album.
    bool attachedPicture = false;
    /// Whether the reader gives its frames.
    bool selected = false;
};

/// How a track is chosen.
enum class TrackChoice { Best, None, Number, Language };

/// Chooses a track of its kind: the best, none, by its number or by its language.
///
///     ClipOptions options;
///     options.audio = TrackChoice::None;
///     options.audio = 1;
///     options.audio = "deu";
///
/// A number counts the tracks of the kind from 0, attached pictures included. Languages are compared
/// case-insensitively; if no track has the language, the best one is chosen. Attached pictures are chosen
/// only by number.
struct ClipTrackChoice {
    TrackChoice by = TrackChoice::Best;
    int number = 0;
    std::string language;

    ClipTrackChoice() = default;
    ClipTrackChoice(TrackChoice choice) : by(choice) {}
    ClipTrackChoice(int trackNumber) : by(TrackChoice::Number), number(trackNumber) {}
    ClipTrackChoice(std::string name) : by(TrackChoice::Language), language(std::move(name)) {}
    ClipTrackChoice(const char* name) : ClipTrackChoice(std::string(name)) {}
};

/// Options of a ClipReader. The defaults are right for most programs.
struct ClipOptions {
    /// What to read of the source, from its start; null means its start and its end. The first picture is the
    /// one that shows at `in`; sound is cut to the sample at both ends.
    Timestamp in;
    Timestamp out;

    /// How often to read it, 0 for ever, which is a hundred years of stamps. A source that cannot seek is
    /// read once.
    std::uint64_t passes = 1;

    /// Ends each pass with its pictures: sound after the last picture is cut. By default a pass ends with
    /// whatever ends last. Without pictures it makes no difference.
    bool endWithPictures = false;

    ClipTrackChoice audio = TrackChoice::Best;
    ClipTrackChoice video = TrackChoice::Best;

    /// Decoder threads; 0 for as many as the budget of the process allows, see
    /// ClipReader::setThreadBudget(). The number of threads does not change the frames.
    int threads = 0;

    /// The longest time for opening, and for each wait for the next packet of a chosen track; 0 for no limit.
    std::chrono::microseconds openTimeout = std::chrono::seconds(30);
    std::chrono::microseconds readTimeout = std::chrono::seconds(30);

    /// FFmpeg's names of a demuxer and of decoders to use; empty for its choice.
    std::string format;
    std::string audioDecoder;
    std::string videoDecoder;

    /// FFmpeg's options for the protocol, the demuxer and the decoders; each takes the options that it
    /// knows.
    std::map<std::string, std::string> options;

    /// FFmpeg's names of protocols that the source itself may open, as playlists do, such as {"file"}.
    /// Nothing means the default, which is safe for files of unknown origin: local files and byte sources
    /// open nothing further, and network sources open network protocols only.
    std::optional<std::vector<std::string>> protocols;

    /// Where to raise warnings for the user about what the source is like, as MediaFileReader does; null for
    /// nowhere. They are withdrawn at the end of a pass.
    std::shared_ptr<vx::vdr::utils::WarningsStoreAsync> warnings;
};

/// Counts what a ClipReader has corrected or left out so far.
struct ClipCounters {
    /// Frames whose time stamp was missing or did not rise, so that it was computed from the previous frame.
    std::uint64_t repairedTimes = 0;
    /// Decoded frames that this library's frames cannot hold.
    std::uint64_t droppedFrames = 0;
    /// Packets that their decoder refused.
    std::uint64_t damagedPackets = 0;
};

/// Reads every frame of a media file, up to its real end.
///
///     ClipReader reader("clip.mp4");
///     while (const auto frame = reader.read()) {
///         if (const VideoFrame* picture = frame.video()) { ... }
///         if (const AudioFrame* sound = frame.audio()) { ... }
///     }
///
/// Gives the frames of at most one audio and one video track, in the order in which they come out of the
/// file. Time stamps are in microseconds, begin at the in point with 0 and rise for each track: pictures by
/// their times, sound by the count of its samples. A loop continues without a gap: each pass begins at the
/// latest end of the previous one, decoders return everything that they hold, and what a codec adds at the
/// ends (priming and padding) is cut to the sample in every pass. If a container declares padding that
/// FFmpeg leaves in, as MP4 does for AAC with FFmpeg before 9, it is cut between passes but stays at the
/// end.
///
/// The constructor opens nothing. Whatever needs the open source opens it first, so each of these calls can
/// throw what open() throws. A reader that was moved from can be assigned to and destroyed, and nothing else.
///
/// Threads: one at a time, except for stop(), stopped(), position() and counters(), which any thread may
/// call.
/// Errors: FFmpegError with FFmpeg's reason and the name of the source, its error() AVERROR(ETIMEDOUT) for a
/// timeout and AVERROR_EXIT after stop(); exceptions of a ByteSource unchanged. After an error while reading,
/// the frames that the decoders hold come first, then the exception, and then the reader is at its end.
class VIDORRA_API ClipReader {
public:
    /// Reads a URL or a path. Throws std::invalid_argument for options that contradict each other: an out
    /// point not after the in point, a negative in point, number, thread count or timeout.
    explicit ClipReader(std::string url, ClipOptions options = {});

    /// Reads from a byte source, which must not be null and serves one reader.
    explicit ClipReader(std::shared_ptr<ByteSource> source, ClipOptions options = {});

    ClipReader(const ClipReader&) = delete;
    ClipReader& operator=(const ClipReader&) = delete;
    ClipReader(ClipReader&& other) noexcept;
    ClipReader& operator=(ClipReader&& other) noexcept;

    /// Does not wait for the source, except for a running system call.
    ~ClipReader();

    /// Opens the source and its decoders. Does nothing when open. Throws FFmpegError when the source cannot
    /// be opened or holds nothing that can be decoded; std::invalid_argument for a track, format or decoder
    /// that does not exist. After a failure another call tries again.
    void open();

    /// The next frame. Nothing at the end, and after stop().
    [[nodiscard]] ClipFrame read();

    /// The target of seek().
    enum class SeekTo {
        /// The picture that shows at the time, and the sample at it.
        Exact,
        /// The last key frame at or before the time. Much faster if key frames are far apart.
        KeyFrame,
    };

    /// Continues at a time of the first pass, counted from the in point. The next frames have stamps from
    /// there on, and a loop starts to count its passes again. A time before 0 means 0; after the end read()
    /// returns nothing. Throws FFmpegError when the source cannot seek and the time is before the current
    /// position, which changes nothing, and when reading or opening fails; the reader is then at its end
    /// until another call.
    void seek(const Timestamp& to, SeekTo mode = SeekTo::Exact);

    /// Ends a running call in another thread and all later ones for good: read() returns nothing, and other
    /// calls that need the source throw. Returns at once. How soon the other call ends depends on the
    /// source: FFmpeg checks ten times a second while it waits for the network, a descriptor or an
    /// interruptible byte source stops at once, and a system call for a file has to finish first.
    void stop() noexcept;

    [[nodiscard]] bool stopped() const noexcept;

    /// The latest end of the frames returned so far, on the scale of their stamps; 0 before the first.
    [[nodiscard]] Timestamp position() const noexcept;

    /// The length of one pass according to the source, in microseconds; null when it does not say.
    [[nodiscard]] Timestamp duration();

    /// All audio and video tracks of the source.
    [[nodiscard]] const std::vector<ClipTrack>& tracks();

    /// The names of ClipOptions::options that nothing recognised.
    [[nodiscard]] std::vector<std::string> unusedOptions();

    [[nodiscard]] ClipCounters counters() const noexcept;

    /// How many decoder threads the readers of this process may have together; as many as there are CPUs by
    /// default. A reader whose options set no number takes its share when it opens a decoder, and decodes on
    /// the caller's thread if nothing is left. Any thread may call this; open decoders keep their threads.
    /// Throws std::invalid_argument for a negative number.
    static void setThreadBudget(int threads);

private:
    class Implementation;
    std::unique_ptr<Implementation> mImplementation;
};

}  // namespace vidorra
