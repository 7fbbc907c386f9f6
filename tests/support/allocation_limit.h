#pragma once

#include <climits>
#include <cstddef>
#include <cstdint>

extern "C" {
#include <libavutil/mem.h>
}

namespace vidorra::test {

/// Makes each allocation of FFmpeg above so many bytes fail while it lives. Some generations keep 32 bytes of
/// the limit for themselves, so a limit of 33 is the smallest that means anything on all of them.
class AllocationLimit {
public:
    explicit AllocationLimit(std::size_t bytes) { av_max_alloc(bytes); }
    AllocationLimit(const AllocationLimit&) = delete;
    AllocationLimit& operator=(const AllocationLimit&) = delete;
    ~AllocationLimit() { av_max_alloc(INT_MAX); }
};

}  // namespace vidorra::test
