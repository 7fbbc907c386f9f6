#include "ffmpeg/owners.h"

#include "ffmpeg/versions.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavfilter/avfilter.h>
#include <libavformat/avio.h>
#include <libavutil/buffer.h>
#include <libavutil/dict.h>
#include <libavutil/frame.h>
#include <libavutil/mem.h>
#include <libswresample/swresample.h>
#include <libswscale/swscale.h>
}

namespace vidorra::ffmpeg_ext {

void release(AVBufferPool* pool) {
    av_buffer_pool_uninit(&pool);
}

void release(AVBufferRef* reference) {
    av_buffer_unref(&reference);
}

void release(AVCodecContext* context) {
    avcodec_free_context(&context);
}

void release(AVDictionary* dictionary) {
    av_dict_free(&dictionary);
}

void release(AVFilterGraph* graph) {
    avfilter_graph_free(&graph);
}

#if DEVICE_BEFORE_INITIALISATION
void release(AVFilterGraphSegment* segment) {
    avfilter_graph_segment_free(&segment);
}
#endif

void release(AVFilterInOut* list) {
    avfilter_inout_free(&list);
}

void release(AVFrame* frame) {
    av_frame_free(&frame);
}

void release(AVIOContext* file) {
    avio_close(file);
}

void release(AVMD5* state) {
    av_free(state);
}

void release(AVPacket* packet) {
    av_packet_free(&packet);
}

void release(SwrContext* context) {
    swr_free(&context);
}

void release(SwsContext* context) {
    sws_freeContext(context);
}

Owner<void> adoptMemory(void* memory) {
    return {memory, av_free};
}

}  // namespace vidorra::ffmpeg_ext
