#include "ffmpeg/buffers.h"

#include <cstddef>
#include <functional>
#include <mutex>

extern "C" {
#include <libavutil/buffer.h>
}

namespace vidorra::ffmpeg_ext {
namespace {

// The record of one of our buffers. The opaque pointer of the AVBuffer, which FFmpeg lets anyone read,
// points to it. The opaque pointer of a foreign buffer can be anything, even a small integer, and must not
// be followed. All our records are in one array, so their address identifies them: a look-up is two
// comparisons and takes no lock. A block is written before its buffer exists and does not change while the
// buffer lives.
struct Block {
    BufferFreeCallback free;
    BufferFlushCallback flush;
    void* opaque;
    int flags;
    Block* nextFree;
};

// The number of 4 KiB pages, the smallest pieces of a device's memory, in 1 GiB. Each block takes 40 bytes,
// so the array takes 10 MiB.
constexpr std::size_t kMaxBlocks = 262144;
static_assert(sizeof(Block) * kMaxBlocks == 10U << 20U);

// In zeroed static memory: the system provides only the pages that are used. Never destroyed, since buffers
// may outlive static destruction.
Block gBlocks[kMaxBlocks];

// Guards the two variables below it.
std::mutex gPoolMutex;
Block* gFreeBlocks = nullptr;
std::size_t gUsedBlocks = 0;

Block* takeBlock() {
    const std::lock_guard lock(gPoolMutex);
    if (gFreeBlocks != nullptr) {
        Block* block = gFreeBlocks;
        gFreeBlocks = block->nextFree;
        return block;
    }
    return gUsedBlocks < kMaxBlocks ? &gBlocks[gUsedBlocks++] : nullptr;
}

void giveBlockBack(Block* block) {
    const std::lock_guard lock(gPoolMutex);
    block->nextFree = gFreeBlocks;
    gFreeBlocks = block;
}

const Block* blockOf(const AVBufferRef* ref) {
    const void* opaque = ref != nullptr ? av_buffer_get_opaque(ref) : nullptr;
    const std::less<> before;
    const bool ours = !before(opaque, std::begin(gBlocks)) && before(opaque, std::end(gBlocks));
    return ours ? static_cast<const Block*>(opaque) : nullptr;
}

void release(void* opaque, std::uint8_t* data) {
    auto* block = static_cast<Block*>(opaque);
    const Block copy = *block;
    giveBlockBack(block);
    if (copy.free != nullptr) {
        copy.free(copy.opaque, data);
    }
}

}  // namespace

AVBufferRef* av_buffer_create2(std::uint8_t* data, int size, BufferFreeCallback free,
                               BufferFlushCallback flush, void* /*reserved1*/, int /*reserved2*/,
                               void* opaque, int flags) {
    Block* block = size < 0 ? nullptr : takeBlock();
    if (block == nullptr) {
        return nullptr;
    }
    *block = {free, flush, opaque, flags, nullptr};
    AVBufferRef* ref = av_buffer_create(data, size, release, block, 0);
    if (ref == nullptr) {
        giveBlockBack(block);
    }
    return ref;
}

int av_buffer_is_dma(const AVBufferRef* ref) {
    const Block* block = blockOf(ref);
    return block != nullptr && (block->flags & kBufferFlagDma) != 0 ? 1 : 0;
}

int av_buffer_is_external(const AVBufferRef* /*ref*/) {
    return 0;
}

void av_buffer_set_modified(AVBufferRef* /*ref*/) {
    // Nothing to record: av_buffer_flush always calls back, whether the bytes were written or not.
}

void av_buffer_flush(AVBufferRef* ref) {
    const Block* block = blockOf(ref);
    if (block != nullptr && block->flush != nullptr) {
        block->flush(block->opaque, ref->data, static_cast<int>(ref->size));
    }
}

}  // namespace vidorra::ffmpeg_ext
