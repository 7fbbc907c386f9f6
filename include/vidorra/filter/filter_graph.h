#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "vidorra/core/av_ptr.h"
#include "vidorra/core/av_res.h"
#include "vidorra/core/export.h"
#include "vidorra/core/ffmpeg_fwd.h"

namespace vidorra {

/// A filter graph of FFmpeg between a frame and an encoder, or the absence of one. It is built once, for the
/// settings of an open codec context, and then fed frame by frame. VideoEncoder and AudioEncoder make one
/// from their key "filter"; FFmpegFilterWrapper needs no codec.
///
///     FilterGraphVideo graph("yadif,scale=1280:720", context, nullptr, AV_PIX_FMT_YUV420P);
///     frame.setTimestamp(frame.timestamp().rescale(context.time_base));
///     AvPtr<AVFrame> filtered = frame.toAvFrame();
///     const AvRes res = graph.filterFrame(filtered);
///     if (res.ok) { ... }                            // it is what came out
///     else if (res.error == AvError::Again) { ... }  // the graph needs more frames
///
/// Owns: the graph, with its source and its sink. Not copyable; a moved-from object has no graph.
/// Threads: one at a time.
class VIDORRA_API FilterGraphBase {
public:
    /// Takes over the graph; it has no source and sink yet.
    explicit FilterGraphBase(std::unique_ptr<AVFilterGraph, void (*)(AVFilterGraph*)> graph) noexcept;

    FilterGraphBase(FilterGraphBase&& other) noexcept = default;
    FilterGraphBase& operator=(FilterGraphBase&& other) noexcept = default;
    ~FilterGraphBase() = default;

    /// Whether there is no graph, so that frames pass unchanged.
    [[nodiscard]] bool empty() const noexcept { return mGraph == nullptr; }

    /// Replaces the frame with the filtered frame. One frame goes in and at most one comes out; if the graph
    /// makes several from one, the rest comes with the next calls. The encoder chooses the picture type of
    /// the frame. The frame's time is in the unit of the codec context, unless the description changes that.
    ///
    /// Without a graph this succeeds and the frame stays. After any failure the handle is empty and the
    /// input frame has been released:
    ///
    /// - AvError::Again: the graph needs more input.
    /// - AvError::InvalidArgument: the frame has no samples, or not the size and format, or the rate,
    ///   channels and sample format, that the graph was built for. The graph still works. Pictures of other
    ///   sizes and formats are accepted only if a scaler comes first.
    /// - AvError::OutOfMemory: there is no memory for the frame, or 250 filtered frames are waiting because
    ///   the filters give more frames than they get, as "yadif=1" and "fps=50" can. More than 50 waiting
    ///   frames are logged once, at level 2.
    /// - AvError::Eof: the graph has ended; a null frame ends it.
    /// - Any FFmpeg error: the frame failed inside the graph.
    ///
    /// After the last two, and when 250 frames are waiting, the graph is released. All later calls return
    /// the same error; make a new object to filter again.
    ///
    /// A picture keeps its colour range, full or limited, even if filters scale it or convert it to RGB and
    /// back, unless the description asks for another range.
    AvRes filterFrame(std::unique_ptr<AVFrame, void (*)(AVFrame*)>& frame);

    /// Takes one more of the frames that the graph has made, and gives it none: after filterFrame() the rest
    /// of what a frame has become, and after its null frame all that the graph still held. AvError::Again
    /// when there is none for now, also without a graph; AvError::Eof when the graph has ended. The handle is
    /// empty then.
    AvRes receiveFrame(std::unique_ptr<AVFrame, void (*)(AVFrame*)>& frame);

protected:
    std::unique_ptr<AVFilterGraph, void (*)(AVFilterGraph*)> mGraph;
    // Both belong to the graph.
    AVFilterContext* mSource = nullptr;
    AVFilterContext* mSink = nullptr;
    // Filtered frames for later calls, with room for as many as may be waiting.
    std::vector<AvPtr<AVFrame>> mWaiting;

private:
    AvRes takeFiltered(AvPtr<AVFrame>& output);
    AvRes give(const AvRes& res, AvPtr<AVFrame>& output, AvPtr<AVFrame>& frame);
    AvRes collectWaiting(std::size_t wanted);
    AvRes giveUp(const AvRes& failure);

    // What every call returns once a graph has failed or ended; its filters have been released then.
    AvRes mFailure = 0;
    bool mHasWarned = false;
    // Of the latest picture that went in.
    AVColorRange mOwnRange = AVCOL_RANGE_UNSPECIFIED;
};

/// A graph of pictures.
class VIDORRA_API FilterGraphVideo : public FilterGraphBase {
public:
    /// No graph.
    FilterGraphVideo() noexcept;

    /// Builds the graph of a description for pictures in `pixelFormat` with the size, time base, aspect
    /// ratio and range of an open codec context. Its output is in the pixel format of the context.
    /// `hwDevice`, which may be null, is offered to every filter; the graph takes its own references. A
    /// pixel format without a name means AV_PIX_FMT_YUV420P. If the context has no range, filters that
    /// convert between YUV and RGB treat the pictures as full-range.
    ///
    /// Throws std::runtime_error for a context that is not of video, and FFmpegError with the step that
    /// failed: "Cannot create buffer source (V)", "Cannot create buffer sink (V)", "Cannot set output pixel
    /// format", "Cannot parse filter spec", or "Cannot configure filter", also for a filter without the
    /// device that it needs.
    FilterGraphVideo(const std::string& spec, AVCodecContext& context, AVBufferRef* hwDevice,
                     AVPixelFormat pixelFormat);
};

/// A graph of samples.
class VIDORRA_API FilterGraphAudio : public FilterGraphBase {
public:
    /// No graph.
    FilterGraphAudio() noexcept;

    /// Builds the graph of a description for samples with the time base, rate, sample format and channel
    /// layout of an open codec context. Its output has the same rate, format and layout. The filters
    /// determine the number of samples in the output frames.
    ///
    /// Throws std::runtime_error for a context that is not of audio, and FFmpegError with the step that
    /// failed: "Cannot create buffer source (A)", "Cannot create buffer sink (A)", "Cannot set output sample
    /// format", "Cannot set output channel layout", "Cannot set output sample rate", "Cannot parse filter
    /// spec", "Cannot configure filter".
    FilterGraphAudio(const std::string& spec, AVCodecContext& context);
};

}  // namespace vidorra
