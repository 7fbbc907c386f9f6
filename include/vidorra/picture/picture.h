#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>

#include "vidorra/core/export.h"
#include "vidorra/core/ffmpeg_fwd.h"
#include "vidorra/core/geometry.h"
#include "vidorra/picture/mem_buffer.h"

namespace vidorra {

/// A picture: its size, format and colour range, and up to four planes of pixels in up to four buffers.
///
/// Copies share the pixels, and nothing detaches by itself. Before you write pixels, check editable(), and
/// call makeEditable() for a private copy; call markModified() afterwards. Call flush() before a device
/// reads the pixels.
///
///     Picture picture(Size{1920, 1080}, AV_PIX_FMT_NV12, AVCOL_RANGE_MPEG, 32);
///     std::memset(picture.data()[0], 16, picture.linesize()[0] * 1080);
///     picture.markModified();
///
/// Planes: the address of a plane tells which buffer holds it; no buffer slot belongs to a fixed plane.
/// Plane 3 is always an alpha plane of full resolution. Full buffers come before empty slots. Owns: a
/// reference to each of its buffers, none to a plane. Threads: one at a time for each object; pictures that
/// share pixels may be used on different threads. Errors: in addition to what the operations say,
/// std::bad_alloc when there is no memory.
class VIDORRA_API Picture {
public:
    using Planes = std::array<std::uint8_t*, 4>;
    using Linesizes = std::array<int, 4>;

    /// Empty: 0 by 0, AV_PIX_FMT_NONE, AVCOL_RANGE_UNSPECIFIED.
    Picture() noexcept = default;

    /// New heap memory with undefined content: all planes in one buffer, line sizes in multiples of
    /// `alignment` bytes. Throws as allocBuffer().
    Picture(Size size, AVPixelFormat format, AVColorRange range, int alignment);

    /// A private copy of the given planes. Throws as allocBuffer().
    Picture(Size size, const std::uint8_t* const* data, const int* linesize, AVPixelFormat format,
            AVColorRange range, int alignment);

    /// A picture inside a buffer that the caller made: four planes and four line sizes, which are not
    /// checked.
    Picture(MemBuffer buffer, Size size, std::uint8_t* const* data, const int* linesize, AVPixelFormat format,
            AVColorRange range);

    /// Shares the memory of a frame, which keeps its own references. A frame that does not own its memory is
    /// copied, with line sizes for alignment 1. Throws FFmpegError with AvError::InvalidArgument for a frame
    /// in a format that has the number of NVA12 in the FFmpeg in use.
    explicit Picture(AVFrame* frame);

    /// The colour of `picture` with the pixels of `alpha` as its alpha plane, sharing the memory of both.
    /// `picture` is YUV420P, YUVA420P, NV12 or NVA12, whose own alpha plane is replaced; `alpha` is GRAY8 of
    /// the same size. Throws std::logic_error for other formats, for another size, when colour occupies all
    /// four buffers, when the pixels of `alpha` are in none of its buffers, and when `picture` is empty().
    /// docs/RECIPES.md shows how to make an NVA12 overlay from an image file with this.
    Picture(const Picture& picture, const Picture& alpha);

    [[nodiscard]] Size frameSize() const noexcept { return mSize; }
    [[nodiscard]] AVPixelFormat pixelFormat() const noexcept { return mFormat; }
    [[nodiscard]] AVColorRange colorRange() const noexcept { return mRange; }

    /// The four plane pointers, null where there is no plane. Valid while the picture holds its buffers;
    /// check empty() first.
    [[nodiscard]] const Planes& data() const noexcept { return mData; }

    /// Bytes from one row to the next in each plane.
    [[nodiscard]] const Linesizes& linesize() const noexcept { return mLinesize; }

    /// The number of bytes from the first pixel of a plane, 0 to 3, to the end of the buffer that holds it:
    /// 0 for a plane that starts at that end, as in a view without pixels. Nothing if the plane does not
    /// exist, or if it is in no buffer of this picture, so that its end is unknown.
    [[nodiscard]] std::optional<std::size_t> bytesInBuffer(std::size_t plane) const noexcept;

    /// Whether the picture has no memory; nothing else matters. A moved-from picture is empty. It keeps its
    /// size, its format and its plane pointers, which must not be used.
    [[nodiscard]] bool empty() const noexcept { return mBuffers[0].empty(); }

    /// Whether nobody else holds the pixels. False when empty.
    [[nodiscard]] bool editable() const noexcept;

    /// Whether a device can reach all of the pixels. False when empty.
    [[nodiscard]] bool isBufferDMA() const noexcept;

    /// Whether any buffer is external memory.
    [[nodiscard]] bool isBufferExternal() const noexcept;

    /// Tells that the CPU has written pixels. Throws std::logic_error when a buffer is shared.
    void markModified();

    /// Makes what the CPU has written visible to the device that the memory belongs to, if any.
    void flush() const noexcept;

    /// Whether the format has an alpha component or a palette. False for a value that is not a format.
    [[nodiscard]] bool hasAlpha() const noexcept;

    /// New memory in buffer 0 for the picture's size and format, with 32 spare bytes after the last plane.
    /// Does nothing when width or height is below 1. Throws FFmpegError for a size, format or alignment that
    /// FFmpeg refuses.
    void allocBuffer(int alignment);

    /// Releases buffers that hold no plane and sorts the others by address. Do not call this on a cropped
    /// picture whose planes have all left a buffer.
    void removeUnusedBuffers();

    /// Makes every buffer private: shared ones are copied into heap memory, even if they were in an
    /// allocator's memory, and the planes move along. If a buffer cannot be copied it stays shared, and the
    /// buffers before it stay private.
    void makeEditable();

    /// Copies the pixels of a picture of the same size and format; the colour range stays. Does nothing
    /// between two empty pictures. Throws std::runtime_error when this picture is not editable, when size or
    /// format differ, and when only `other` is empty.
    void copyFrom(const Picture& other);

    /// Copies pixels from planes of this picture's size and format. Does nothing when empty. Throws
    /// std::runtime_error when this picture is not editable.
    void copyFrom(const std::uint8_t* const* data, const int* linesize);

    /// A view of the part that `rect` and the picture have in common. It shares the memory. Position and
    /// size are each rounded down to whole groups of pixels. A group is the pixels that share a chroma
    /// sample, even if chroma is in one plane with luma (2 pixels of YUYV422, 4 of UYYVYY411), or that share
    /// a byte (8 of MONOBLACK, 2 of RGB4). A rectangle outside gives a view of 0 by 0 that still holds the
    /// buffers. Throws std::invalid_argument when the format has no descriptor and the part is not the
    /// whole.
    [[nodiscard]] Picture crop(Rect rect) const;

    /// Makes a frame share this memory: it gets the buffers, planes, line sizes, size, format and range. The
    /// frame must be new or reset. An empty picture gives neither buffers nor planes.
    void fillAVFrame(AVFrame* frame) const;

    /// "1920x1080, nv12 (tv,editable)", or "(empty picture)". Throws std::logic_error for a colour range
    /// without a name.
    [[nodiscard]] std::string debugDescription() const;

private:
    [[nodiscard]] bool holdsAPlane(const MemBuffer& buffer) const noexcept;

    Size mSize;
    AVPixelFormat mFormat = AV_PIX_FMT_NONE;
    AVColorRange mRange = AVCOL_RANGE_UNSPECIFIED;
    std::array<MemBuffer, 4> mBuffers;
    Planes mData{};
    Linesizes mLinesize{};
};

/// Writes debugDescription().
VIDORRA_API std::ostream& operator<<(std::ostream& stream, const Picture& picture);

}  // namespace vidorra
