#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <limits>
#include <memory>
#include <mutex>

#include "vidorra/core/av_error.h"

struct AVIOInterruptCB;

namespace vidorra {

class ByteSource;

/// Ends what waits for a source: when it is stopped, and when a time limit has passed.
///
/// Threads: stop() and stopped() from any thread, the other calls from the thread that reads.
class Interruption {
public:
    Interruption() = default;
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;

    /// For good.
    void stop() noexcept;
    [[nodiscard]] bool stopped() const noexcept { return mStopped.load(); }

    /// Begins a time limit in the place of the one before; 0 for none.
    void limit(std::chrono::microseconds time) noexcept;

    /// Whether to give up.
    [[nodiscard]] bool due() const noexcept;

    /// Why a call of FFmpeg failed: that it was stopped or too slow, or else its own code.
    [[nodiscard]] AvError reasonFor(int code) const noexcept;

    /// For FFmpeg, which may call it as long as this object lives.
    [[nodiscard]] AVIOInterruptCB callback() noexcept;

    /// The source that stop() interrupts; null for none.
    void watch(std::shared_ptr<ByteSource> source);

private:
    [[nodiscard]] bool late() const noexcept;

    std::atomic<bool> mStopped{false};
    // On the steady clock; FFmpeg asks from threads of its own too.
    std::atomic<std::int64_t> mDeadline{std::numeric_limits<std::int64_t>::max()};
    // Guards mSource.
    std::mutex mMutex;
    std::shared_ptr<ByteSource> mSource;
};

}  // namespace vidorra
