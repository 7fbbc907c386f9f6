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

/// Applies an FFmpeg filter description to frames, pictures and samples, without an encoder.
///
///     FFmpegFilterWrapper filter;
///     filter.setFilterSpec("hflip,scale=640:360");
///     const VideoFrame flipped = filter.processVideoFrame(frame);
///
/// The graph is built for the first frame. It is built again for a picture of another size or pixel format,
/// and after another description. The description determines the output format. A wrapper that has built a
/// graph for pictures no longer takes samples, and vice versa, even with another description.
///
/// A picture keeps its colour range unless the description asks for another. The graph is built for the
/// range of the first picture; filters that scale convert pictures of another range to it.
///
/// Owns: the graph. Not copyable. Threads: one at a time.
/// Errors: std::runtime_error that names the step, without a code of FFmpeg. A description that cannot be
/// built keeps failing, then with "Picture filtering failed", until another description is set or a picture
/// of another shape comes. After a shortage of memory, and after a frame that failed inside the graph, the
/// next frame builds the graph again, and the frames that were in it are lost.
class VIDORRA_API FFmpegFilterWrapper {
public:
    /// No description: frames pass unchanged.
    FFmpegFilterWrapper() = default;
    ~FFmpegFilterWrapper();
    FFmpegFilterWrapper(const FFmpegFilterWrapper& other) = delete;
    FFmpegFilterWrapper& operator=(const FFmpegFilterWrapper& other) = delete;

    /// Sets the description; an empty one means none. Releases the graph, with the frames in it, unless the
    /// description is the present one.
    void setFilterSpec(std::string spec);

    /// The filtered frame. Its time stamp is the graph's, in the base of the input's stamp, and null if that
    /// is null; flags, metadata, side data and position are not passed on. The result is empty, with a
    /// meaningless time stamp, when the graph needs more frames. Frames that are still in the graph at the
    /// end are lost. Without a description, and for an empty frame, the result is a complete copy of the
    /// frame. The pixels of `frame` itself become private.
    ///
    /// Filters see stamps in microseconds under a time base of one second. The stamps of a filter that
    /// changes the time base, such as "yadif" and "aresample", are taken for microseconds as well: those of
    /// "yadif" are doubled; "yadif,settb=1" corrects this.
    ///
    /// One frame goes in and at most one comes out. Filters that make more frames, such as "yadif=1", fall
    /// further behind with each one. Filters that count in seconds take a frame's 40000 microseconds for as
    /// many seconds, and "fps" fills these with frames until there is no memory.
    [[nodiscard]] VideoFrame processVideoFrame(VideoFrame& frame);

    /// The same for a picture without a time. `picture` itself stays unchanged.
    [[nodiscard]] Picture processPicture(Picture& picture);

    /// The same for samples. Samples of another kind do not rebuild the graph; they fail.
    [[nodiscard]] AudioFrame processAudioFrame(AudioFrame& frame);
    [[nodiscard]] AudioBuffer processAudioBuffer(AudioBuffer& buffer);

    /// Build the graph for such input, as the first call of a process operation does. Do nothing without a
    /// description.
    void initializeVideo(const Picture& picture);
    void initializeAudio(const AudioBuffer& buffer);

    /// The part that both have in common, with the arguments of the filter "buffer" or "abuffer".
    void initializeInternal(const std::string& sourceArguments, AVMediaType type);

    /// Replaces the present graph with an empty one.
    void createGraph();
    void destroyGraph() noexcept;

private:
    void build(const std::string& sourceArguments, AVMediaType type, AVColorRange range);
    AvPtr<AVFrame> pass(AvPtr<AVFrame> input);

    const AVFilter* mBufferSource = nullptr;
    const AVFilter* mBufferSink = nullptr;
    // Both belong to the graph and are null until it is configured.
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
    // The type of the first graph that was configured; it never changes after that.
    AVMediaType mMediaType = AVMEDIA_TYPE_UNKNOWN;
};

}  // namespace vidorra
