#pragma once

#include <cstddef>
#include <cstdint>

#include "vidorra/core/export.h"
#include "vidorra/core/ffmpeg_fwd.h"

namespace vidorra {

/// One counted reference to memory. Copies share the bytes. The memory is released with the last reference,
/// on whatever thread that is.
///
///     MemBuffer bytes(4096, true);
///     const MemBuffer same = bytes;  // bytes.writeable() is false until this one has gone
///
/// Owns: exactly one AVBufferRef, or nothing: then it is empty.
/// Threads: one at a time for each object; objects that share bytes may be used on different threads if none
/// of them writes. Errors: std::bad_alloc when FFmpeg has no memory for a buffer or a reference.
class VIDORRA_API MemBuffer {
public:
    MemBuffer() noexcept = default;

    /// New memory of `size` bytes, zeroed or undefined.
    MemBuffer(int size, bool zero);

    /// A new reference; the caller keeps its own. Null gives an empty buffer.
    explicit MemBuffer(AVBufferRef* ref);

    /// Takes over the caller's reference and sets its pointer to null.
    explicit MemBuffer(AVBufferRef** ref) noexcept;

    MemBuffer(const MemBuffer& other);
    MemBuffer& operator=(const MemBuffer& other);
    MemBuffer(MemBuffer&& other) noexcept;
    MemBuffer& operator=(MemBuffer&& other) noexcept;
    ~MemBuffer();

    /// Releases the present reference and takes over `ref`, which may be null.
    void reset(AVBufferRef* ref) noexcept;

    /// A new reference, owned by the caller; null for an empty buffer.
    [[nodiscard]] AVBufferRef* createBufferRef() const;

    [[nodiscard]] bool empty() const noexcept { return mRef == nullptr; }

    /// How many references the memory has, 0 when empty.
    [[nodiscard]] long useCount() const noexcept;

    /// Whether this is the only reference, to memory that may be written.
    [[nodiscard]] bool writeable() const noexcept;

    /// Whether a device can reach the memory, according to the allocator that it came from.
    [[nodiscard]] bool isDMA() const noexcept;

    /// Whether the FFmpeg build marks the memory as external.
    [[nodiscard]] bool isExternal() const noexcept;

    /// Makes what the CPU has written visible to the device that the memory belongs to, if any.
    void flush() const noexcept;

    /// Tells that the CPU has written the bytes. Throws std::logic_error when not writeable().
    void markModified();

    /// Copies the bytes into private heap memory unless they are private already. Throws std::logic_error
    /// when empty.
    void makeWriteable();

    /// Changes the size of the memory to `size` bytes and keeps the content as far as it fits.
    void resize(int size);

    /// Limits this reference to the first `size` bytes. Nothing moves, and other references are unchanged.
    /// Throws std::invalid_argument when there are fewer bytes.
    void shrink(std::size_t size);

    /// Null when empty.
    [[nodiscard]] std::uint8_t* data() const noexcept;

    /// Bytes, 0 when empty.
    [[nodiscard]] std::size_t size() const noexcept;

    /// Sorts full buffers by address, and empty ones after them. Deliberate: every buffer is less than an
    /// empty one, even another empty one, so use this order to sort full buffers only.
    friend VIDORRA_API bool operator<(const MemBuffer& a, const MemBuffer& b) noexcept;

private:
    AVBufferRef* mRef = nullptr;
};

}  // namespace vidorra
