#include "ffmpeg/resampling.h"

#include "ffmpeg/versions.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

namespace vidorra::ffmpeg_ext {

void setResamplerLayouts(SwrContext& context, std::uint64_t in, std::uint64_t out) {
#if HAVE_CH_LAYOUT
    const auto set = [&context](const char* name, std::uint64_t mask) {
        AVChannelLayout layout{};
        if (av_channel_layout_from_mask(&layout, mask) >= 0) {
            av_opt_set_chlayout(&context, name, &layout, 0);
        }
    };
    set("in_chlayout", in);
    set("out_chlayout", out);
#else
    av_opt_set_int(&context, "in_channel_layout", static_cast<std::int64_t>(in), 0);
    av_opt_set_int(&context, "in_channel_count", __builtin_popcountll(in), 0);
    av_opt_set_int(&context, "out_channel_layout", static_cast<std::int64_t>(out), 0);
    av_opt_set_int(&context, "out_channel_count", __builtin_popcountll(out), 0);
#endif
}

int convertSamples(SwrContext& context, std::uint8_t* const* out, int outCount, const std::uint8_t* const* in,
                   int inCount) {
#if SAMPLE_POINTERS_ARE_CONST
    return swr_convert(&context, out, outCount, in, inCount);
#else
    return swr_convert(&context, const_cast<std::uint8_t**>(out), outCount,
                       const_cast<const std::uint8_t**>(in), inCount);
#endif
}

}  // namespace vidorra::ffmpeg_ext
