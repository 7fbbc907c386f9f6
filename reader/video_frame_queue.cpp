#include "vidorra/reader/video_frame_queue.h"

namespace vidorra {

VideoFrameQueue::~VideoFrameQueue() {
    stop();
}

bool VideoFrameQueue::choose(Timestamp pts, Timestamp current, Timestamp next) {
    if (current == next) {
        return current < pts;
    }
    if (pts <= current) {
        return false;
    }
    if (pts >= next) {
        return true;
    }
    const Timestamp half = (next - current) / 2.0F;
    return pts - half >= current;
}

VideoFrame VideoFrameQueue::findFrame(Timestamp pts, std::deque<VideoFrame>& frames, OperationLock& lock) {
    lock.setNotify(false);
    while (frames.size() >= 2 && choose(pts, frames[0].timestamp(), frames[1].timestamp())) {
        frames.pop_front();
        lock.setNotify(true);
    }
    return frames.empty() ? VideoFrame() : frames.front();
}

}  // namespace vidorra
