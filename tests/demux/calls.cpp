#include "demux/calls.h"

#include <dlfcn.h>

// Includes no FFmpeg header, which would declare these functions with other types.

namespace vidorra::test {

void* findNextFunction(const char* name) {
    return dlsym(RTLD_NEXT, name);
}

Calls& calls() {
    // Never destroyed, since other libraries call these functions until the process ends.
    static Calls& all = *new Calls;
    return all;
}

}  // namespace vidorra::test

using vidorra::test::calls;

#define EXPORTED __attribute__((visibility("default")))

extern "C" {

EXPORTED void* avformat_alloc_context() {
    return calls().avformatAllocContext();
}

EXPORTED const void* av_find_input_format(const char* name) {
    return calls().avFindInputFormat(name);
}

EXPORTED int av_dict_set_int(void** dictionary, const char* key, std::int64_t value, int flags) {
    return calls().avDictSetInt(dictionary, key, value, flags);
}

EXPORTED int avformat_open_input(void** context, const char* url, const void* format, void** options) {
    return calls().avformatOpenInput(context, url, format, options);
}

EXPORTED int avformat_find_stream_info(void* context, void** options) {
    return calls().avformatFindStreamInfo(context, options);
}

EXPORTED void avformat_close_input(void** context) {
    calls().avformatCloseInput(context);
}

EXPORTED int av_read_frame(void* context, void* packet) {
    return calls().avReadFrame(context, packet);
}

EXPORTED int av_seek_frame(void* context, int stream, std::int64_t time, int flags) {
    return calls().avSeekFrame(context, stream, time, flags);
}

EXPORTED void* av_packet_alloc() {
    return calls().avPacketAlloc();
}

EXPORTED void* av_frame_alloc() {
    return calls().avFrameAlloc();
}

EXPORTED const void* avcodec_find_decoder_by_name(const char* name) {
    return calls().avcodecFindDecoderByName(name);
}

EXPORTED void* avcodec_alloc_context3(const void* codec) {
    return calls().avcodecAllocContext3(codec);
}

EXPORTED int avcodec_parameters_to_context(void* context, const void* parameters) {
    return calls().avcodecParametersToContext(context, parameters);
}

EXPORTED int avcodec_open2(void* context, const void* codec, void** options) {
    return calls().avcodecOpen2(context, codec, options);
}

EXPORTED int avcodec_send_packet(void* context, const void* packet) {
    return calls().avcodecSendPacket(context, packet);
}

EXPORTED int avcodec_receive_frame(void* context, void* frame) {
    return calls().avcodecReceiveFrame(context, frame);
}

EXPORTED void avcodec_flush_buffers(void* context) {
    calls().avcodecFlushBuffers(context);
}

EXPORTED int poll(pollfd* descriptors, nfds_t count, int timeout) {
    return calls().poll(descriptors, count, timeout);
}

EXPORTED int clock_gettime(clockid_t clock, timespec* time) noexcept {
    return calls().clockGettime(clock, time);
}

}  // extern "C"
