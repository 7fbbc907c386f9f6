#pragma once

#include "vidorra/reader/blocking_frame_buffer_base.h"

namespace vidorra {

/// Answers a time with the frame that covers it or begins up to 5 microseconds later, and removes that
/// frame, so that no sample is played twice. Frames that have ended are dropped. A frame is returned whole,
/// with its own start time.
///
///     AudioFrameQueue queue(100);
///     const bool stored = queue.push(AudioFrame(buffer, time), std::chrono::milliseconds(10));
///     const AudioFrame answer = queue.pop(time, std::chrono::milliseconds(10));
class VIDORRA_API AudioFrameQueue : public BlockingFrameBufferBase<std::queue<AudioFrame>> {
public:
    using BlockingFrameBufferBase::BlockingFrameBufferBase;
    ~AudioFrameQueue() override;

protected:
    [[nodiscard]] AudioFrame findFrame(Timestamp pts, std::queue<AudioFrame>& frames,
                                       OperationLock& lock) override;
};

}  // namespace vidorra
