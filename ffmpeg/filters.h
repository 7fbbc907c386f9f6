#pragma once

#include <cstdint>
#include <string>

extern "C" {
#include <libavutil/pixfmt.h>
#include <libavutil/samplefmt.h>
}

struct AVFilterContext;
struct AVFilterGraph;

/// Helpers that make filter graphs work the same with every FFmpeg version.
namespace vidorra::ffmpeg_ext {

/// Arguments that declare the range of the pictures to the filter "buffer", beginning with a colon; empty
/// with versions that cannot declare it. These need keepRangeInScaling() instead.
std::string rangeOfSource(AVColorRange range);

/// Makes the filters "scale" of a graph, both those of its description and those that the configuration will
/// insert, output pictures of this range, which must be the range of their input, unless they were asked for
/// a range. Call it between parsing and configuration. Does nothing with versions that know the range of the
/// source. Returns 0 or a negative FFmpeg code.
int keepRangeInScaling(AVFilterGraph& graph, AVColorRange range);

/// Lets a sink accept pictures of one format only: puts a filter before it and sets `end` to that filter, to
/// which the description must be linked instead. Returns 0 or a negative FFmpeg code.
int pinVideoSink(AVFilterGraph& graph, AVFilterContext& sink, AVPixelFormat format, AVFilterContext** end);

/// What pinAudioSink() could not pin.
enum class AudioPin { SampleFormat, ChannelLayout, SampleRate };

/// The same for samples. `failed` is set on a failure.
int pinAudioSink(AVFilterGraph& graph, AVFilterContext& sink, AVSampleFormat format, std::uint64_t layout,
                 int rate, AVFilterContext** end, AudioPin* failed);

/// Whether a description asks for a colour range: an option for that differs from its default in one of its
/// filters, which have been parsed but not configured, or its options for inserted scalers name a range.
/// Sources are ignored.
bool asksForRange(const AVFilterGraph& graph);

}  // namespace vidorra::ffmpeg_ext
