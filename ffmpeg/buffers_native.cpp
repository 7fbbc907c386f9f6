// For an FFmpeg that has these functions itself.
#include "ffmpeg/buffers.h"

extern "C" {
#include <libavutil/buffer.h>
}

namespace vidorra::ffmpeg_ext {

AVBufferRef* av_buffer_create2(std::uint8_t* data, int size, BufferFreeCallback free,
                               BufferFlushCallback flush, void* reserved1, int reserved2, void* opaque,
                               int flags) {
    return size < 0 ? nullptr
                    : ::av_buffer_create2(data, size, free, flush, reserved1, reserved2, opaque, flags);
}

int av_buffer_is_dma(const AVBufferRef* ref) {
    return ::av_buffer_is_dma(const_cast<AVBufferRef*>(ref));
}

int av_buffer_is_external(const AVBufferRef* ref) {
    return ::av_buffer_is_external(const_cast<AVBufferRef*>(ref));
}

void av_buffer_set_modified(AVBufferRef* ref) {
    ::av_buffer_set_modified(ref);
}

void av_buffer_flush(AVBufferRef* ref) {
    ::av_buffer_flush(ref);
}

}  // namespace vidorra::ffmpeg_ext
