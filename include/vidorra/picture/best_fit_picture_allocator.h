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

/// Places pictures in one fixed memory region. It is made for a stream of pictures in few shapes: a released
/// block keeps the shape of its picture, and the next picture of that shape gets it as it stands. Blocks are
/// split and joined only when the region has run out.
///
///     std::vector<std::uint8_t> region(64 << 20);
///     BestFitPictureAllocator allocator(region.data(), region.size(), 32, 4096, false);
///     Picture picture = allocator.allocate(Size{1920, 1080}, AV_PIX_FMT_NV12, AVCOL_RANGE_MPEG);
///
/// When the region is full, the operation that wanted a picture throws std::bad_alloc, as Scaler::scale() and
/// FreeTypeTextRenderer::render() do; when pictures have been released it succeeds again.
///
/// Owns: the list of blocks, not the region, which must outlive the allocator and all its pictures. The
/// allocator must outlive its pictures too: releasing one calls deallocate(). Threads: all operations from
/// any thread; the mutex is held for one walk over the blocks, never while a picture is made or flushed. An
/// operation that cannot lock it throws std::system_error and changes nothing.
class VIDORRA_API BestFitPictureAllocator : public PictureAllocator {
public:
    /// A part of the region. A block without history has the shape 0 by 0, AV_PIX_FMT_NONE.
    struct MemBlock {
        /// A multiple of the block alignment.
        std::uint8_t* data;
        /// Bytes, a multiple of the block alignment, which can be 0.
        std::uint64_t size;
        /// Whether it is handed out.
        bool used;
        /// The shape that it last held.
        Size frameSize;
        AVPixelFormat format;
    };

    /// Places pictures in the `size` bytes at `buffer`. Line sizes are multiples of `lineAlignment` bytes, at
    /// least 1, as FFmpeg lays pictures out; blocks begin at, and are as long as, multiples of the larger of
    /// the two alignments. `dma` says that a device can reach the memory: the pictures then answer
    /// isBufferDMA() with true. A region without room for an aligned block is no error, but each allocation
    /// from it fails.
    ///
    /// Throws std::invalid_argument when `buffer` is null, or when the larger alignment is no power of two.
    BestFitPictureAllocator(std::uint8_t* buffer, std::size_t size, std::size_t lineAlignment,
                            std::size_t blockAlignment, bool dma);
    ~BestFitPictureAllocator() override;

    /// A picture in the region, with what the memory held before. Its one buffer is a whole block, which can
    /// be larger than the picture. Throws FFmpegError for a size or format that FFmpeg refuses, 0 by 0 among
    /// them, and when FFmpeg has no memory for the buffer's handle; std::bad_alloc when the region is
    /// exhausted.
    [[nodiscard]] Picture allocate(Size size, AVPixelFormat format, AVColorRange range) override;

    /// Makes the CPU's writes to a block visible to a device. Called with the whole block when a picture is
    /// flushed, without a lock, from whatever thread that is; nothing may escape from it. Here it does
    /// nothing.
    virtual void flush(std::uint8_t* data, int size);

    /// Chooses a block for a picture and marks it used: a free one that last held this shape; else a free one
    /// of exactly the size; else fresh space behind all blocks. When that has run out, neighbouring free
    /// blocks are joined, and the smallest free block is taken if at most a fifth of the size is wasted, else
    /// a part of the largest. The caller gives it back by deallocate(). Throws as allocate().
    [[nodiscard]] MemBlock findFreeBlock(Size size, AVPixelFormat format);

    /// Gives the used block at `data` back. This is what the release of a picture calls. Throws
    /// std::runtime_error when there is none, without a change; in the release of a picture that ends the
    /// process.
    void deallocate(std::uint8_t* data);

    /// Joins each run of free neighbours in a list of blocks into one block without history.
    static void mergeFreeBlocks(std::vector<MemBlock>& blocks);

private:
    // The region from here to mEnd has never been handed out, or has been given back.
    std::uint8_t* mNextFree;
    std::uint8_t* mEnd;
    std::uint64_t mLineAlignment;
    std::uint64_t mBlockAlignment;
    bool mDma;
    // In the order of their addresses, without gaps up to mNextFree. The last one is used.
    std::vector<MemBlock> mBlocks;
    // Guards mNextFree, mEnd and mBlocks.
    std::mutex mMutex;
};

}  // namespace vidorra
