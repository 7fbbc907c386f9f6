#include "vidorra/reader/media_file_reader_async.h"

#include <algorithm>
#include <stdexcept>
#include <utility>
#include <variant>

#include "core/log.h"
#include "core/wrapping.h"

namespace vidorra {
namespace {

constexpr std::size_t kAudioCapacity = 100;
constexpr std::size_t kVideoCapacity = 60;

// How much of a track is buffered before frames are served, and how long a push waits at first, in
// microseconds.
constexpr std::int64_t kPreload = 250000;

// How far the thread is ahead, in microseconds from the first frame.
class Preloading {
public:
    // A track that is not selected counts as buffered.
    Preloading(bool audio, bool video)
        : mAudioAhead(audio ? 0 : kPreload), mVideoAhead(video ? 0 : kPreload) {}

    void add(const AudioFrame& frame) {
        const Timestamp ahead = sinceFirst(frame) - frame.audioBuffer().duration();
        mAudioAhead = ahead.rescale(Timebase()).value;
    }

    void add(const VideoFrame& frame) { mVideoAhead = sinceFirst(frame).rescale(Timebase()).value; }

    [[nodiscard]] bool enough() const { return mAudioAhead >= kPreload && mVideoAhead >= kPreload; }

    [[nodiscard]] std::chrono::microseconds span() const {
        return std::chrono::microseconds(std::max(mAudioAhead, mVideoAhead));
    }

private:
    Timestamp sinceFirst(const Frame& frame) {
        if (mFirst.isNull) {
            mFirst = frame.timestamp();
        }
        return frame.timestamp() - mFirst;
    }

    Timestamp mFirst;
    std::int64_t mAudioAhead;
    std::int64_t mVideoAhead;
};

}  // namespace

MediaFileReaderAsync::MediaFileReaderAsync(const std::string& url, PlaybackMode mode,
                                           std::optional<unsigned> audioTrack,
                                           std::optional<unsigned> videoTrack,
                                           std::shared_ptr<vx::vdr::utils::WarningsStoreAsync> store)
    : MediaFileReader(url, mode, std::move(store)), mAudioQueue(kAudioCapacity), mVideoQueue(kVideoCapacity) {
    open();
    selectTracks(audioTrack, videoTrack);
    mThread = std::thread(&MediaFileReaderAsync::readerThreadProc, this);
}

MediaFileReaderAsync::~MediaFileReaderAsync() {
    mRunning = false;
    if (mThread.joinable()) {
        mAudioQueue.stop();
        mVideoQueue.stop();
        mThread.join();
    }
}

VideoFrame MediaFileReaderAsync::getVideoFrame(const Timestamp& pts, std::chrono::microseconds timeout) {
    return getFrame<VideoFrame>(mVideoQueue, pts, timeout);
}

AudioFrame MediaFileReaderAsync::getAudioFrame(const Timestamp& pts, std::chrono::microseconds timeout) {
    return getFrame<AudioFrame>(mAudioQueue, pts, timeout);
}

Timestamp MediaFileReaderAsync::getPtsStarted(const Timestamp& pts) {
    if (pts.isNull) {
        throw std::invalid_argument("MediaFileReaderAsync::getPtsStarted(): pts must not be empty");
    }
    const std::lock_guard lock(mPtsStartedMutex);
    if (mPtsStarted.isNull) {
        mPtsStarted = pts;
    }
    return mPtsStarted;
}

template <class Frame, class Queue>
Frame MediaFileReaderAsync::getFrame(Queue& queue, const Timestamp& pts, std::chrono::microseconds timeout) {
    if (!mReady.load(std::memory_order_acquire)) {
        return {};
    }
    const Timestamp started = getPtsStarted(pts);
    Frame frame = queue.pop(pts - started, timeout);
    if (!frame.empty()) {
        frame.setTimestamp(frame.timestamp() + started);
    }
    return frame;
}

void MediaFileReaderAsync::readerThreadProc() try { readAhead(); } catch (const std::exception& error) {
    // With print(), which needs no memory, since there may be none.
    logger::print(kLogError, "MediaFileReaderAsync: the reader thread ends the process: %s", error.what());
    throw;
}

void MediaFileReaderAsync::readAhead() {
    Preloading preloading(selectedAudioTrack().has_value(), selectedVideoTrack().has_value());
    std::chrono::microseconds pushTimeout(kPreload);
    bool timeoutAdapted = false;

    const auto hand = [&](auto&& frame, auto& queue, const char* overflow) {
        preloading.add(frame);
        // Deliberate: a frame that waits for room when the reader is destroyed does not count as skipped.
        if (!queue.push(std::forward<decltype(frame)>(frame), pushTimeout) && mRunning) {
            logger::log(kLogWarning) << overflow;
        }
        const bool full = mAudioQueue.full() || mVideoQueue.full();
        if (full && !timeoutAdapted) {
            timeoutAdapted = true;
            pushTimeout = preloading.span();
        }
        if (full || preloading.enough()) {
            mReady.store(true, std::memory_order_release);
        }
    };
    while (mRunning.load(std::memory_order_acquire)) {
        auto frame = read();
        if (auto* audio = std::get_if<AudioFrame>(&frame)) {
            hand(std::move(*audio), mAudioQueue,
                 "MediaFileReaderAsync: Skipping audio frame, because the AudioQueue is full");
        } else if (auto* video = std::get_if<VideoFrame>(&frame)) {
            hand(std::move(*video), mVideoQueue,
                 "MediaFileReaderAsync: Skipping video frame, because the VideoQueue is full");
        } else if (getState() == State::Eof) {
            mRunning = false;
        }
    }
}

}  // namespace vidorra
