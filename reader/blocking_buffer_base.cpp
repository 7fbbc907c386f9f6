#include "vidorra/reader/blocking_buffer_base.h"

#include <utility>

namespace vidorra {
namespace {

using std::chrono::steady_clock;

// The deadline for a timeout, limited to the latest time of the clock.
template <class Duration>
steady_clock::time_point deadlineAfter(Duration timeout) {
    const steady_clock::time_point now = steady_clock::now();
    const auto longest = std::chrono::duration_cast<Duration>(steady_clock::time_point::max() - now);
    const auto shortest = -std::chrono::duration_cast<Duration>(now.time_since_epoch());
    if (timeout >= longest) {
        return steady_clock::time_point::max();
    }
    return timeout <= shortest ? steady_clock::time_point() : now + timeout;
}

}  // namespace

BlockingBufferBase::OperationLock::OperationLock(std::unique_lock<std::mutex>&& lock,
                                                 std::condition_variable* target)
    : mNotifyTarget(lock.owns_lock() ? target : nullptr), mLock(std::move(lock)), mNotify(true) {}

BlockingBufferBase::OperationLock::OperationLock(OperationLock&& other) noexcept
    : mNotifyTarget(std::exchange(other.mNotifyTarget, nullptr)),
      mLock(std::move(other.mLock)),
      mNotify(other.mNotify) {}

BlockingBufferBase::OperationLock::~OperationLock() {
    // While the lock is still held, since the buffer may be destroyed as soon as it is released.
    if (mNotify && mNotifyTarget != nullptr && mLock.owns_lock()) {
        mNotifyTarget->notify_one();
    }
}

BlockingBufferBase::~BlockingBufferBase() = default;

void BlockingBufferBase::stop() {
    const std::lock_guard lock(mMutex);
    mRunning = false;
    mCanPop.notify_all();
    mCanPush.notify_all();
}

template <class Duration, class Predicate>
BlockingBufferBase::OperationLock BlockingBufferBase::tryLock(Duration timeout,
                                                              std::condition_variable& waitOn,
                                                              std::condition_variable& target,
                                                              Predicate predicate) {
    if (!mRunning) {
        return {};
    }
    std::unique_lock lock(mMutex);
    const steady_clock::time_point deadline = deadlineAfter(timeout);
    const bool ready =
        waitOn.wait_until(lock, deadline, [this, &predicate] { return !mRunning || !predicate(); });
    if (!ready || !mRunning) {
        return {};
    }
    return {std::move(lock), &target};
}

BlockingBufferBase::OperationLock BlockingBufferBase::tryLockForPushFor(std::chrono::microseconds timeout) {
    return tryLock(timeout, mCanPush, mCanPop, [this] { return full(); });
}

BlockingBufferBase::OperationLock BlockingBufferBase::tryLockForPopFor(std::chrono::microseconds timeout) {
    return tryLock(timeout, mCanPop, mCanPush, [this] { return empty(); });
}

}  // namespace vidorra
