#include "clip/play_buffer.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "core/wrapping.h"
#include "vidorra/reader/video_frame_queue.h"

namespace vidorra {
namespace {

using std::chrono::steady_clock;
using State = PlayStatus::State;

// Frames of a kind that nobody asks for are kept this long, in microseconds.
constexpr std::int64_t kKept = 1000000;
// One track may be so many times further ahead than is needed, before the other is no longer waited for.
constexpr std::int64_t kFar = 4;
// However large they are: the answer, its neighbours and some sound.
constexpr std::size_t kFewestFrames = 4;
// Sound that begins this much later answers too.
constexpr std::int64_t kTolerance = 5;
// Reading that is later than this is too slow.
constexpr std::int64_t kLateTolerance = 200000;

steady_clock::time_point deadlineAfter(std::chrono::microseconds timeout) {
    return steady_clock::now() +
           std::clamp<std::chrono::microseconds>(timeout, {}, std::chrono::hours(24 * 365));
}

std::int64_t microsecondsOf(const Timestamp& time) {
    return time.rescale(Timebase()).value;
}

// The memory that a picture keeps: of each of its buffers, from its first plane there.
std::size_t bytesOf(const Picture& picture) {
    std::size_t sum = 0;
    const std::uint8_t* end = nullptr;
    for (std::size_t plane = 0; plane < picture.data().size(); ++plane) {
        const std::size_t bytes = picture.bytesInBuffer(plane).value_or(0);
        const std::uint8_t* const planeEnd = picture.data()[plane] + bytes;
        if (bytes > 0 && planeEnd != end) {
            sum += bytes;
            end = planeEnd;
        }
    }
    return sum;
}

std::size_t bytesOf(const AudioBuffer& buffer) {
    return buffer.planeSize(buffer.numberOfSamples()) * buffer.numberOfPlanes();
}

}  // namespace

PlayBuffer::PlayBuffer(const PlayOptions& options)
    : mAhead(std::min<std::int64_t>(options.ahead.count(), kAfterAll)),
      mStandIn(options.standIn),
      mStandInAfter(options.standInAfter.count()),
      mShare(options.bytes) {}

void PlayBuffer::begin(bool audio, bool video, const Timestamp& duration) {
    const std::lock_guard lock(mMutex);
    if (mPhase == Phase::Lost) {
        ++mStatus.counters.reconnections;
    }
    mPhase = Phase::Reading;
    mReady = false;
    mPictures.expected = video;
    mSounds.expected = audio;
    mStatus.duration = duration;
    mBase.reset();
    mChanged.notify_all();
}

template <class FrameType>
void PlayBuffer::add(Lane<FrameType>& lane, FrameType frame, std::int64_t duration, std::size_t bytes) {
    if (!mBase) {
        // After an outage, early enough to read ahead.
        const bool again = mEnd > 0 && mStart;
        mBase = again ? std::max(mEnd, mNow + mAhead) : mEnd;
    }
    const std::int64_t begin = *mBase + microsecondsOf(frame.timestamp());
    const std::int64_t end = begin + std::max<std::int64_t>(duration, 0);
    lane.frames.push_back({std::move(frame), begin, end, bytes, false});
    mShare.add(bytes);
    mEnd = std::max(mEnd, end);
}

bool PlayBuffer::push(ClipFrame&& frame, const ClipCounters& counters) {
    const std::int64_t duration = microsecondsOf(frame.duration);
    Removed removed;
    Lock lock(mMutex);
    mRoom.wait(lock, [this] { return mStopped || !full(); });
    if (mStopped) {
        return false;
    }
    if (VideoFrame* picture = frame.video()) {
        add(mPictures, std::move(*picture), duration, bytesOf(picture->picture()));
    } else if (AudioFrame* sound = frame.audio()) {
        add(mSounds, std::move(*sound), duration, bytesOf(sound->audioBuffer()));
    }
    mStatus.pass = frame.pass;
    mStatus.counters.reading = counters;
    removePassed(removed);
    mReady = mReady || enough();
    mServing = mServing || mReady;
    mChanged.notify_all();
    return true;
}

bool PlayBuffer::isLate() const {
    const std::lock_guard lock(mMutex);
    return mNow - mEnd > kLateTolerance;
}

void PlayBuffer::setFailure(const std::optional<Failure>& failure) {
    mFailed = failure.has_value();
    if (failure) {
        mStatus.error = failure->error;
        mStatus.message = failure->message;
    }
}

void PlayBuffer::finish(const std::optional<Failure>& failure) {
    const std::lock_guard lock(mMutex);
    setFailure(failure);
    mPhase = Phase::Finished;
    mServing = true;
    mChanged.notify_all();
}

bool PlayBuffer::lose(const std::optional<Failure>& failure, std::chrono::microseconds pause) {
    Lock lock(mMutex);
    setFailure(failure);
    mPhase = Phase::Lost;
    mChanged.notify_all();
    return !mRoom.wait_until(lock, deadlineAfter(pause), [this] { return mStopped; });
}

void PlayBuffer::stop() noexcept {
    Removed removed;
    const std::lock_guard lock(mMutex);
    mStopped = true;
    mShare.remove(mShare.bytes());
    removed.pictures.swap(mPictures.frames);
    removed.sounds.swap(mSounds.frames);
    mRoom.notify_all();
    mChanged.notify_all();
}

bool PlayBuffer::stopped() const {
    const std::lock_guard lock(mMutex);
    return mStopped;
}

template <class FrameType>
void PlayBuffer::removeFirst(Lane<FrameType>& lane, std::deque<Held<FrameType>>& removed,
                             std::uint64_t& skipped) {
    Held<FrameType>& first = lane.frames.front();
    const std::size_t bytes = first.bytes;
    skipped += first.given ? 0 : 1;
    removed.push_back(std::move(first));
    lane.frames.pop_front();
    mShare.remove(bytes);
}

// The queues' rule of selection, also for a kind that nobody asks for.
void PlayBuffer::removePassed(Removed& removed) {
    const auto isPassed = [](std::int64_t time, const Held<VideoFrame>& picture,
                             const Held<VideoFrame>& next) {
        const auto stamp = [](std::int64_t microseconds) { return Timestamp(Timebase(), microseconds); };
        return VideoFrameQueue::choose(stamp(time), stamp(picture.begin), stamp(next.begin));
    };
    const std::int64_t kept = mNow - kKept;
    std::deque<Held<VideoFrame>>& pictures = mPictures.frames;
    while (pictures.size() > 1 && isPassed(std::max(mPictures.asked, kept), pictures[0], pictures[1])) {
        removeFirst(mPictures, removed.pictures, mStatus.counters.skippedPictures);
    }
    std::deque<Held<AudioFrame>>& sounds = mSounds.frames;
    while (!sounds.empty() && sounds.front().end <= std::max(mSounds.asked, kept)) {
        removeFirst(mSounds, removed.sounds, mStatus.counters.skippedSounds);
    }
}

// Moves the clock to a time. False when there is nothing to answer with.
template <class FrameType>
bool PlayBuffer::ask(Lane<FrameType>& lane, std::int64_t time, Deadline deadline, Lock& lock) {
    mChanged.wait_until(lock, deadline, [this] { return mServing || mStopped; });
    if (!mServing || mStopped) {
        return false;
    }
    if (!mStart) {
        mStart = time;
    }
    const std::int64_t asked = std::clamp(wrappingSubtract(time, *mStart), kBeforeAll + 1, kAfterAll);
    if (asked <= lane.answered) {
        throw std::logic_error("ClipPlayer: a time must be greater than the last one answered");
    }
    lane.asked = std::max(lane.asked, asked);
    mNow = std::max(mNow, asked);
    mRoom.notify_all();
    mChanged.notify_all();
    return true;
}

VideoFrame PlayBuffer::picture(const Timestamp& time, std::chrono::microseconds timeout) {
    if (time.isNull) {
        throw std::invalid_argument("ClipPlayer::getVideoFrame(): the time is null");
    }
    const Deadline deadline = deadlineAfter(timeout);
    Removed removed;
    Lock lock(mMutex);
    if (!mFirstAsked) {
        mFirstAsked = microsecondsOf(time);
    }
    std::deque<Held<VideoFrame>>& frames = mPictures.frames;
    if (ask(mPictures, microsecondsOf(time), deadline, lock)) {
        const std::int64_t asked = mPictures.asked;
        // Whether a later picture could be nearer.
        mChanged.wait_until(lock, deadline, [this, asked, &frames] {
            return isOver() || !mPictures.expected || (!frames.empty() && frames.back().begin >= asked);
        });
        removePassed(removed);
        mRoom.notify_all();
    }
    if (mStopped) {
        return {};
    }
    if (VideoFrame other = standIn(time); !other.empty() || frames.empty() || !mServing) {
        return other;
    }
    Held<VideoFrame>& first = frames.front();
    VideoFrame answer = first.frame;
    answer.setTimestamp({Timebase(), wrappingAdd(first.begin, *mStart)});
    ++(first.given ? mStatus.counters.repeatedPictures : mStatus.counters.pictures);
    first.given = true;
    mPictures.answered = mPictures.asked;
    return answer;
}

// Empty while it is not needed.
VideoFrame PlayBuffer::standIn(const Timestamp& time) {
    if (mStandIn.empty()) {
        return {};
    }
    const bool any = !mPictures.frames.empty() && mStart;
    const std::int64_t since = any ? wrappingAdd(mPictures.frames.front().end, *mStart) : *mFirstAsked;
    if (wrappingSubtract(microsecondsOf(time), since) < mStandInAfter) {
        return {};
    }
    VideoFrame answer = mStandIn;
    answer.setTimestamp(time.rescale(Timebase()));
    answer.setFlags(answer.flags() | Frame::NoSignal);
    ++mStatus.counters.standIns;
    return answer;
}

AudioFrame PlayBuffer::sound(const Timestamp& time, std::chrono::microseconds timeout) {
    if (time.isNull) {
        throw std::invalid_argument("ClipPlayer::getAudioFrame(): the time is null");
    }
    const Deadline deadline = deadlineAfter(timeout);
    Removed removed;
    Lock lock(mMutex);
    if (!ask(mSounds, microsecondsOf(time), deadline, lock)) {
        return {};
    }
    removePassed(removed);
    std::deque<Held<AudioFrame>>& frames = mSounds.frames;
    const std::int64_t asked = mSounds.asked;
    mChanged.wait_until(lock, deadline,
                        [this, &frames] { return isOver() || !mSounds.expected || !frames.empty(); });
    if (frames.empty() || frames.front().begin > asked + kTolerance) {
        return {};
    }
    Held<AudioFrame>& first = frames.front();
    first.given = true;
    ++mStatus.counters.sounds;
    removeFirst(mSounds, removed.sounds, mStatus.counters.skippedSounds);
    mSounds.answered = asked;
    Held<AudioFrame>& given = removed.sounds.back();
    given.frame.setTimestamp({Timebase(), wrappingAdd(given.begin, *mStart)});
    mRoom.notify_all();
    return std::move(given.frame);
}

template <class FrameType>
std::int64_t PlayBuffer::ahead(const Lane<FrameType>& lane) const {
    if (!lane.expected) {
        return kAfterAll;
    }
    return lane.frames.empty() ? kBeforeAll
                               : lane.frames.back().begin - std::max(lane.frames.front().begin, mNow);
}

bool PlayBuffer::full() const {
    const bool memory = mShare.full() && mPictures.frames.size() + mSounds.frames.size() >= kFewestFrames;
    return memory || std::min(ahead(mPictures), ahead(mSounds)) >= mAhead;
}

bool PlayBuffer::enough() const {
    const auto far = [this](const auto& lane) { return lane.expected && ahead(lane) / kFar >= mAhead; };
    return full() || far(mPictures) || far(mSounds);
}

PlayStatus::State PlayBuffer::state() const {
    if (mStopped) {
        return State::Stopped;
    }
    switch (mPhase) {
    case Phase::Opening:
        return State::Opening;
    case Phase::Lost:
        return State::Reconnecting;
    case Phase::Reading:
        return mReady ? State::Ready : State::Buffering;
    case Phase::Finished:
        break;
    }
    if (mEnd > 0 && mNow < mEnd) {
        return State::Ready;
    }
    return mFailed ? State::Failed : State::Ended;
}

PlayStatus PlayBuffer::status() const {
    const std::lock_guard lock(mMutex);
    PlayStatus status = mStatus;
    status.state = state();
    if (mStart) {
        status.position = Timestamp(Timebase(), mNow);
    }
    const auto buffered = [this](const auto& lane) {
        const bool none = lane.frames.empty();
        const std::int64_t reach =
            none ? 0 : lane.frames.back().end - std::max(lane.frames.front().begin, mNow);
        return Timestamp(Timebase(), std::max<std::int64_t>(reach, 0));
    };
    status.bufferedPictures = buffered(mPictures);
    status.bufferedSound = buffered(mSounds);
    status.bufferedBytes = mShare.bytes();
    return status;
}

bool PlayBuffer::waitUntil(PlayStatus::State wanted, std::chrono::microseconds timeout) const {
    const auto isReached = [this, wanted] {
        const State current = state();
        return current == wanted || (wanted <= State::Ready && wanted < current && current <= State::Ended);
    };
    const auto canCome = [this, wanted] {
        const State current = state();
        const bool isLast = current == State::Ended || current == State::Failed;
        return current != State::Stopped && (!isLast || wanted == State::Stopped);
    };
    Lock lock(mMutex);
    mChanged.wait_until(lock, deadlineAfter(timeout),
                        [&isReached, &canCome] { return isReached() || !canCome(); });
    return isReached();
}

}  // namespace vidorra
