#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <deque>
#include <queue>

#include "vidorra/core/export.h"
#include "vidorra/core/timestamp.h"
#include "vidorra/picture/audio_frame.h"
#include "vidorra/picture/video_frame.h"
#include "vidorra/reader/blocking_buffer_base.h"

namespace vidorra {

/// A bounded buffer of frames: one thread pushes them in the order of their time stamps, and others request
/// them by time. The derived class decides which frame answers a request.
///
///     BlockingFrameBufferBase<std::deque<VideoFrame>>& frames = queue;
///     const VideoFrame answer = frames.pop(time, std::chrono::milliseconds(10));
///
/// A derived class calls stop() in its destructor if threads may still wait.
///
/// Threads: one pushes, any number pop. empty() and full() take no lock.
template <class Container>
class BlockingFrameBufferBase : public BlockingBufferBase {
public:
    using Frame = typename Container::value_type;

    /// Full with this many frames.
    explicit BlockingFrameBufferBase(std::size_t capacity);
    ~BlockingFrameBufferBase() override;

    [[nodiscard]] bool empty() const override;
    [[nodiscard]] bool full() const override;

    /// Stores a frame and waits up to `timeout` for room. Returns whether it was stored; if not, the frame
    /// stays with the caller. A frame that is not later than the latest time popped replaces the oldest one.
    /// Throws std::logic_error for a null time stamp, and for one that is not greater than that of the frame
    /// pushed before. After any exception, including std::bad_alloc, the frame is still with the caller and
    /// the buffer unchanged.
    [[nodiscard]] bool push(Frame&& frame, std::chrono::microseconds timeout);

    /// The frame for a time; waits up to `timeout` for the first frame. Empty when no frame came, when none
    /// answers the time, and after stop(). Throws std::invalid_argument for a null time. Once there is a
    /// frame to choose from, throws std::logic_error for a time that is not greater than the one requested
    /// before. After an exception the same time may be requested again.
    [[nodiscard]] Frame pop(Timestamp pts, std::chrono::microseconds timeout);

protected:
    /// Selects the answer to a request and removes what is no longer needed. Called with the lock held and
    /// at least one frame. Call lock.setNotify(false) to leave the pusher asleep.
    [[nodiscard]] virtual Frame findFrame(Timestamp pts, Container& frames, OperationLock& lock) = 0;

private:
    Container mFrames;
    std::size_t mCapacity;
    // Only the pushing thread uses it.
    Timestamp mLastPushed;
    Timestamp mLastPopped;
    // The size of mFrames, read without the lock and written under it.
    std::atomic<std::size_t> mSize{0};
};

extern template class VIDORRA_API BlockingFrameBufferBase<std::deque<VideoFrame>>;
extern template class VIDORRA_API BlockingFrameBufferBase<std::queue<AudioFrame>>;

}  // namespace vidorra
