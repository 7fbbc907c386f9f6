#pragma once

#include <cstdint>

struct AVBufferRef;

/// Counted buffers with a flush callback and a mark for device memory. Some FFmpeg builds have these
/// functions, under the same names.
///
/// The mark belongs to the buffer, not to a reference: it survives av_buffer_ref, av_frame_ref and a filter
/// graph, but not new memory from FFmpeg (av_buffer_make_writable, av_buffer_realloc).
///
/// Threads: thread-safe. Queries take no lock; making and releasing a buffer take one for a few
/// instructions.
namespace vidorra::ffmpeg_ext {

/// The flag of av_buffer_create2 for memory that a device can reach.
inline constexpr int kBufferFlagDma = 256;

using BufferFreeCallback = void (*)(void* opaque, std::uint8_t* data);
using BufferFlushCallback = void (*)(void* opaque, std::uint8_t* data, int size);

/// Wraps `size` bytes at `data`. `free` is called with `opaque` when the last reference is released, `flush`
/// by av_buffer_flush; either may be null. `reserved1` and `reserved2` are null and 0. Returns the only
/// reference, or null when there is no memory, `size` is negative or 262,144 such buffers exist; `free` is
/// then not called.
AVBufferRef* av_buffer_create2(std::uint8_t* data, int size, BufferFreeCallback free,
                               BufferFlushCallback flush, void* reserved1, int reserved2, void* opaque,
                               int flags);

/// Non-zero for a buffer that av_buffer_create2 made with kBufferFlagDma.
int av_buffer_is_dma(const AVBufferRef* ref);

/// Non-zero for memory that the FFmpeg build itself marks as external; none does here.
int av_buffer_is_external(const AVBufferRef* ref);

/// Tells that the CPU has written the bytes.
void av_buffer_set_modified(AVBufferRef* ref);

/// Calls the flush callback of a buffer that av_buffer_create2 made, and does nothing for any other.
void av_buffer_flush(AVBufferRef* ref);

}  // namespace vidorra::ffmpeg_ext
