#include "vidorra/filter/ffmpeg_filter_wrapper.h"

#include <new>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "ffmpeg/filter_parsing.h"
#include "ffmpeg/filters.h"
#include "ffmpeg/pixel_formats.h"
#include "filter/accepted_frames.h"
#include "picture/aligned_samples.h"
#include "vidorra/core/av_res.h"
#include "vidorra/core/format.h"

extern "C" {
#include <libavfilter/avfilter.h>
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
#include <libavutil/frame.h>
#include <libavutil/mem.h>
}

namespace vidorra {
namespace {

AvPtr<AVFrame> newFrame() {
    AvPtr<AVFrame> frame = makeAvPtr<AVFrame>();
    if (frame == nullptr) {
        throw std::bad_alloc();
    }
    return frame;
}

std::int64_t microseconds(const Timestamp& time) {
    return time.rescale(Timebase()).value;
}

// Whether a graph that gave this result has failed: a graph that needs more frames, or has ended, has not.
bool hasFailed(const AvRes& res) {
    return !res.ok && res.error != AvError::Again && res.error != AvError::Eof;
}

// Null for a frame without a time. Deliberate: the stamp counts as microseconds, whatever base a filter gave
// it.
Timestamp timeOfResult(const Timestamp& timeOfInput, const AVFrame& output) {
    return timeOfInput.isNull ? Timestamp() : Timestamp(Timebase(), output.pts).rescale(timeOfInput.timebase);
}

void fillEnd(AVFilterInOut& end, const char* name, AVFilterContext* context) {
    end.name = av_strdup(name);
    end.filter_ctx = context;
    end.pad_idx = 0;
    end.next = nullptr;
}

}  // namespace

FFmpegFilterWrapper::~FFmpegFilterWrapper() {
    destroyGraph();
}

void FFmpegFilterWrapper::createGraph() {
    destroyGraph();
    mOutputs = avfilter_inout_alloc();
    mInputs = avfilter_inout_alloc();
    mGraph = avfilter_graph_alloc();
    if (mOutputs == nullptr || mInputs == nullptr || mGraph == nullptr) {
        destroyGraph();
        throw std::bad_alloc();
    }
}

void FFmpegFilterWrapper::destroyGraph() noexcept {
    avfilter_graph_free(&mGraph);
    avfilter_inout_free(&mInputs);
    avfilter_inout_free(&mOutputs);
    mSourceContext = nullptr;
    mSinkContext = nullptr;
}

void FFmpegFilterWrapper::setFilterSpec(std::string spec) {
    if (spec == mFilterSpec) {
        return;
    }
    destroyGraph();
    mFilterSpec = std::move(spec);
}

void FFmpegFilterWrapper::initializeInternal(const std::string& sourceArguments, AVMediaType type) {
    build(sourceArguments, type, AVCOL_RANGE_UNSPECIFIED);
}

// The range is that of the pictures, unspecified for samples.
void FFmpegFilterWrapper::build(const std::string& sourceArguments, AVMediaType type, AVColorRange range) {
    if (mFilterSpec.empty()) {
        return;
    }
    createGraph();
    switch (type) {
    case AVMEDIA_TYPE_VIDEO:
        mBufferSource = avfilter_get_by_name("buffer");
        mBufferSink = avfilter_get_by_name("buffersink");
        break;
    case AVMEDIA_TYPE_AUDIO:
        mBufferSource = avfilter_get_by_name("abuffer");
        mBufferSink = avfilter_get_by_name("abuffersink");
        break;
    default:
        throw std::runtime_error("Unsupported media format");
    }
    if (mBufferSource == nullptr || mBufferSink == nullptr) {
        throw std::runtime_error("Filtering source or sink element not found");
    }
    // Deliberate: a failure leaves the graph incomplete, so that the next frame of the same kind does not try
    // again; without a source the graph gets no frames. Only a shortage of memory is worth another try.
    const auto check = [this](int code, const char* failureText) {
        if (code >= 0) {
            return;
        }
        if (code == AVERROR(ENOMEM)) {
            destroyGraph();
        }
        throw std::runtime_error(failureText);
    };
    AVFilterContext* source = nullptr;
    AVFilterContext* sink = nullptr;
    check(
        avfilter_graph_create_filter(&source, mBufferSource, "in", sourceArguments.c_str(), nullptr, mGraph),
        "Cannot create buffer source");
    check(avfilter_graph_create_filter(&sink, mBufferSink, "out", nullptr, nullptr, mGraph),
          "Cannot create buffer sink");
    fillEnd(*mOutputs, "in", source);
    fillEnd(*mInputs, "out", sink);
    check(mOutputs->name != nullptr && mInputs->name != nullptr ? 0 : AVERROR(ENOMEM), "Out of memory");
    const ffmpeg_ext::ParsedFilters parsed =
        ffmpeg_ext::parseFilters(*mGraph, mFilterSpec.c_str(), &mInputs, &mOutputs, nullptr);
    check(parsed.code, parsed.lacksDevice ? "Cannot configure filter" : "Cannot parse filter spec");
    check(ffmpeg_ext::keepRangeInScaling(*mGraph, range), "Cannot configure filter");
    check(avfilter_graph_config(mGraph, nullptr), "Cannot configure filter");
    mSourceContext = source;
    mSinkContext = sink;
    mMediaType = type;
}

void FFmpegFilterWrapper::initializeVideo(const Picture& picture) {
    mPixelFormat = picture.pixelFormat();
    mFrameSize = picture.frameSize();
    std::string arguments = fmt::format("video_size={}x{}:pix_fmt=", mFrameSize.width, mFrameSize.height);
    const AVColorRange range = picture.colorRange();
    // Without a name the arguments end here, and the source refuses them.
    if (const char* name = ffmpeg_ext::pixelFormatName(mPixelFormat)) {
        // Deliberate: the stamps of the frames are microseconds, and existing descriptions rely on that.
        arguments += fmt::format("{}:time_base=1/1:pixel_aspect=1/1", name);
        if (range != AVCOL_RANGE_UNSPECIFIED) {
            arguments += ffmpeg_ext::rangeOfSource(range);
        }
    }
    build(arguments, AVMEDIA_TYPE_VIDEO, range);
}

void FFmpegFilterWrapper::initializeAudio(const AudioBuffer& buffer) {
    mSampleFormat = buffer.sampleFormat();
    mChannelLayout = buffer.channelLayout();
    mSampleRate = buffer.sampleRate();
    std::ostringstream format;
    format << mSampleFormat;
    initializeInternal(fmt::format("time_base=1/1000000:sample_rate={}:sample_fmt={}:channel_layout=0x{:x}",
                                   mSampleRate, format.str(), mChannelLayout),
                       AVMEDIA_TYPE_AUDIO);
}

// Passes one frame through the graph; returns an empty frame when none comes out.
AvPtr<AVFrame> FFmpegFilterWrapper::pass(AvPtr<AVFrame> input) {
    AvPtr<AVFrame> output = newFrame();
    // A graph that could not be built has no source.
    if (mSourceContext == nullptr || !accepts(*mSourceContext, *input)) {
        throw std::runtime_error("Picture filtering failed");
    }
    if (alignSamples(*input) < 0) {
        throw std::bad_alloc();
    }
    // After a failure inside the graph the next frame would crash it, so the graph is built again.
    const AvRes sent = av_buffersrc_add_frame_flags(mSourceContext, input.get(), AV_BUFFERSRC_FLAG_PUSH);
    if (!sent.ok) {
        if (hasFailed(sent)) {
            destroyGraph();
        }
        throw std::runtime_error("Picture filtering failed");
    }
    if (hasFailed(av_buffersink_get_frame(mSinkContext, output.get()))) {
        destroyGraph();
    }
    return output;
}

VideoFrame FFmpegFilterWrapper::processVideoFrame(VideoFrame& frame) {
    if (mMediaType != AVMEDIA_TYPE_UNKNOWN && mMediaType != AVMEDIA_TYPE_VIDEO) {
        throw std::runtime_error(
            fmt::format("Filter is initialized for processing {}", av_get_media_type_string(mMediaType)));
    }
    Picture& picture = frame.picture();
    if (mFilterSpec.empty() || picture.empty()) {
        return frame;
    }
    if (picture.pixelFormat() != mPixelFormat || picture.frameSize() != mFrameSize) {
        destroyGraph();
    }
    if (mGraph == nullptr) {
        initializeVideo(picture);
    }
    picture.makeEditable();
    AvPtr<AVFrame> input = newFrame();
    picture.fillAVFrame(input.get());
    input->pts = microseconds(frame.timestamp());
    const AvPtr<AVFrame> output = pass(std::move(input));

    VideoFrame result;
    result.picture() = Picture(output.get());
    result.setTimestamp(timeOfResult(frame.timestamp(), *output));
    return result;
}

Picture FFmpegFilterWrapper::processPicture(Picture& picture) {
    VideoFrame frame(picture, Timestamp(), Frame::NoFlags);
    return processVideoFrame(frame).picture();
}

AudioFrame FFmpegFilterWrapper::processAudioFrame(AudioFrame& frame) {
    if (mMediaType != AVMEDIA_TYPE_UNKNOWN && mMediaType != AVMEDIA_TYPE_AUDIO) {
        // Deliberate: no blank before the type.
        throw std::runtime_error(
            fmt::format("Filter is initialized for processing{}", av_get_media_type_string(mMediaType)));
    }
    const AudioBuffer& samples = frame.audioBuffer();
    if (mFilterSpec.empty() || samples.empty()) {
        return frame;
    }
    if (mGraph == nullptr) {
        initializeAudio(samples);
    }
    AvPtr<AVFrame> input = newFrame();
    samples.fillAVFrame(input.get());
    input->pts = microseconds(frame.timestamp());
    const AvPtr<AVFrame> output = pass(std::move(input));

    AudioFrame result;
    // If no frame came out, the frame has no format and nothing to load.
    if (output->format != AV_SAMPLE_FMT_NONE) {
        AudioBuffer buffer(samples.channelLayout(), samples.sampleFormat());
        buffer.loadAVFrame(output.get());
        result.audioBuffer() = std::move(buffer);
    }
    result.setTimestamp(timeOfResult(frame.timestamp(), *output));
    return result;
}

AudioBuffer FFmpegFilterWrapper::processAudioBuffer(AudioBuffer& buffer) {
    AudioFrame frame(buffer, Timestamp());
    return processAudioFrame(frame).audioBuffer();
}

}  // namespace vidorra
