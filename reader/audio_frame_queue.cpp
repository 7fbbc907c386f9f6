#include "vidorra/reader/audio_frame_queue.h"

#include <utility>

namespace vidorra {

AudioFrameQueue::~AudioFrameQueue() {
    stop();
}

AudioFrame AudioFrameQueue::findFrame(Timestamp pts, std::queue<AudioFrame>& frames, OperationLock& lock) {
    const Timestamp tolerance(Timebase(), 5);
    const Timestamp unit(Timebase(), 1);
    lock.setNotify(false);
    AudioFrame result;
    while (!frames.empty() && result.empty()) {
        AudioFrame& first = frames.front();
        const Timestamp start = first.timestamp();
        // The second comparison implies the first, unless its sum wraps around.
        if (start > pts - tolerance && pts + tolerance < start) {
            return {};
        }
        const Timestamp last = start + first.audioBuffer().duration() - unit;
        if (pts <= last) {
            result = std::move(first);
        }
        frames.pop();
        lock.setNotify(true);
    }
    return result;
}

}  // namespace vidorra
