#pragma once

#include <cstddef>
#include <cstdint>

#include "vidorra/core/export.h"
#include "vidorra/core/ffmpeg_fwd.h"

namespace vidorra {

/// One counted reference to memory. Copies share the bytes; the memory goes, on whatever thread that is, when
/// the last reference does.
///
///     MemBuffer bytes(4096, true);
///     const MemBuffer same = bytes;  // bytes.writeable() is false until this one has gone
///
/// Owns: exactly one AVBufferRef, or nothing: then it is empty.
/// Threads: an object belongs to one thread at a time; objects that share bytes may live on different
/// threads, of which none writes them. Errors: std::bad_alloc when FFmpeg has no memory for a buffer or a
/// reference.
class VIDORRA_API MemBuffer {
public:
    MemBuffer() noexcept = default;

    /// New memory of `size` bytes, zeroed or undefined.
    MemBuffer(int size, bool zero);

    /// A new reference; the caller keeps its own. Null gives an empty buffer.
    explicit MemBuffer(AVBufferRef* ref);

    /// Takes the caller's reference over and sets its pointer to null.
    explicit MemBuffer(AVBufferRef** ref) noexcept;

    MemBuffer(const MemBuffer& other);
    MemBuffer& operator=(const MemBuffer& other);
    MemBuffer(MemBuffer&& other) noexcept;
    MemBuffer& operator=(MemBuffer&& other) noexcept;
    ~MemBuffer();

    /// Drops the reference held and takes `ref` over, which may be null.
    void reset(AVBufferRef* ref) noexcept;

    /// A new reference, owned by the caller; null for an empty buffer.
    [[nodiscard]] AVBufferRef* createBufferRef() const;

    [[nodiscard]] bool empty() const noexcept { return mRef == nullptr; }

    /// How many references the memory has, 0 when empty.
    [[nodiscard]] long useCount() const noexcept;

    /// Whether this is the only reference, to memory that may be written.
    [[nodiscard]] bool writeable() const noexcept;

    /// Whether the memory can be reached by a device: it came from an allocator that says so.
    [[nodiscard]] bool isDMA() const noexcept;

    /// Whether the FFmpeg build marks the memory as external.
    [[nodiscard]] bool isExternal() const noexcept;

    /// Makes what the CPU has written visible to the device, where the memory belongs to one.
    void flush() const noexcept;

    /// Says that the CPU has written the bytes. Throws std::logic_error when not writeable().
    void markModified();

    /// Moves the bytes into private heap memory unless they are private already. Throws std::logic_error when
    /// empty.
    void makeWriteable();

    /// Makes the memory `size` bytes, keeping the content as far as it fits.
    void resize(int size);

    /// Leaves the bytes behind the first `size` out of sight. Nothing moves, and other references see what
    /// they saw. Throws std::invalid_argument when there are not that many.
    void shrink(std::size_t size);

    /// Null when empty.
    [[nodiscard]] std::uint8_t* data() const noexcept;

    /// Bytes, 0 when empty.
    [[nodiscard]] std::size_t size() const noexcept;

    /// Sorts full buffers by their address, and empty ones behind them. Deliberate: every buffer is less than
    /// an empty one, an empty one too, so this is an order for sorting full buffers only.
    friend VIDORRA_API bool operator<(const MemBuffer& a, const MemBuffer& b) noexcept;

private:
    AVBufferRef* mRef = nullptr;
};

}  // namespace vidorra
