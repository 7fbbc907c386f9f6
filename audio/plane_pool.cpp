#include "audio/plane_pool.h"

#include <algorithm>
#include <climits>
#include <new>

#include "ffmpeg/owners.h"

extern "C" {
#include <libavutil/buffer.h>
}

namespace vidorra {
namespace {

// Blocks are an eighth larger than the first request, since the size of buffers varies a little, and at most
// eight times as large as a later request.
constexpr std::size_t kSpareShare = 8;
constexpr std::size_t kLargestUse = 8;
constexpr std::size_t kSmallestBlock = 1024;
// Some FFmpeg versions count the bytes in an int.
constexpr std::size_t kLargestBlock = INT_MAX;

}  // namespace

PlanePool::PlanePool() noexcept : mPool(ffmpeg_ext::adopt<AVBufferPool>(nullptr)) {}

MemBuffer PlanePool::get(std::size_t size) {
    if (size > kLargestBlock) {
        throw std::bad_alloc();
    }
    const bool fits = size <= mBlock && (mBlock <= kSmallestBlock || mBlock / kLargestUse <= size);
    if (mPool == nullptr || !fits) {
        mBlock = std::clamp(size + size / kSpareShare, kSmallestBlock, kLargestBlock);
        // Planes in use keep their old pool alive.
        mPool.reset(av_buffer_pool_init(static_cast<int>(mBlock), nullptr));
    }
    AVBufferRef* block = mPool != nullptr ? av_buffer_pool_get(mPool.get()) : nullptr;
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    MemBuffer plane(&block);
    plane.shrink(size);
    return plane;
}

}  // namespace vidorra
