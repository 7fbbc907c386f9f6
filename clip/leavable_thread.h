#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <thread>

namespace vidorra {

/// A thread that is left to end by itself when it does not end soon: its work must own all that it uses.
///
/// Threads: one at a time for an object; left() from any.
class LeavableThread {
public:
    /// Starts. Throws std::system_error when there is no thread. Nothing may leave `work`.
    explicit LeavableThread(std::function<void()> work);
    LeavableThread(const LeavableThread&) = delete;
    LeavableThread& operator=(const LeavableThread&) = delete;

    /// Waits a millisecond for the end of the work, and leaves the thread after that.
    ~LeavableThread();

    /// How many threads were left and have not ended yet.
    [[nodiscard]] static std::size_t left() noexcept;

private:
    struct State;

    const std::shared_ptr<State> mState;
    std::thread mThread;
};

}  // namespace vidorra
