#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "vidorra/clip/clip_reader.h"
#include "vidorra/core/av_error.h"
#include "vidorra/core/export.h"
#include "vidorra/core/timestamp.h"
#include "vidorra/picture/audio_frame.h"
#include "vidorra/picture/video_frame.h"

namespace vidorra {

/// Options of a ClipPlayer. The defaults are right for most programs.
struct PlayOptions {
    /// What to read: in and out points, passes, tracks, timeouts and so on. Its warnings also tell when
    /// reading is more than 0.2 s too late for the times asked for.
    ClipOptions clip;

    /// How far the player reads ahead of the latest time asked for, and the most memory that the frames which
    /// it holds may take. It reads further where the tracks of a file lie far apart, up to that memory, and
    /// always holds at least four frames. All players of a process together hold at most 1.5 GiB, except that
    /// each may have 64 MiB.
    std::chrono::microseconds ahead = std::chrono::milliseconds(500);
    std::size_t bytes = std::size_t{256} << 20;

    /// For live sources: opens the source again after each failure and each end, with pauses that grow from
    /// 0.1 s to 5 s while no frame comes. Only for URLs.
    bool reconnect = false;

    /// Shown in place of a picture, with the flag Frame::NoSignal, when none has come for `standInAfter` on
    /// the caller's clock, and when the last one ended that long ago. Empty for none: the last picture stays.
    VideoFrame standIn;
    std::chrono::microseconds standInAfter = std::chrono::seconds(1);
};

/// What a ClipPlayer has done so far.
struct PlayCounters {
    /// Frames given to the caller, each picture once.
    std::uint64_t pictures = 0;
    std::uint64_t sounds = 0;
    /// Answers that gave the picture of the answer before.
    std::uint64_t repeatedPictures = 0;
    /// Frames that were never given, because the times asked for had passed them.
    std::uint64_t skippedPictures = 0;
    std::uint64_t skippedSounds = 0;
    /// Answers with the stand-in picture.
    std::uint64_t standIns = 0;
    /// How often the source was opened again.
    std::uint64_t reconnections = 0;
    /// What the reader had to mend, since the source was opened last.
    ClipCounters reading;
};

/// How a ClipPlayer is doing, at one moment.
struct PlayStatus {
    enum class State {
        /// The source is being opened.
        Opening,
        /// Too little is read to begin with.
        Buffering,
        /// Frames are served.
        Ready,
        /// The source has ended, and the times asked for have passed its last frame.
        Ended,
        /// The source is lost and will be opened again. What was read is served meanwhile.
        Reconnecting,
        /// The source has failed, and the times asked for have passed its last frame.
        Failed,
        /// After stop().
        Stopped,
    };

    State state = State::Opening;
    /// FFmpeg's error and the text of the last failure, also after a new connection. Empty before the first.
    /// The error is AvError::Unknown for exceptions that do not come from FFmpeg.
    AvError error = AvError(0);
    std::string message;
    /// The latest time asked for, from the start of the clip; null before the first.
    Timestamp position;
    /// The length of one pass, as ClipReader::duration(); null while it is not known.
    Timestamp duration;
    /// The pass that was read last, from 0.
    std::uint64_t pass = 0;
    /// How far the frames at hand reach beyond `position`, in microseconds.
    Timestamp bufferedPictures;
    Timestamp bufferedSound;
    /// The memory of the frames at hand.
    std::size_t bufferedBytes = 0;
    PlayCounters counters;
};

/// Plays a media file or stream by the caller's clock: a thread reads ahead with a ClipReader, and frames are
/// served by presentation time.
///
///     ClipPlayer player("clip.mp4");
///     if (!player.waitUntil(PlayStatus::State::Ready, std::chrono::seconds(5))) { ... }
///     const Timestamp start = now();
///     Timestamp sound = start;
///     for (std::int64_t tick = 0; player.status().state == PlayStatus::State::Ready; ++tick) {
///         const Timestamp time = start + Timestamp(Timebase(1, 30), tick);
///         const VideoFrame picture = player.getVideoFrame(time);
///         while (sound <= time) {
///             const AudioFrame samples = player.getAudioFrame(sound);
///             if (samples.empty()) { break; }
///             sound = samples.timestamp() + samples.audioBuffer().duration();
///         }
///     }
///
/// The first time asked for, of either kind, is answered by the start of the clip; later ones are measured
/// from it. Frames come with their time on the caller's clock. Nothing is lost while the caller does not ask:
/// the thread waits when enough is read. Frames of one kind that ended more than a second before the latest
/// time asked for of the other kind are skipped, so choose TrackChoice::None for a kind that you never ask
/// for.
///
/// After a new connection the clip continues on the caller's clock, with what the source gives then.
///
/// Threads: any, for all operations. Owns: the thread. Errors: the source never makes an operation throw, or
/// ends the process. What fails is in status() and in the log; frames that were read before are served.
class VIDORRA_API ClipPlayer {
public:
    /// Starts to open a URL or a path, and returns without waiting for it. Throws std::invalid_argument as
    /// ClipReader does, and for a negative time in the options; std::system_error when there is no thread.
    explicit ClipPlayer(const std::string& url, const PlayOptions& options = {});

    /// Reads from a byte source, which must not be null and serves one player. Throws std::invalid_argument
    /// also for `reconnect`.
    explicit ClipPlayer(const std::shared_ptr<ByteSource>& source, const PlayOptions& options = {});

    ClipPlayer(const ClipPlayer&) = delete;
    ClipPlayer& operator=(const ClipPlayer&) = delete;

    /// Stops. Waits a few milliseconds for the thread. One that is still in a call of the operating system,
    /// of a byte source or of a decoder then is left to finish by itself, see unfinishedThreads().
    ~ClipPlayer();

    /// The picture nearest to `time` on the caller's clock, again if there is no newer one. Waits up to
    /// `timeout` until enough is read to tell, then gives the best at hand. Empty before the first picture,
    /// after stop(), and without pictures. Throws std::invalid_argument for a null time, std::logic_error for
    /// a time not after that of the picture given before.
    [[nodiscard]] VideoFrame getVideoFrame(const Timestamp& time, std::chrono::microseconds timeout = {});

    /// The sound that covers `time`, whole and once. Empty when nothing does, and otherwise as
    /// getVideoFrame(). The end of an audio frame is the next time to ask for.
    [[nodiscard]] AudioFrame getAudioFrame(const Timestamp& time, std::chrono::microseconds timeout = {});

    /// Does not wait for the source.
    [[nodiscard]] PlayStatus status() const;

    /// Waits until the player is in a state, for up to `timeout`, and gives whether it is. Opening, Buffering
    /// and Ready are also true when the player is past them: in the order of the enumeration, up to Ended.
    /// Returns at once where the state cannot come any more.
    [[nodiscard]] bool waitUntil(PlayStatus::State state, std::chrono::microseconds timeout) const;

    /// Ends reading for good, and wakes who waits. Every answer is empty then. Does not wait for the thread.
    void stop() noexcept;

    /// How many threads of players that were destroyed still wait for their source.
    [[nodiscard]] static std::size_t unfinishedThreads() noexcept;

private:
    class Implementation;
    std::unique_ptr<Implementation> mImplementation;
};

}  // namespace vidorra
