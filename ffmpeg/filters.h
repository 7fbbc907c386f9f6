#pragma once

#include <cstdint>
#include <string>

extern "C" {
#include <libavutil/pixfmt.h>
#include <libavutil/samplefmt.h>
}

struct AVFilterContext;
struct AVFilterGraph;

/// What building a filter graph needs to come out the same on every generation of FFmpeg.
namespace vidorra::ffmpeg_ext {

/// Arguments that declare the range of the pictures to the filter "buffer", with a colon in front; empty on
/// generations that cannot declare it. Those need keepRangeInScaling() instead.
std::string rangeOfSource(AVColorRange range);

/// Makes the filters "scale" of a graph, those of its description and those that the configuration is going
/// to insert, give pictures of this range, which is that of the pictures they are given, unless they were
/// asked for a range. To be called between parsing and configuration. Does nothing on generations that know
/// the range of the source. Gives 0 or a negative FFmpeg code.
int keepRangeInScaling(AVFilterGraph& graph, AVColorRange range);

/// Lets a sink take pictures of one format only: a filter stands in front of it, which `end` gets, to which
/// the description is to be linked instead. Gives 0 or a negative FFmpeg code.
int pinVideoSink(AVFilterGraph& graph, AVFilterContext& sink, AVPixelFormat format, AVFilterContext** end);

/// What pinAudioSink() could not pin.
enum class AudioPin { SampleFormat, ChannelLayout, SampleRate };

/// The same for samples. `failed` is set on a failure.
int pinAudioSink(AVFilterGraph& graph, AVFilterContext& sink, AVSampleFormat format, std::uint64_t layout,
                 int rate, AVFilterContext** end, AudioPin* failed);

/// Whether a description asks for a colour range: one of its filters, which have been parsed and not yet
/// configured, has an option for that set to something else than its default, or the options that it gives to
/// inserted scalers name one. Sources are ignored.
bool asksForRange(const AVFilterGraph& graph);

}  // namespace vidorra::ffmpeg_ext
