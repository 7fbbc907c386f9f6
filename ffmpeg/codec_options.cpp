#include "ffmpeg/codec_options.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "ffmpeg/channels.h"
#include "ffmpeg/versions.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/channel_layout.h>
#include <libavutil/error.h>
#include <libavutil/opt.h>
}

// While the fields of both the old and the new channel layout exist, both are set: callers may use either.
#if HAVE_CHANNEL_MASK_FIELD
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
#endif

namespace vidorra::ffmpeg_ext {
namespace {

// The numbers of channel options, read by FFmpeg's own parser, which accepts expressions and gives the usual
// errors.
struct ChannelOptions {
    const AVClass* avClass;
    int count;
    std::uint64_t mask;
};

int readChannelOption(ChannelOptions& options, const char* name, const char* value) {
    static const std::array<AVOption, 3> kOptions = [] {
        std::array<AVOption, 3> table{};
        table[0].name = "ac";
        table[0].offset = offsetof(ChannelOptions, count);
        table[0].type = AV_OPT_TYPE_INT;
        table[0].max = std::numeric_limits<int>::max();
        table[1].name = "channel_layout";
        table[1].offset = offsetof(ChannelOptions, mask);
        table[1].type = AV_OPT_TYPE_UINT64;
        table[1].max = static_cast<double>(std::numeric_limits<std::uint64_t>::max());
        return table;
    }();
    static const AVClass kClass = [] {
        AVClass made{};
        made.class_name = "channels";
        made.item_name = [](void*) { return "channels"; };
        made.option = kOptions.data();
        made.version = kAvutilVersion;
        return made;
    }();
    options = ChannelOptions{&kClass, 0, 0};
    return av_opt_set(&options, name, value, 0);
}

int applyCount(AVCodecContext& context, const char* value) {
    ChannelOptions options;
    const int res = readChannelOption(options, "ac", value);
    const std::uint64_t mask = channelMask(context);
    if (res >= 0 && (mask == 0 || __builtin_popcountll(mask) != options.count)) {
        setChannelCount(context, options.count);
    }
    return res;
}

int applyMask(AVCodecContext& context, const char* value) {
    std::uint64_t mask = channelMaskFromName(value);
    if (mask == 0) {
        ChannelOptions options;
        const int res = readChannelOption(options, "channel_layout", value);
        if (res < 0) {
            return res;
        }
        mask = options.mask;
    }
    const int count = channelCount(context);
    if (mask == 0) {
        setChannelCount(context, count);
    } else if (channelMask(context) != 0 || count <= 0 || count == __builtin_popcountll(mask)) {
        setChannelMask(context, mask);
    }
    return 0;
}

int applyLayout(AVCodecContext& context, const char* value) {
#if HAVE_CH_LAYOUT
    AVChannelLayout layout{};
    const int res = av_channel_layout_from_string(&layout, value);
    if (res < 0) {
        return res;
    }
    // The layout may have a list of channels, which the context owns from now on.
    av_channel_layout_uninit(&context.ch_layout);
    context.ch_layout = layout;
#if HAVE_CHANNEL_MASK_FIELD
    context.channel_layout = layout.order == AV_CHANNEL_ORDER_NATIVE ? layout.u.mask : 0;
    context.channels = layout.nb_channels;
#endif
    return 0;
#else
    if (const std::uint64_t mask = channelMaskFromName(value)) {
        setChannelMask(context, mask);
        return 0;
    }
    // "6 channels" and "6C" are numbers without a mask.
    char* end = nullptr;
    errno = 0;
    const unsigned long long number = std::strtoull(value, &end, 0);
    const bool isCount = std::strcmp(end, "C") == 0 || std::strcmp(end, " channels") == 0;
    if (!isCount || errno != 0 || number == 0 ||
        number > static_cast<unsigned long long>(std::numeric_limits<int>::max())) {
        return AVERROR(EINVAL);
    }
    setChannelCount(context, static_cast<int>(number));
    return 0;
#endif
}

}  // namespace

int setCodecOption(AVCodecContext& context, const char* name, const char* value) {
    if (std::strcmp(name, "ac") == 0) {
        return applyCount(context, value);
    }
    if (std::strcmp(name, "channel_layout") == 0) {
        return applyMask(context, value);
    }
    if (std::strcmp(name, "ch_layout") == 0) {
        return applyLayout(context, value);
    }
    return av_opt_set(&context, name, value, AV_OPT_SEARCH_CHILDREN);
}

}  // namespace vidorra::ffmpeg_ext
