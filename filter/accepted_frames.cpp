#include "filter/accepted_frames.h"

#include <cstring>

#include "ffmpeg/channels.h"
#include "ffmpeg/pixel_formats.h"

extern "C" {
#include <libavfilter/avfilter.h>
#include <libavutil/frame.h>
}

namespace vidorra {
namespace {

bool acceptsSamples(const AVFilterLink& link, const AVFrame& frame) {
    const std::uint64_t mask = ffmpeg_ext::channelMask(frame);
    const std::uint64_t expected = ffmpeg_ext::channelMask(link);
    // Without a mask the channels count as those of the source.
    return frame.nb_samples > 0 && frame.format == link.format && frame.sample_rate == link.sample_rate &&
           (mask != 0 ? mask == expected : ffmpeg_ext::channelCount(frame) == __builtin_popcountll(expected));
}

}  // namespace

bool accepts(const AVFilterContext& source, const AVFrame& frame) {
    const AVFilterLink* link = source.outputs[0];
    if (link->type != AVMEDIA_TYPE_VIDEO) {
        return acceptsSamples(*link, frame);
    }
    if (frame.width == link->w && frame.height == link->h && frame.format == link->format) {
        return true;
    }
    // The only filter that adapts itself.
    const bool scales = link->dst != nullptr && std::strcmp(link->dst->filter->name, "scale") == 0;
    return scales && frame.format != ffmpeg_ext::kNva12 && frame.width > 0 && frame.height > 0;
}

}  // namespace vidorra
