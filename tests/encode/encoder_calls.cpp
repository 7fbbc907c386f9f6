#include "encode/encoder_calls.h"

#include <dlfcn.h>

#include <stdexcept>
#include <string>

namespace vidorra::test {

void* findNextFunction(const char* name) {
    void* function = dlsym(RTLD_NEXT, name);
    if (function == nullptr) {
        throw std::runtime_error(std::string("no function ").append(name));
    }
    return function;
}

EncoderCalls& encoderCalls() {
    // Never destroyed, since other libraries call these functions until the process ends.
    static EncoderCalls& calls = *new EncoderCalls;
    return calls;
}

}  // namespace vidorra::test

// Includes no FFmpeg header, which would declare these functions with other types.
#define EXPORTED __attribute__((visibility("default")))

extern "C" {

using vidorra::test::encoderCalls;

EXPORTED void* avcodec_alloc_context3(const void* codec) {
    return encoderCalls().avcodecAllocContext3(codec);
}
EXPORTED int av_opt_set(void* object, const char* name, const char* value, int flags) {
    return encoderCalls().avOptSet(object, name, value, flags);
}
EXPORTED int avcodec_parameters_from_context(void* parameters, const void* context) {
    return encoderCalls().avcodecParametersFromContext(parameters, context);
}
EXPORTED int avcodec_send_frame(void* context, const void* frame) {
    return encoderCalls().avcodecSendFrame(context, frame);
}
EXPORTED int avcodec_receive_packet(void* context, void* packet) {
    return encoderCalls().avcodecReceivePacket(context, packet);
}
EXPORTED int av_hwdevice_ctx_create(void** device, int type, const char* name, void* options, int flags) {
    return encoderCalls().avHwdeviceCtxCreate(device, type, name, options, flags);
}
EXPORTED void* av_hwframe_ctx_alloc(void* device) {
    return encoderCalls().avHwframeCtxAlloc(device);
}
EXPORTED int av_hwframe_ctx_init(void* frames) {
    return encoderCalls().avHwframeCtxInit(frames);
}
EXPORTED int avfilter_graph_config(void* graph, void* log) {
    return encoderCalls().avfilterGraphConfig(graph, log);
}
EXPORTED int av_dict_set_int(void** dictionary, const char* key, std::int64_t value, int flags) {
    return encoderCalls().avDictSetInt(dictionary, key, value, flags);
}
EXPORTED int avformat_find_stream_info(void* context, void** options) {
    return encoderCalls().avformatFindStreamInfo(context, options);
}
EXPORTED void* av_frame_alloc() {
    return encoderCalls().avFrameAlloc();
}
EXPORTED void* av_frame_new_side_data(void* frame, int type, std::size_t size) {
    return encoderCalls().avFrameNewSideData(frame, type, size);
}
EXPORTED void* av_packet_alloc() {
    return encoderCalls().avPacketAlloc();
}
}
