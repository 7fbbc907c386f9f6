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

/// What ClipReader::read() gives: a picture or sound, with its place in the clip. False when there is
/// nothing.
struct ClipFrame {
    std::variant<std::monostate, AudioFrame, VideoFrame> content;
    /// How long it shows or sounds, in microseconds.
    Timestamp duration;
    /// Where it is in the source, in microseconds from the start of the source. The time stamp of the frame
    /// differs from that by the in point and by the passes before it.
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
    /// Its number among the tracks of its kind, from 0, by which ClipOptions chooses it.
    int number = 0;
    /// FFmpeg's name, such as "h264".
    std::string codec;
    /// As the source spells it, such as "deu"; empty when it does not say.
    std::string language;
    /// A picture that belongs to the whole source, such as the cover of an album.
    bool attachedPicture = false;
    /// Whether the reader gives its frames.
    bool selected = false;
};

/// By what a track is chosen.
enum class TrackChoice { Best, None, Number, Language };

/// Chooses a track of its kind: the best, none, by its number or by its language.
///
///     options.audio = TrackChoice::None;
///     options.audio = 1;
///     options.audio = "deu";
///
/// A number counts the tracks of the kind from 0, attached pictures included. A language is compared without
/// case; where no track has it, the best is taken. Attached pictures are taken by number only.
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

    /// How often to read it, 0 for ever. A source that cannot seek is read once.
    std::uint64_t passes = 1;

    /// Ends each pass with its pictures: sound after the last picture is cut. By default a pass ends with
    /// whatever ends last. Without pictures it makes no difference.
    bool endWithPictures = false;

    ClipTrackChoice audio = TrackChoice::Best;
    ClipTrackChoice video = TrackChoice::Best;

    /// Decoder threads; 0 for as many as the budget of the process spares, see ClipReader::setThreadBudget().
    /// The number of threads does not change the frames.
    int threads = 0;

    /// The most that opening may take, and the wait for the next bytes; 0 for no limit.
    std::chrono::microseconds openTimeout = std::chrono::seconds(30);
    std::chrono::microseconds readTimeout = std::chrono::seconds(30);

    /// FFmpeg's names of a demuxer and of decoders to use; empty for its choice.
    std::string format;
    std::string audioDecoder;
    std::string videoDecoder;

    /// FFmpeg's options for the protocol, the demuxer and the decoders, each of which takes those that it
    /// knows.
    std::map<std::string, std::string> options;

    /// FFmpeg's names of protocols which the source may open by itself, as playlists do, such as {"file"}.
    /// Nothing means the default, which is safe for files of unknown origin: local files and byte sources
    /// open nothing further, and network sources open network protocols only.
    std::optional<std::vector<std::string>> protocols;

    /// Where to raise warnings for the user about what the source is like, as MediaFileReader does; null for
    /// nowhere. They are withdrawn at the end of a pass.
    std::shared_ptr<vx::vdr::utils::WarningsStoreAsync> warnings;
};

/// What a ClipReader had to mend or leave out so far.
struct ClipCounters {
    /// Frames whose time stamp was missing or did not rise, and was made from the frame before it.
    std::uint64_t repairedTimes = 0;
    /// Frames that a decoder gave and that no frame of this library can hold.
    std::uint64_t droppedFrames = 0;
    /// Packets that their decoder did not take.
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
/// greatest end of the one before, decoders give all that they hold, and what a codec adds at the ends
/// (priming and padding) is cut to the sample, in each pass as in the first. Where a container tells of
/// padding that FFmpeg leaves, as MP4 does of AAC with FFmpeg before 9, it is cut between passes and stays at
/// the end.
///
/// The constructor opens nothing. Whatever needs the open source opens it first, so each of these calls can
/// throw what open() throws.
///
/// Threads: one at a time, but for stop(), stopped(), position() and counters(), which any thread may call.
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

    /// Does not wait for the source, but for a call of the operating system that it is in.
    ~ClipReader();

    /// Opens the source and its decoders. Does nothing when open. Throws FFmpegError when the source cannot
    /// be opened or holds nothing that can be decoded; std::invalid_argument for a track, format or decoder
    /// that does not exist. After a failure another call tries again.
    void open();

    /// The next frame. Nothing at the end, and after stop().
    [[nodiscard]] ClipFrame read();

    /// Where seek() goes.
    enum class SeekTo {
        /// The picture that shows at the time, and the sample at it.
        Exact,
        /// The last key frame at or before the time. Much faster where key frames are far apart.
        KeyFrame,
    };

    /// Continues at a time of the first pass, counted from the in point. The next frames have stamps from
    /// there on, and a loop begins to count its passes again. Before 0 means 0; after the end, read() gives
    /// nothing. Throws FFmpegError when the source cannot seek and the time is before the current position.
    void seek(const Timestamp& to, SeekTo mode = SeekTo::Exact);

    /// Ends a call that is under way in another thread, and all later ones, for good: read() gives nothing,
    /// and what else needs the source throws. Returns at once. The other call ends as soon as it looks:
    /// FFmpeg does so ten times a second while it waits for the network, a descriptor and a byte source that
    /// can be interrupted at once, a wait of the operating system for a file at its end.
    void stop() noexcept;

    [[nodiscard]] bool stopped() const noexcept;

    /// The greatest end of the frames given so far, as their stamps count; 0 before the first.
    [[nodiscard]] Timestamp position() const noexcept;

    /// The length of one pass by what the source says of itself, in microseconds; null when it does not say.
    [[nodiscard]] Timestamp duration();

    /// All audio and video tracks of the source.
    [[nodiscard]] const std::vector<ClipTrack>& tracks();

    /// The names of ClipOptions::options that nothing knew.
    [[nodiscard]] std::vector<std::string> unusedOptions();

    [[nodiscard]] ClipCounters counters() const noexcept;

    /// How many decoder threads the readers of this process may have together; as many as there are CPUs by
    /// default. A reader without a number of threads of its own takes its share when it opens a decoder, and
    /// decodes on the thread of its caller where nothing is left. Any thread may call it; open decoders keep
    /// their threads. Throws std::invalid_argument for a negative number.
    static void setThreadBudget(int threads);

private:
    class Implementation;
    std::unique_ptr<Implementation> mImplementation;
};

}  // namespace vidorra
