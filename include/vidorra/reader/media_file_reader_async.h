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
/// An audio frame is returned only once, so request its end time next: with the times of pictures, frames
/// between them would be skipped.
///
/// The first time requested, for either kind, corresponds to the file's zero; later times are measured from
/// it. Frames have their time on the caller's clock. Until 250 ms of each track are buffered, or one queue
/// is full (60 video or 100 audio frames), every answer is empty; a shorter file that is played once is
/// never served. At the end of a file that is played once the queues still serve what they hold.
///
/// A read failure ends the process, and so does a frame whose time is not greater than that of the frame
/// before. The thread first logs the exception's text at level 1. docs/LIMITS.md lists the sources where
/// this happens, and other limits for sources that are not ordinary files.
///
/// If both kinds are selected, request both, and start soon after construction: while a queue is full the
/// thread waits, drops frames of that kind, and delivers those of the other kind too late.
///
/// A ClipReader on a thread of your own suits sources that fail, block or are short: it returns every frame,
/// can be stopped while it waits, and reports errors to its caller.
///
/// Owns: the thread. The destructor joins it when it has decoded its packet, or when a blocking read in
/// FFmpeg returns, however long that takes. Threads: getVideoFrame(), getAudioFrame() and getPtsStarted()
/// are thread-safe. The reader part belongs to this object's own thread: do not call functions of the base
/// class. interrupt() does nothing here, since the source is opened before setInterruptCallback() could be
/// called.
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

    /// The video frame nearest to `pts` on the caller's clock; the same frame again if there is no newer
    /// one. Waits up to `timeout` for the first frame. Empty when there is none, and until enough is
    /// buffered, for which it does not wait. Once enough is buffered, throws std::invalid_argument for a
    /// null time and std::logic_error for one that is not greater than the one before.
    [[nodiscard]] VideoFrame getVideoFrame(const Timestamp& pts, std::chrono::microseconds timeout);

    /// The audio frame that covers `pts`, once; otherwise as getVideoFrame().
    [[nodiscard]] AudioFrame getAudioFrame(const Timestamp& pts, std::chrono::microseconds timeout);

    /// The caller's time that corresponds to the file's zero. The first call sets it to `pts`. Throws
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
