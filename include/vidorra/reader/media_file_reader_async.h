#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "vidorra/core/export.h"
#include "vidorra/core/timestamp.h"
#include "vidorra/reader/audio_frame_queue.h"
#include "vidorra/reader/media_file_reader.h"
#include "vidorra/reader/video_frame_queue.h"

namespace vidorra {

/// Plays a media file by the caller's clock: a thread decodes ahead, and frames are served by presentation
/// time.
///
///     MediaFileReaderAsync reader("clip.mp4", MediaFileReader::PlaybackMode::Loop, 0, 0, nullptr);
///     const Timestamp start = now();
///     Timestamp sound = start;
///     for (std::int64_t tick = 0;; ++tick) {
///         const Timestamp time = start + Timestamp(Timebase(1, 30), tick);
///         const VideoFrame frame = reader.getVideoFrame(time, std::chrono::milliseconds(10));
///         if (!frame.empty()) { ... }
///         while (sound <= time) {
///             const AudioFrame samples = reader.getAudioFrame(sound, std::chrono::milliseconds(0));
///             if (samples.empty()) { sound = time + Timestamp(Timebase(), 1); break; }
///             sound = samples.timestamp() + samples.audioBuffer().duration();
///         }
///     }
///
/// An audio frame is given once, so its end is the next time to ask for: asked for with the times of
/// pictures, frames between them would be left out.
///
/// The first time asked for, of either kind, is answered by the file's zero; later ones are measured from it.
/// Frames come with their time on the caller's clock. Until 250 ms of each track are buffered, or one queue
/// is full (60 video or 100 audio frames), every answer is empty; a file that is shorter and played once is
/// never served. At the end of a file that is played once the queues serve what they hold.
///
/// Frames whose times do not rise end the process, as does a read failure. The thread logs the exception's
/// text at level 1 before. docs/LIMITS.md tells which sources have that, and what else to know of sources
/// that are not ordinary files.
///
/// Ask for both kinds where both are selected, from soon after the construction on: while a queue is full the
/// thread waits, drops its frames, and brings those of the other kind too late.
///
/// Owns: the thread, which the destructor joins: after the decoding of a packet, or after a read that blocks
/// in FFmpeg, however long that takes. Threads: getVideoFrame(), getAudioFrame() and getPtsStarted() from any
/// thread at any time. The reader part belongs to the thread of this object: call nothing of the base class.
/// interrupt() does nothing here, as the source is opened before setInterruptCallback() could be called.
class VIDORRA_API MediaFileReaderAsync : public MediaFileReader {
public:
    /// Opens the file and starts the thread. Tracks are numbered as in selectTracks(). Throws as
    /// MediaFileReader::open().
    MediaFileReaderAsync(const std::string& url, PlaybackMode mode, std::optional<unsigned> audioTrack,
                         std::optional<unsigned> videoTrack,
                         std::shared_ptr<vx::vdr::utils::WarningsStoreAsync> store);
    MediaFileReaderAsync(const MediaFileReaderAsync&) = delete;
    MediaFileReaderAsync& operator=(const MediaFileReaderAsync&) = delete;
    ~MediaFileReaderAsync();

    /// The video frame nearest to `pts` on the caller's clock, again if there is no newer one; it waits up to
    /// `timeout` for a first one. Empty until enough is buffered, which is not waited for, and when there is
    /// none. Once enough is buffered, throws std::invalid_argument for a null time and std::logic_error for
    /// one that is not greater than the one before.
    [[nodiscard]] VideoFrame getVideoFrame(const Timestamp& pts, std::chrono::microseconds timeout);

    /// The audio frame that covers `pts`, once; otherwise as getVideoFrame().
    [[nodiscard]] AudioFrame getAudioFrame(const Timestamp& pts, std::chrono::microseconds timeout);

    /// The caller's time of the file's zero, which is `pts` if none was set before. Throws
    /// std::invalid_argument for a null time.
    [[nodiscard]] Timestamp getPtsStarted(const Timestamp& pts);

private:
    template <class Frame, class Queue>
    Frame getFrame(Queue& queue, const Timestamp& pts, std::chrono::microseconds timeout);

    void readerThreadProc();
    void readAhead();

    AudioFrameQueue mAudioQueue;
    VideoFrameQueue mVideoQueue;
    // Guards mPtsStarted. Never held together with a queue's mutex.
    std::mutex mPtsStartedMutex;
    Timestamp mPtsStarted;
    std::thread mThread;
    std::atomic<bool> mRunning{true};
    std::atomic<bool> mReady{false};
};

}  // namespace vidorra
