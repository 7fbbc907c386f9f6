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
    if (frames.empty()) {
        return {};
    }
    std::size_t passed = 0;
    while (frames.size() - passed >= 2 &&
           choose(pts, frames[passed].timestamp(), frames[passed + 1].timestamp())) {
        ++passed;
    }
    // Before anything is removed, so that the frames stay when there is no memory for the copy.
    VideoFrame answer = frames[passed];
    for (; passed > 0; --passed) {
        frames.pop_front();
        lock.setNotify(true);
    }
    return answer;
}

}  // namespace vidorra
