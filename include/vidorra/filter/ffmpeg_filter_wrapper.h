#pragma once

#include <cstdint>
#include <string>

#include "vidorra/core/av_ptr.h"
#include "vidorra/core/export.h"
#include "vidorra/core/ffmpeg_fwd.h"
#include "vidorra/core/geometry.h"
#include "vidorra/picture/audio_frame.h"
#include "vidorra/picture/video_frame.h"

extern "C" {
#include <libavutil/avutil.h>
}

namespace vidorra {

/// A filter description of FFmpeg for frames, pictures and samples by themselves, without an encoder.
///
///     FFmpegFilterWrapper filter;
///     filter.setFilterSpec("hflip,scale=640:360");
///     const VideoFrame flipped = filter.processVideoFrame(frame);
///
/// The graph is built for the first frame, and anew for a picture of another size or pixel format and after
/// another description. What comes out has the format to which the description leads. A wrapper that has
/// built a graph of pictures takes no samples any more, and the other way round, also with another
/// description.
///
/// A picture keeps its colour range as long as the description asks for no other; the graph is built for
/// that of the first picture, into which filters that scale convert pictures of another one.
///
/// Owns: the graph. Copies: none. Threads: one at a time.
/// Errors: std::runtime_error that names the step, without a code of FFmpeg. A description that cannot be
/// built goes on failing, then with "Picture filtering failed", until there is another one or a picture of
/// another shape. After std::bad_alloc, and after a frame that failed inside the graph, the next frame builds
/// the graph again; the frames that were in it are lost.
class VIDORRA_API FFmpegFilterWrapper {
public:
    /// No description: frames pass as they are.
    FFmpegFilterWrapper() = default;
    ~FFmpegFilterWrapper();
    FFmpegFilterWrapper(const FFmpegFilterWrapper& other) = delete;
    FFmpegFilterWrapper& operator=(const FFmpegFilterWrapper& other) = delete;

    /// Drops the graph, with the frames in it, unless the description is the present one. Empty for none.
    void setFilterSpec(std::string spec);

    /// The filtered frame. Its time stamp is the one that the graph gives, in the base of the stamp that went
    /// in, and null when that is; flags, metadata, side data and position are not passed on. A graph that
    /// needs more frames gives an empty frame, whose time stamp means nothing; what it still holds at the end
    /// is lost. Without a description, and for an empty frame, the result is a copy of all that the frame
    /// holds. The pixels of `frame` itself become private.
    ///
    /// Filters see stamps in microseconds under a time base of one second. The stamps of a filter that
    /// changes the time base, such as "yadif" and "aresample", are taken for microseconds as well: those of
    /// "yadif" come out doubled, and right with "yadif,settb=1".
    ///
    /// One frame goes in and at most one comes out. Filters that make more of them fall behind with every
    /// frame, as "yadif=1" does. Filters that count in seconds take a frame's 40000 microseconds for as many
    /// seconds, and "fps" fills them with frames until there is no memory.
    [[nodiscard]] VideoFrame processVideoFrame(VideoFrame& frame);

    /// The same for a picture without a time, which stays as it is.
    [[nodiscard]] Picture processPicture(Picture& picture);

    /// The same for samples. The graph is not built anew for samples of another kind: those are a failure.
    [[nodiscard]] AudioFrame processAudioFrame(AudioFrame& frame);
    [[nodiscard]] AudioBuffer processAudioBuffer(AudioBuffer& buffer);

    /// Build the graph for such input, as the first call of a process operation does: nothing without a
    /// description.
    void initializeVideo(const Picture& picture);
    void initializeAudio(const AudioBuffer& buffer);

    /// The part that both have in common, for the arguments of the filter "buffer" or "abuffer".
    void initializeInternal(const std::string& sourceArguments, AVMediaType type);

    /// An empty graph in the place of the present one.
    void createGraph();
    void destroyGraph() noexcept;

private:
    void build(const std::string& sourceArguments, AVMediaType type, AVColorRange range);
    AvPtr<AVFrame> pass(AvPtr<AVFrame> input);

    const AVFilter* mBufferSource = nullptr;
    const AVFilter* mBufferSink = nullptr;
    // Both belong to the graph, and are null until it is configured.
    AVFilterContext* mSourceContext = nullptr;
    AVFilterContext* mSinkContext = nullptr;
    // The open ends: "in" on the source and "out" on the sink.
    AVFilterInOut* mOutputs = nullptr;
    AVFilterInOut* mInputs = nullptr;
    AVFilterGraph* mGraph = nullptr;
    std::string mFilterSpec;
    AVPixelFormat mPixelFormat = AV_PIX_FMT_NONE;
    Size mFrameSize;
    AVSampleFormat mSampleFormat = AV_SAMPLE_FMT_NONE;
    int mSampleRate = 0;
    std::uint64_t mChannelLayout = 0;
    // Of the last graph that was configured, for good.
    AVMediaType mMediaType = AVMEDIA_TYPE_UNKNOWN;
};

}  // namespace vidorra
