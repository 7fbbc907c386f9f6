#pragma once

#include <atomic>
#include <cstdint>

namespace vidorra {

/// What ClipCounters tells, counted by the thread that reads and looked at by any.
struct ClipCounts {
    std::atomic<std::uint64_t> repairedTimes{0};
    std::atomic<std::uint64_t> droppedFrames{0};
    std::atomic<std::uint64_t> damagedPackets{0};
};

}  // namespace vidorra
