#include "vidorra/picture/best_fit_picture_allocator.h"

#include <algorithm>
#include <iterator>
#include <new>
#include <stdexcept>
#include <utility>

#include "ffmpeg/buffers.h"
#include "ffmpeg/pixel_formats.h"
#include "vidorra/core/av_res.h"

namespace vidorra {
namespace {

using MemBlock = BestFitPictureAllocator::MemBlock;
using Blocks = std::vector<MemBlock>;

// C code calls the callbacks, so they must not throw. An error of deallocate() ends the process: the
// allocator is damaged then.
// NOLINTNEXTLINE(bugprone-exception-escape)
void freeBlock(void* opaque, std::uint8_t* data) noexcept {
    static_cast<BestFitPictureAllocator*>(opaque)->deallocate(data);
}

void flushBlock(void* opaque, std::uint8_t* data, int size) noexcept {
    static_cast<BestFitPictureAllocator*>(opaque)->flush(data, size);
}

constexpr std::uint64_t roundedUp(std::uint64_t value, std::uint64_t powerOfTwo) {
    return (value + powerOfTwo - 1) & ~(powerOfTwo - 1);
}

bool isCandidate(const MemBlock& block, std::uint64_t size) {
    return !block.used && block.size >= size;
}

// A free block that can be used unchanged: the first that last held this shape, otherwise the first of
// exactly this size. One walk finds both.
Blocks::iterator findReusable(Blocks& blocks, std::uint64_t size, Size frameSize, AVPixelFormat format) {
    auto sameSize = blocks.end();
    for (auto block = blocks.begin(); block != blocks.end(); ++block) {
        if (!isCandidate(*block, size)) {
            continue;
        }
        if (block->frameSize == frameSize && block->format == format) {
            return block;
        }
        if (sameSize == blocks.end() && block->size == size) {
            sameSize = block;
        }
    }
    return sameSize;
}

// The first of the smallest and the last of the largest candidates.
struct Extremes {
    Blocks::iterator smallest;
    Blocks::iterator largest;
    std::size_t count;
};

Extremes findExtremes(Blocks& blocks, std::uint64_t size) {
    Extremes result{blocks.end(), blocks.end(), 0};
    for (auto block = blocks.begin(); block != blocks.end(); ++block) {
        if (!isCandidate(*block, size)) {
            continue;
        }
        if (result.count == 0 || block->size < result.smallest->size) {
            result.smallest = block;
        }
        if (result.count == 0 || block->size >= result.largest->size) {
            result.largest = block;
        }
        ++result.count;
    }
    return result;
}

// Cuts a block to `size` bytes. Deliberate: a remainder of 0 bytes becomes a block too.
Blocks::iterator split(Blocks& blocks, Blocks::iterator block, std::uint64_t size) {
    const MemBlock rest{block->data + size, block->size - size, false, Size{}, AV_PIX_FMT_NONE};
    const auto position = std::distance(blocks.begin(), block);
    blocks.insert(std::next(block), rest);
    block = blocks.begin() + position;
    block->size = size;
    return block;
}

// A block in a region that has run out. Deliberate: a sole candidate is split even if it is at most a fifth
// too large, which would be accepted if there were several.
Blocks::iterator findInExhausted(Blocks& blocks, std::uint64_t size) {
    const Extremes candidates = findExtremes(blocks, size);
    if (candidates.count == 0) {
        throw std::bad_alloc();
    }
    if (candidates.count > 1 && candidates.smallest->size <= size * 120 / 100) {
        return candidates.smallest;
    }
    return split(blocks, candidates.largest, size);
}

}  // namespace

BestFitPictureAllocator::BestFitPictureAllocator(std::uint8_t* buffer, std::size_t size,
                                                 std::size_t lineAlignment, std::size_t blockAlignment,
                                                 bool dma)
    : mNextFree(buffer),
      mEnd(buffer),
      mLineAlignment(lineAlignment),
      mBlockAlignment(std::max(lineAlignment, blockAlignment)),
      mDma(dma) {
    if (buffer == nullptr) {
        throw std::invalid_argument("BestFitPictureAllocator: buffer must not be null");
    }
    if (mBlockAlignment == 0 || (mBlockAlignment & (mBlockAlignment - 1)) != 0) {
        throw std::invalid_argument("BestFitPictureAllocator: blockAlignment must be power of two");
    }
    if (size < mBlockAlignment) {
        return;
    }
    const auto address = reinterpret_cast<std::uintptr_t>(buffer);
    const std::uint64_t aligned = roundedUp(address, mBlockAlignment);
    const std::uint64_t padding = aligned - address;
    // Rounding up past the last address gives 0.
    if (padding > size - mBlockAlignment || aligned == 0) {
        return;
    }
    mNextFree = buffer + padding;
    mEnd = buffer + size;
}

BestFitPictureAllocator::~BestFitPictureAllocator() = default;

Picture BestFitPictureAllocator::allocate(Size size, AVPixelFormat format, AVColorRange range) {
    const MemBlock block = findFreeBlock(size, format);
    AVBufferRef* ref =
        ffmpeg_ext::av_buffer_create2(block.data, static_cast<int>(block.size), freeBlock, flushBlock,
                                      nullptr, 0, this, mDma ? ffmpeg_ext::kBufferFlagDma : 0);
    if (ref == nullptr) {
        deallocate(block.data);
        throw FFmpegError(AvError::OutOfMemory, "BestFitPictureAllocator: failed to allocate AVBufferRef");
    }
    MemBuffer buffer(&ref);
    Picture::Planes planes{};
    Picture::Linesizes linesizes{};
    const AvRes res = ffmpeg_ext::fillImageArrays(planes.data(), linesizes.data(), block.data, format,
                                                  size.width, size.height, static_cast<int>(mLineAlignment));
    res.throwIfError("BestFitPictureAllocator: failed to calculate picture offsets");
    return Picture(std::move(buffer), size, planes.data(), linesizes.data(), format, range);
}

void BestFitPictureAllocator::flush(std::uint8_t* /*data*/, int /*size*/) {}

BestFitPictureAllocator::MemBlock BestFitPictureAllocator::findFreeBlock(Size size, AVPixelFormat format) {
    const std::lock_guard lock(mMutex);
    const int imageSize =
        ffmpeg_ext::imageBufferSize(format, size.width, size.height, static_cast<int>(mLineAlignment));
    AvRes(imageSize).throwIfError("BestFitPictureAllocator: failed to calculate buffer size for the picture");
    const std::uint64_t needed = roundedUp(static_cast<std::uint64_t>(imageSize), mBlockAlignment);

    auto block = findReusable(mBlocks, needed, size, format);
    if (block == mBlocks.end()) {
        if (needed <= static_cast<std::uint64_t>(mEnd - mNextFree)) {
            mBlocks.push_back({mNextFree, needed, true, size, format});
            mNextFree += needed;
            return mBlocks.back();
        }
        mergeFreeBlocks(mBlocks);
        block = findInExhausted(mBlocks, needed);
    }
    block->used = true;
    block->frameSize = size;
    block->format = format;
    return *block;
}

void BestFitPictureAllocator::deallocate(std::uint8_t* data) {
    const std::lock_guard lock(mMutex);
    // From the last to the first: a block of 0 bytes has the same address as the block after it, which is
    // the one in use.
    const auto found = std::find_if(mBlocks.rbegin(), mBlocks.rend(),
                                    [data](const MemBlock& block) { return block.data == data; });
    if (found == mBlocks.rend() || !found->used) {
        throw std::runtime_error(
            "BestFitPictureAllocator: corrupted structure or picture buffer is already freed.");
    }
    found->used = false;
    while (!mBlocks.empty() && !mBlocks.back().used) {
        mNextFree = mBlocks.back().data;
        mBlocks.pop_back();
    }
}

void BestFitPictureAllocator::mergeFreeBlocks(std::vector<MemBlock>& blocks) {
    if (blocks.empty()) {
        return;
    }
    auto last = blocks.begin();
    for (auto block = std::next(last); block != blocks.end(); ++block) {
        if (last->used || block->used) {
            *++last = *block;
            continue;
        }
        last->size += block->size;
        last->frameSize = Size{};
        last->format = AV_PIX_FMT_NONE;
    }
    blocks.erase(std::next(last), blocks.end());
}

}  // namespace vidorra
