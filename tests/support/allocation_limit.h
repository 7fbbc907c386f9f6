#pragma once

#include <climits>
#include <cstddef>
#include <cstdint>

extern "C" {
#include <libavutil/mem.h>
}

namespace vidorra::test {

/// Makes FFmpeg's allocations above so many bytes fail during its lifetime. Some FFmpeg versions reserve 32
/// bytes of the limit, so 33 is the smallest limit that works with all of them.
class AllocationLimit {
public:
    explicit AllocationLimit(std::size_t bytes) { av_max_alloc(bytes); }
    AllocationLimit(const AllocationLimit&) = delete;
    AllocationLimit& operator=(const AllocationLimit&) = delete;
    ~AllocationLimit() { av_max_alloc(INT_MAX); }
};

}  // namespace vidorra::test
