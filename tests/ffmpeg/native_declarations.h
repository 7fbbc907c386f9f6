#pragma once

#include <cstdint>

struct AVBufferRef;
struct AVPacket;

/// The additions to FFmpeg, as declared by builds that have them.
extern "C" {

AVBufferRef* av_buffer_create2(std::uint8_t* data, int size, void (*free)(void* opaque, std::uint8_t* data),
                               void (*flush)(void* opaque, std::uint8_t* data, int size), void* reserved1,
                               int reserved2, void* opaque, int flags);
int av_buffer_is_dma(AVBufferRef* ref);
int av_buffer_is_external(AVBufferRef* ref);
void av_buffer_set_modified(AVBufferRef* ref);
void av_buffer_flush(AVBufferRef* ref);
int av_side_data_set_chapter_metadata(AVPacket* packet, long first, unsigned long second, const char* title);

}  // extern "C"
