#include "ffmpeg/channels.h"

#include <array>
#include <cstddef>
#include <new>

#include "ffmpeg/versions.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavfilter/avfilter.h>
#include <libavutil/bprint.h>
#include <libavutil/channel_layout.h>
#include <libavutil/frame.h>
}

// While the fields of both the old and the new channel layout exist, both are set: callers may use either.
#if HAVE_CHANNEL_MASK_FIELD
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
#endif

namespace vidorra::ffmpeg_ext {
namespace {

// Streams, codecs, frames and links have the same fields.
template <class T>
std::uint64_t maskOf(const T& object) {
#if HAVE_CH_LAYOUT
    if (object.ch_layout.order == AV_CHANNEL_ORDER_NATIVE) {
        return object.ch_layout.u.mask;
    }
#endif
#if HAVE_CHANNEL_MASK_FIELD
    return object.channel_layout;
#else
    return 0;
#endif
}

template <class T>
int countOf(const T& object) {
#if HAVE_CH_LAYOUT
    if (object.ch_layout.nb_channels > 0) {
        return object.ch_layout.nb_channels;
    }
#endif
#if HAVE_CHANNEL_MASK_FIELD
    return object.channels > 0 ? object.channels : __builtin_popcountll(object.channel_layout);
#else
    return 0;
#endif
}

template <class T>
void setMaskOf(T& object, std::uint64_t mask) {
    if (mask == 0) {
        return;
    }
#if HAVE_CH_LAYOUT
    av_channel_layout_uninit(&object.ch_layout);
    av_channel_layout_from_mask(&object.ch_layout, mask);
#endif
#if HAVE_CHANNEL_MASK_FIELD
    object.channel_layout = mask;
    object.channels = __builtin_popcountll(mask);
#endif
}

}  // namespace

std::uint64_t channelMask(const AVCodecParameters& parameters) {
    return maskOf(parameters);
}

std::uint64_t channelMask(const AVCodecContext& context) {
    return maskOf(context);
}

int channelCount(const AVFrame& frame) {
    return countOf(frame);
}

int channelCount(const AVCodecContext& context) {
    return countOf(context);
}

std::uint64_t channelMask(const AVFrame& frame) {
    return maskOf(frame);
}

std::uint64_t channelMask(const AVFilterLink& link) {
    return maskOf(link);
}

int channelCount(const AVCodecParameters& parameters) {
    return countOf(parameters);
}

void setChannelMask(AVCodecParameters& parameters, std::uint64_t mask) {
    setMaskOf(parameters, mask);
}

void setChannelMask(AVCodecContext& context, std::uint64_t mask) {
    setMaskOf(context, mask);
}

void setChannelMask(AVFrame& frame, std::uint64_t mask) {
    setMaskOf(frame, mask);
}

void setChannelCount(AVCodecContext& context, int count) {
#if HAVE_CH_LAYOUT
    av_channel_layout_uninit(&context.ch_layout);
    context.ch_layout.order = AV_CHANNEL_ORDER_UNSPEC;
    context.ch_layout.nb_channels = count;
#endif
#if HAVE_CHANNEL_MASK_FIELD
    context.channel_layout = 0;
    context.channels = count;
#endif
}

bool sameChannels(const AVCodecParameters& a, const AVCodecParameters& b) {
    return maskOf(a) == maskOf(b) && countOf(a) == countOf(b);
}

std::string describeChannelMask(std::uint64_t mask) {
    if (mask == 0) {
        return "0 channels";
    }
#if HAVE_CH_LAYOUT
    AVChannelLayout layout{};
    std::array<char, 1024> text{};
    if (av_channel_layout_from_mask(&layout, mask) >= 0) {
        av_channel_layout_describe(&layout, text.data(), text.size());
    }
    return text.data();
#else
    AVBPrint text;
    av_bprint_init(&text, 0, AV_BPRINT_SIZE_UNLIMITED);
    av_bprint_channel_layout(&text, __builtin_popcountll(mask), mask);
    std::string result = text.str != nullptr ? text.str : "";
    av_bprint_finalize(&text, nullptr);
    return result;
#endif
}

std::uint64_t defaultChannelMask(int channels) {
    // Above eight channels FFmpeg's own table differs between versions.
    constexpr std::array<std::uint64_t, 9> kMasks = {0, 0x4, 0x3, 0xb, 0x107, 0x37, 0x3f, 0x70f, 0x63f};
    constexpr std::uint64_t kHexadecagonal = 0x18003f737;
    if (channels == 16) {
        return kHexadecagonal;
    }
    return channels >= 0 && channels < static_cast<int>(kMasks.size())
               ? kMasks[static_cast<std::size_t>(channels)]
               : 0;
}

std::uint64_t channelMaskFromName(const std::string& name) {
#if HAVE_CH_LAYOUT
    AVChannelLayout layout{};
    const int res = av_channel_layout_from_string(&layout, name.c_str());
    if (res == AVERROR(ENOMEM)) {
        throw std::bad_alloc();
    }
    if (res < 0) {
        return 0;
    }
    const std::uint64_t mask = layout.order == AV_CHANNEL_ORDER_NATIVE ? layout.u.mask : 0;
    av_channel_layout_uninit(&layout);
    return mask;
#else
    return av_get_channel_layout(name.c_str());
#endif
}

}  // namespace vidorra::ffmpeg_ext
