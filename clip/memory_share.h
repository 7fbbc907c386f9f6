#pragma once

#include <cstddef>

namespace vidorra {

/// The memory that the frames of one player take, counted for the player and for the process.
///
/// Threads: one at a time for an object; the count of the process belongs to all.
class MemoryShare {
public:
    /// `most` is for this player alone, in bytes.
    explicit MemoryShare(std::size_t most) noexcept : mMost(most) {}
    MemoryShare(const MemoryShare&) = delete;
    MemoryShare& operator=(const MemoryShare&) = delete;
    ~MemoryShare();

    void add(std::size_t bytes) noexcept;
    void remove(std::size_t bytes) noexcept;

    [[nodiscard]] std::size_t bytes() const noexcept { return mBytes; }

    /// Whether the player holds its own most, or the process holds what is for all. The latter is ignored
    /// while the share is small, so that a player can continue whatever others hold.
    [[nodiscard]] bool full() const noexcept;

    static constexpr std::size_t kMostOfProcess = std::size_t{1536} << 20;
    static constexpr std::size_t kAlwaysSpared = std::size_t{64} << 20;

private:
    const std::size_t mMost;
    std::size_t mBytes = 0;
};

}  // namespace vidorra
