#pragma once

namespace vidorra {

/// A share of the decoder threads that the clip readers of this process may have together, given back at its
/// end.
///
/// Threads: shares are taken, given back and limited from any thread.
class ThreadShare {
public:
    /// No threads.
    ThreadShare() noexcept = default;
    /// Up to `wanted` threads, as many as are left; a single one is not worth it and stays.
    explicit ThreadShare(int wanted) noexcept;
    ThreadShare(ThreadShare&& other) noexcept;
    ThreadShare& operator=(ThreadShare&& other) noexcept;
    ThreadShare(const ThreadShare&) = delete;
    ThreadShare& operator=(const ThreadShare&) = delete;
    ~ThreadShare();

    /// 0, or at least 2.
    [[nodiscard]] int count() const noexcept { return mCount; }

    /// How many there are for all; shares that were taken stay.
    static void setBudget(int threads) noexcept;

private:
    int mCount = 0;
};

}  // namespace vidorra
