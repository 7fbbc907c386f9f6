#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "vidorra/core/av_ptr.h"
#include "vidorra/core/geometry.h"
#include "vidorra/picture/picture.h"

extern "C" {
#include <libavutil/buffer.h>
#include <libavutil/frame.h>
}

namespace vidorra::test {

using FramePtr = AvPtr<AVFrame>;
using BufferPtr = AvPtr<AVBufferRef>;

/// A buffer slot of a picture; all zero when the slot is empty.
struct Slot {
    const std::uint8_t* data = nullptr;
    std::size_t size = 0;
    /// References to the memory, without those that looking at it takes.
    int references = 0;
};

/// What the four slots of a picture hold.
std::array<Slot, 4> slotsOf(const Picture& picture);

/// How many slots are full.
int bufferCount(const Picture& picture);

/// The bytes and rows of one plane that belong to pixels, 0 by 0 for a plane that the format does not have. A
/// palette is one row.
struct PlaneShape {
    int bytes = 0;
    int rows = 0;
};

std::array<PlaneShape, 4> planeShapes(AVPixelFormat format, Size size);

/// Fills the pixels with bytes that depend on the seed, and marks them modified.
void fillWithNoise(Picture& picture, unsigned seed);

/// All bytes of all pixels without those between the rows, plane by plane.
std::vector<std::uint8_t> pixelsOf(const Picture& picture);

/// A picture full of noise.
Picture noisePicture(Size size, AVPixelFormat format, unsigned seed = 1, int alignment = 32);

/// A picture full of noise, with each plane in a buffer of its own.
Picture pictureInSeparateBuffers(Size size, AVPixelFormat format, unsigned seed = 1);

/// A frame with these fields, no buffers and no planes.
FramePtr newFrame(Size size, AVPixelFormat format, AVColorRange range = AVCOL_RANGE_UNSPECIFIED);

/// One piece of memory in which a test places buffers, so that it knows their addresses. Expects in the end
/// that all buffers have been freed.
class Arena {
public:
    explicit Arena(std::size_t size) : mMemory(size) {}
    Arena(const Arena&) = delete;
    Arena& operator=(const Arena&) = delete;
    ~Arena();

    [[nodiscard]] std::uint8_t* at(std::size_t offset) { return mMemory.data() + offset; }

    /// The one reference to a new buffer over a part of the memory.
    [[nodiscard]] BufferPtr buffer(std::size_t offset, std::size_t size, int flags = 0);

    /// How many buffers have been released.
    [[nodiscard]] int freed() const { return mFreed; }

private:
    std::vector<std::uint8_t> mMemory;
    int mMade = 0;
    std::atomic<int> mFreed = 0;
};

/// While it lives FFmpeg refuses to allocate more bytes at a time than this.
class AllocationLimit {
public:
    explicit AllocationLimit(std::size_t bytes);
    AllocationLimit(const AllocationLimit&) = delete;
    AllocationLimit& operator=(const AllocationLimit&) = delete;
    ~AllocationLimit();
};

/// A limit that lets nothing through, not even a reference to a buffer.
inline constexpr std::size_t kNothing = 8;

/// The text of the FFmpegError that this message and code give.
std::string ffmpegErrorText(const std::string& message, int code);

}  // namespace vidorra::test
