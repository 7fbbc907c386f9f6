#pragma once

#include "vidorra/reader/blocking_frame_buffer_base.h"

namespace vidorra {

/// Answers a time with the frame nearest to it and keeps that frame, so that the last picture is repeated
/// until a newer one comes. Older frames are dropped.
///
///     VideoFrameQueue queue(60);
///     const bool stored = queue.push(std::move(frame), std::chrono::milliseconds(10));
///     const VideoFrame answer = queue.pop(time, std::chrono::milliseconds(10));
class VIDORRA_API VideoFrameQueue : public BlockingFrameBufferBase<std::deque<VideoFrame>> {
public:
    using BlockingFrameBufferBase::BlockingFrameBufferBase;
    ~VideoFrameQueue() override;

    /// Whether `next` is a better answer to `pts` than `current`, the frame before it. True in the middle.
    [[nodiscard]] static bool choose(Timestamp pts, Timestamp current, Timestamp next);

protected:
    [[nodiscard]] VideoFrame findFrame(Timestamp pts, std::deque<VideoFrame>& frames,
                                       OperationLock& lock) override;
};

}  // namespace vidorra
