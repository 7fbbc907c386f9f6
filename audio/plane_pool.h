#pragma once

#include <cstddef>

#include "vidorra/core/av_ptr.h"
#include "vidorra/picture/mem_buffer.h"

struct AVBufferPool;

namespace vidorra {

/// Memory for planes of samples, reused after its last reference is released. That may happen on any thread,
/// and after the pool's destruction. It is made for successive planes of about the same size.
///
/// Threads: one at a time.
class PlanePool {
public:
    PlanePool() noexcept;

    /// `size` undefined bytes in private memory. Throws std::bad_alloc when there is no memory.
    [[nodiscard]] MemBuffer get(std::size_t size);

private:
    AvPtr<AVBufferPool> mPool;
    std::size_t mBlock = 0;
};

}  // namespace vidorra
