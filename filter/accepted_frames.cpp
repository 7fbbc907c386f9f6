#include "filter/accepted_frames.h"

#include <cstring>

#include "ffmpeg/pixel_formats.h"

extern "C" {
#include <libavfilter/avfilter.h>
#include <libavutil/frame.h>
}

namespace vidorra {

bool accepts(const AVFilterContext& source, const AVFrame& frame) {
    const AVFilterLink* link = source.outputs[0];
    if (link->type != AVMEDIA_TYPE_VIDEO) {
        return true;
    }
    if (frame.width == link->w && frame.height == link->h && frame.format == link->format) {
        return true;
    }
    // The one filter that adapts itself.
    const bool scales = link->dst != nullptr && std::strcmp(link->dst->filter->name, "scale") == 0;
    return scales && frame.format != ffmpeg_ext::kNva12 && frame.width > 0 && frame.height > 0;
}

}  // namespace vidorra
