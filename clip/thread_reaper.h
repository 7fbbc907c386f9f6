#pragma once

#include <cstddef>
#include <future>
#include <thread>

namespace vidorra {

/// Holds threads that nobody waits for, until they end. They must own all that they use.
///
/// Threads: any.
class ThreadReaper {
public:
    /// Takes over a thread that makes `done` ready as the last thing that it does. Without memory for that,
    /// the thread is detached and not counted.
    static void leave(std::thread thread, std::future<void> done) noexcept;

    /// How many have not ended yet.
    [[nodiscard]] static std::size_t count() noexcept;
};

}  // namespace vidorra
