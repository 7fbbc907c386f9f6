#pragma once

#include "demux/calls.h"

namespace vidorra::test {

/// The FFmpeg functions of encoders and picture files that tests intercept. FFmpeg's structures are void
/// here.
struct EncoderCalls {
    Call<void*(const void*)> avcodecAllocContext3{"avcodec_alloc_context3"};
    Call<int(void*, const char*, const char*, int)> avOptSet{"av_opt_set"};
    Call<int(void*, const void*)> avcodecParametersFromContext{"avcodec_parameters_from_context"};
    Call<int(void*, const void*)> avcodecSendFrame{"avcodec_send_frame"};
    Call<int(void*, void*)> avcodecReceivePacket{"avcodec_receive_packet"};
    Call<void*()> avPacketAlloc{"av_packet_alloc"};
    Call<int(void**, int, const char*, void*, int)> avHwdeviceCtxCreate{"av_hwdevice_ctx_create"};
    Call<void*(void*)> avHwframeCtxAlloc{"av_hwframe_ctx_alloc"};
    Call<int(void*)> avHwframeCtxInit{"av_hwframe_ctx_init"};
    Call<int(void*, void*)> avfilterGraphConfig{"avfilter_graph_config"};
    Call<int(void**, const char*, std::int64_t, int)> avDictSetInt{"av_dict_set_int"};
    Call<int(void*, void**)> avformatFindStreamInfo{"avformat_find_stream_info"};
    Call<void*()> avFrameAlloc{"av_frame_alloc"};
    Call<void*(void*, int, std::size_t)> avFrameNewSideData{"av_frame_new_side_data"};
};

EncoderCalls& encoderCalls();

}  // namespace vidorra::test
