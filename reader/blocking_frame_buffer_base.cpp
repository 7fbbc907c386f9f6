#include "vidorra/reader/blocking_frame_buffer_base.h"

#include <stdexcept>
#include <utility>

namespace vidorra {
namespace {

// The two containers name these operations differently.
void pushBack(std::deque<VideoFrame>& frames, VideoFrame&& frame) {
    frames.push_back(std::move(frame));
}
void pushBack(std::queue<AudioFrame>& frames, AudioFrame&& frame) {
    frames.push(std::move(frame));
}
void popFront(std::deque<VideoFrame>& frames) {
    frames.pop_front();
}
void popFront(std::queue<AudioFrame>& frames) {
    frames.pop();
}

}  // namespace

template <class Container>
BlockingFrameBufferBase<Container>::BlockingFrameBufferBase(std::size_t capacity) : mCapacity(capacity) {}

template <class Container>
BlockingFrameBufferBase<Container>::~BlockingFrameBufferBase() {
    stop();
}

template <class Container>
bool BlockingFrameBufferBase<Container>::empty() const {
    return mSize == 0;
}

template <class Container>
bool BlockingFrameBufferBase<Container>::full() const {
    return mSize >= mCapacity;
}

template <class Container>
bool BlockingFrameBufferBase<Container>::push(Frame&& frame, std::chrono::microseconds timeout) {
    const Timestamp time = frame.timestamp();
    if (time.isNull) {
        throw std::logic_error("BlockingFrameBufferBase::push(): frame PTS must not be empty");
    }
    if (!mLastPushed.isNull && !(time > mLastPushed)) {
        throw std::logic_error(
            "BlockingFrameBufferBase::push(): frame PTS must be greater than last added one");
    }
    const OperationLock lock = tryLockForPushFor(timeout);
    if (!lock) {
        return false;
    }
    const bool passed = !mLastPopped.isNull && !(time > mLastPopped) && !mFrames.empty();
    // First, so that without memory the frame stays with the caller and the buffer unchanged.
    pushBack(mFrames, std::move(frame));
    if (passed) {
        popFront(mFrames);
    }
    mLastPushed = time;
    mSize = mFrames.size();
    return true;
}

template <class Container>
typename BlockingFrameBufferBase<Container>::Frame BlockingFrameBufferBase<Container>::pop(
    Timestamp pts, std::chrono::microseconds timeout) {
    if (pts.isNull) {
        throw std::invalid_argument("BlockingFrameBufferBase::pop(): pts must not be empty");
    }
    OperationLock lock = tryLockForPopFor(timeout);
    if (!lock) {
        return {};
    }
    if (!mLastPopped.isNull && !(pts > mLastPopped)) {
        throw std::logic_error("BlockingFrameBufferBase::pop(): pts must be greater than last requested one");
    }
    // Also updates the size after a selection that throws, since it may have removed frames.
    struct SizeKeeper {
        const Container& frames;
        std::atomic<std::size_t>& size;
        ~SizeKeeper() { size = frames.size(); }
    };
    const SizeKeeper keeper{mFrames, mSize};
    Frame frame = findFrame(pts, mFrames, lock);
    mLastPopped = pts;
    return frame;
}

template class BlockingFrameBufferBase<std::deque<VideoFrame>>;
template class BlockingFrameBufferBase<std::queue<AudioFrame>>;

}  // namespace vidorra
