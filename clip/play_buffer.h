#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <limits>
#include <mutex>
#include <optional>
#include <string>

#include "clip/memory_share.h"
#include "vidorra/clip/clip_player.h"

namespace vidorra {

/// The frames between the thread that reads and those who ask by time, and the state that follows from them.
///
/// All times inside are microseconds from the start of the clip, which the first time asked for begins. They
/// rise for each kind, over passes and connections.
///
/// Threads: one reads and calls the first group of operations, any call the others.
class PlayBuffer {
public:
    /// What status() tells of it.
    struct Failure {
        AvError error;
        std::string message;
    };

    explicit PlayBuffer(const PlayOptions& options);
    PlayBuffer(const PlayBuffer&) = delete;
    PlayBuffer& operator=(const PlayBuffer&) = delete;

    /// The source is open and has tracks of these kinds.
    void begin(bool audio, bool video, const Timestamp& duration);
    /// Adds a frame, as soon as there is room. False after stop().
    [[nodiscard]] bool push(ClipFrame&& frame, const ClipCounters& counters);
    /// Whether what is read comes too late for the times asked for.
    [[nodiscard]] bool isLate() const;
    /// Nothing more comes, because of a failure or at the end.
    void finish(const std::optional<Failure>& failure);
    /// The source ended or failed, and will be opened again after a pause. False after stop().
    [[nodiscard]] bool lose(const std::optional<Failure>& failure, std::chrono::microseconds pause);

    /// As those of ClipPlayer.
    [[nodiscard]] VideoFrame picture(const Timestamp& time, std::chrono::microseconds timeout);
    [[nodiscard]] AudioFrame sound(const Timestamp& time, std::chrono::microseconds timeout);
    [[nodiscard]] PlayStatus status() const;
    [[nodiscard]] bool waitUntil(PlayStatus::State state, std::chrono::microseconds timeout) const;
    void stop() noexcept;
    [[nodiscard]] bool stopped() const;

private:
    // No time of a clip is further from its start, so that sums have room.
    static constexpr std::int64_t kAfterAll = std::numeric_limits<std::int64_t>::max() / 4;
    static constexpr std::int64_t kBeforeAll = -kAfterAll;

    template <class FrameType>
    struct Held {
        FrameType frame;
        std::int64_t begin = 0;
        std::int64_t end = 0;
        std::size_t bytes = 0;
        bool given = false;
    };

    // The frames of one kind.
    template <class FrameType>
    struct Lane {
        bool expected = false;
        std::deque<Held<FrameType>> frames;
        // The latest time asked for, and the latest that was answered.
        std::int64_t asked = kBeforeAll;
        std::int64_t answered = kBeforeAll;
    };

    // What is removed under the lock is destroyed after it, since that may call anybody's code.
    struct Removed {
        std::deque<Held<VideoFrame>> pictures;
        std::deque<Held<AudioFrame>> sounds;
    };

    using Lock = std::unique_lock<std::mutex>;
    using Deadline = std::chrono::steady_clock::time_point;

    template <class FrameType>
    void add(Lane<FrameType>& lane, FrameType frame, std::int64_t duration, std::size_t bytes);
    template <class FrameType>
    void removeFirst(Lane<FrameType>& lane, std::deque<Held<FrameType>>& removed, std::uint64_t& skipped);
    void removePassed(Removed& removed);
    template <class FrameType>
    bool ask(Lane<FrameType>& lane, std::int64_t time, Deadline deadline, Lock& lock);
    template <class FrameType>
    std::int64_t ahead(const Lane<FrameType>& lane) const;
    bool full() const;
    bool enough() const;
    bool isOver() const { return mStopped || mPhase == Phase::Finished; }
    PlayStatus::State state() const;
    VideoFrame standIn(const Timestamp& time);
    void setFailure(const std::optional<Failure>& failure);

    enum class Phase { Opening, Reading, Lost, Finished };

    const std::int64_t mAhead;
    const VideoFrame mStandIn;
    const std::int64_t mStandInAfter;

    // Guards everything below. Never held while a frame is read or destroyed.
    mutable std::mutex mMutex;
    // The thread that reads waits here for room, and for the end of a pause.
    std::condition_variable mRoom;
    // All others wait here.
    mutable std::condition_variable mChanged;
    Phase mPhase = Phase::Opening;
    bool mStopped = false;
    bool mFailed = false;
    // Whether enough was read since the source was opened, and whether that was so once.
    bool mReady = false;
    bool mServing = false;
    Lane<VideoFrame> mPictures;
    Lane<AudioFrame> mSounds;
    MemoryShare mShare;
    // The caller's time of the start of the clip.
    std::optional<std::int64_t> mStart;
    // The caller's time of the first picture asked for.
    std::optional<std::int64_t> mFirstAsked;
    // The latest time asked for, of either kind.
    std::int64_t mNow = kBeforeAll;
    // The greatest end of the frames so far.
    std::int64_t mEnd = 0;
    // Where the start of the source is; nothing until its first frame comes.
    std::optional<std::int64_t> mBase;
    PlayStatus mStatus;
};

}  // namespace vidorra
