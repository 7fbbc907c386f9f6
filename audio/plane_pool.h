#pragma once

#include <cstddef>

#include "vidorra/core/av_ptr.h"
#include "vidorra/picture/mem_buffer.h"

struct AVBufferPool;

namespace vidorra {

/// Memory for planes of samples, which serves again when its last reference goes: on whatever thread that is,
/// and when the pool is gone already. Planes of about the same size are meant to follow each other.
///
/// Threads: one at a time.
class PlanePool {
public:
    PlanePool() noexcept;

    /// Undefined bytes, `size` of them, in private memory. Throws std::bad_alloc when there is none.
    [[nodiscard]] MemBuffer get(std::size_t size);

private:
    AvPtr<AVBufferPool> mPool;
    std::size_t mBlock = 0;
};

}  // namespace vidorra
