#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <vector>

#include "vidorra/core/export.h"
#include "vidorra/core/ffmpeg_fwd.h"
#include "vidorra/core/geometry.h"
#include "vidorra/picture/picture.h"
#include "vidorra/picture/picture_allocator.h"

namespace vidorra {

/// Places pictures in one fixed memory region. It is made for streams of pictures in few shapes: a released
/// block keeps the shape of its picture, and the next picture of that shape gets it unchanged. Blocks are
/// split and joined only when the region has run out.
///
///     std::vector<std::uint8_t> region(64 << 20);
///     BestFitPictureAllocator allocator(region.data(), region.size(), 32, 4096, false);
///     Picture picture = allocator.allocate(Size{1920, 1080}, AV_PIX_FMT_NV12, AVCOL_RANGE_MPEG);
///
/// When the region is full, any operation that needs a picture, such as Scaler::scale() or
/// FreeTypeTextRenderer::render(), throws std::bad_alloc; it succeeds again when pictures have been
/// released.
///
/// Owns: the list of blocks, not the region, which must outlive the allocator and all its pictures. The
/// allocator must outlive its pictures too, because releasing one calls deallocate(). Threads: thread-safe;
/// the mutex is held for one walk over the blocks, never while a picture is made or flushed. An operation
/// that cannot lock it throws std::system_error and changes nothing.
class VIDORRA_API BestFitPictureAllocator : public PictureAllocator {
public:
    /// A part of the region. A block without history has the shape 0 by 0, AV_PIX_FMT_NONE.
    struct MemBlock {
        /// A multiple of the block alignment.
        std::uint8_t* data;
        /// In bytes, a multiple of the block alignment; may be 0.
        std::uint64_t size;
        /// Whether a picture uses it.
        bool used;
        /// The shape of its present or last picture.
        Size frameSize;
        AVPixelFormat format;
    };

    /// Places pictures in the `size` bytes at `buffer`. FFmpeg lays the pictures out with line sizes in
    /// multiples of `lineAlignment` bytes, at least 1. Addresses and sizes of blocks are multiples of the
    /// larger of the two alignments. `dma` says that a device can reach the memory: isBufferDMA() of the
    /// pictures is then true. A region without room for an aligned block is not an error, but each
    /// allocation from it fails.
    ///
    /// Throws std::invalid_argument when `buffer` is null, or when the larger alignment is not a power of
    /// two.
    BestFitPictureAllocator(std::uint8_t* buffer, std::size_t size, std::size_t lineAlignment,
                            std::size_t blockAlignment, bool dma);
    ~BestFitPictureAllocator() override;

    /// A picture in the region with undefined content. Its one buffer is a whole block, which can be larger
    /// than the picture. Throws FFmpegError for a size or format that FFmpeg refuses, 0 by 0 among them, and
    /// when FFmpeg has no memory for the buffer's handle; std::bad_alloc when the region is exhausted.
    [[nodiscard]] Picture allocate(Size size, AVPixelFormat format, AVColorRange range) override;

    /// Makes the CPU's writes to a block visible to a device. Called with the whole block when a picture is
    /// flushed, on the flushing thread and without a lock. An override must not throw. The default does
    /// nothing.
    virtual void flush(std::uint8_t* data, int size);

    /// Chooses a block for a picture and marks it used: a free block that last held this shape; otherwise a
    /// free block of exactly the size; otherwise fresh space after all blocks. When that has run out,
    /// neighbouring free blocks are joined, and the smallest free block is taken if it wastes at most a
    /// fifth of the size, otherwise a part of the largest. Return the block with deallocate(). Throws as
    /// allocate().
    [[nodiscard]] MemBlock findFreeBlock(Size size, AVPixelFormat format);

    /// Returns the used block at `data`; the release of a picture calls this. Throws std::runtime_error when
    /// there is no such block and changes nothing; during the release of a picture this ends the process.
    void deallocate(std::uint8_t* data);

    /// Joins each run of free neighbours in a list of blocks into one block without history.
    static void mergeFreeBlocks(std::vector<MemBlock>& blocks);

private:
    // The region from here to mEnd holds no blocks.
    std::uint8_t* mNextFree;
    std::uint8_t* mEnd;
    std::uint64_t mLineAlignment;
    std::uint64_t mBlockAlignment;
    bool mDma;
    // Ordered by address, without gaps up to mNextFree. The last one is in use.
    std::vector<MemBlock> mBlocks;
    // Guards mNextFree, mEnd and mBlocks.
    std::mutex mMutex;
};

}  // namespace vidorra
