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

// Blocks are an eighth larger than what they are made for, as the size of buffers goes up and down a little,
// and at most eight times as large as what they are used for.
constexpr std::size_t kSpareShare = 8;
constexpr std::size_t kLargestUse = 8;
constexpr std::size_t kSmallestBlock = 1024;
// Some generations of FFmpeg count the bytes in an int.
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
        // The planes that are still used keep the pool that they are from.
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
