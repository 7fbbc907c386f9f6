#include "filter/graph_frames.h"

#include <cstring>
#include <stdexcept>

#include "ffmpeg/channels.h"

namespace vidorra::test {
namespace {

ContextPtr newContext(AVMediaType type) {
    ContextPtr context(avcodec_alloc_context3(nullptr),
                       [](AVCodecContext* freed) { avcodec_free_context(&freed); });
    context->codec_type = type;
    return context;
}

}  // namespace

ContextPtr videoContext() {
    ContextPtr context = newContext(AVMEDIA_TYPE_VIDEO);
    context->width = 64;
    context->height = 48;
    context->pix_fmt = AV_PIX_FMT_YUV420P;
    context->time_base = {1, 25};
    context->sample_aspect_ratio = {1, 1};
    return context;
}

ContextPtr audioContext(std::uint64_t layout) {
    ContextPtr context = newContext(AVMEDIA_TYPE_AUDIO);
    context->sample_rate = 48000;
    context->sample_fmt = AV_SAMPLE_FMT_S16;
    context->time_base = {1, 48000};
    ffmpeg_ext::setChannelMask(*context, layout);
    return context;
}

AvPtr<AVFrame> plainPicture(AVPixelFormat format, int width, int height) {
    AvPtr<AVFrame> frame = makeAvPtr<AVFrame>();
    frame->format = format;
    frame->width = width;
    frame->height = height;
    frame->pts = 0;
    if (av_frame_get_buffer(frame.get(), 0) < 0) {
        throw std::runtime_error("no memory for a picture");
    }
    for (const AVBufferRef* buffer : frame->buf) {
        if (buffer != nullptr) {
            std::memset(buffer->data, 0, buffer->size);
        }
    }
    return frame;
}

AvPtr<AVFrame> plainPicture(std::uint8_t luma, std::uint8_t chroma, std::int64_t pts) {
    AvPtr<AVFrame> frame = plainPicture(AV_PIX_FMT_YUV420P, 64, 48);
    frame->pts = pts;
    std::memset(frame->data[0], luma, static_cast<std::size_t>(frame->linesize[0]) * 48);
    for (const int plane : {1, 2}) {
        std::memset(frame->data[plane], chroma, static_cast<std::size_t>(frame->linesize[plane]) * 24);
    }
    return frame;
}

AvPtr<AVFrame> stereo(const std::vector<std::int16_t>& samples, std::int64_t pts) {
    AvPtr<AVFrame> frame = makeAvPtr<AVFrame>();
    frame->format = AV_SAMPLE_FMT_S16;
    frame->sample_rate = 48000;
    frame->nb_samples = static_cast<int>(samples.size() / 2);
    frame->pts = pts;
    ffmpeg_ext::setChannelMask(*frame, 3);
    if (av_frame_get_buffer(frame.get(), 0) < 0) {
        throw std::runtime_error("no memory for samples");
    }
    std::memcpy(frame->data[0], samples.data(), samples.size() * sizeof(std::int16_t));
    return frame;
}

std::vector<std::int16_t> samplesOf(const AVFrame& frame) {
    const auto* samples = reinterpret_cast<const std::int16_t*>(frame.data[0]);
    return {samples, samples + frame.nb_samples * 2};
}

}  // namespace vidorra::test
