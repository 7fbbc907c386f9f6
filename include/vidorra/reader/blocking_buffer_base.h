#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>

#include "vidorra/core/export.h"

namespace vidorra {

/// The lock, the two conditions and the stop flag of a bounded buffer between a thread that pushes and
/// threads that pop.
///
///     if (const auto lock = queue.tryLockForPushFor(std::chrono::milliseconds(10))) { ... }
///
/// Threads: thread-safe.
class VIDORRA_API BlockingBufferBase {
public:
    /// The lock of a buffer during an operation. Its destructor wakes one waiter of the other side by
    /// default. It converts to false when the lock was not obtained.
    class VIDORRA_API OperationLock {
    public:
        OperationLock() = default;
        /// Takes over a lock, owned or not, and the condition of the other side.
        OperationLock(std::unique_lock<std::mutex>&& lock, std::condition_variable* target);
        OperationLock(OperationLock&& other) noexcept;
        OperationLock& operator=(OperationLock&&) = delete;
        ~OperationLock();

        explicit operator bool() const noexcept { return mLock.owns_lock(); }

        /// Sets whether the destructor wakes the other side.
        void setNotify(bool notify) noexcept { mNotify = notify; }

    private:
        std::condition_variable* mNotifyTarget = nullptr;
        std::unique_lock<std::mutex> mLock;
        bool mNotify = false;
    };

    BlockingBufferBase() = default;
    BlockingBufferBase(const BlockingBufferBase&) = delete;
    BlockingBufferBase& operator=(const BlockingBufferBase&) = delete;
    virtual ~BlockingBufferBase();

    [[nodiscard]] virtual bool empty() const = 0;
    [[nodiscard]] virtual bool full() const = 0;

    /// Stops the buffer for good: every waiter wakes, and nothing can be pushed or popped any more.
    void stop();

    /// Locks as soon as there is room. The lock is not obtained when there is no room within `timeout`, and
    /// after stop(). A timeout of 0 or less does not wait for room.
    [[nodiscard]] OperationLock tryLockForPushFor(std::chrono::microseconds timeout);

    /// Locks as soon as there is something to pop; otherwise as tryLockForPushFor().
    [[nodiscard]] OperationLock tryLockForPopFor(std::chrono::microseconds timeout);

private:
    template <class Duration, class Predicate>
    OperationLock tryLock(Duration timeout, std::condition_variable& waitOn, std::condition_variable& target,
                          Predicate predicate);

    // Changes to false under mMutex, so that no waiter misses it.
    std::atomic<bool> mRunning{true};
    // Guards what derived classes hold.
    std::mutex mMutex;
    // A pusher waits here for room.
    std::condition_variable mCanPush;
    // Poppers wait here for something to pop.
    std::condition_variable mCanPop;
};

}  // namespace vidorra
