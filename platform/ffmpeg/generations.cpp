#include "platform/ffmpeg/generations.h"

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <limits>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/avutil.h>
#include <libavutil/bprint.h>
#include <libavutil/channel_layout.h>
#include <libavutil/dict.h>
#include <libavutil/frame.h>
#include <libavutil/mem.h>
#include <libavutil/opt.h>
}

// One line for each thing that came or went with a version.
#define HAVE_CH_LAYOUT (LIBAVUTIL_VERSION_INT >= AV_VERSION_INT(57, 24, 100))
#define HAVE_FRAME_DURATION (LIBAVUTIL_VERSION_INT >= AV_VERSION_INT(57, 30, 100))
#define HAVE_CHANNEL_MASK_FIELD (LIBAVUTIL_VERSION_MAJOR < 59)
#define HAVE_PACKET_TIME_BASE (LIBAVCODEC_VERSION_MAJOR >= 59)
#define DICTIONARY_SIZE_IS_INT (LIBAVCODEC_VERSION_MAJOR < 59)

// While both the fields of the old and of the new channel layout exist, both are kept in step: callers may
// use either.
#if HAVE_CHANNEL_MASK_FIELD
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
#endif

namespace vidorra::ffmpeg_ext {

namespace {

// Streams and frames have the same fields.
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

// How many there are, with the mask unknown.
void setCountOf(AVCodecContext& context, int count) {
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

// The numbers of channel options, read by FFmpeg's own reader, which takes expressions and has the usual
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
        made.version = LIBAVUTIL_VERSION_INT;
        return made;
    }();
    options = ChannelOptions{&kClass, 0, 0};
    return av_opt_set(&options, name, value, 0);
}

// The mask that a text names, also by a number; 0 for none.
std::uint64_t namedMask(const char* name) {
#if HAVE_CH_LAYOUT
    AVChannelLayout layout{};
    if (av_channel_layout_from_string(&layout, name) < 0) {
        return 0;
    }
    const std::uint64_t mask = layout.order == AV_CHANNEL_ORDER_NATIVE ? layout.u.mask : 0;
    av_channel_layout_uninit(&layout);
    return mask;
#else
    return av_get_channel_layout(name);
#endif
}

int setChannelCount(AVCodecContext& context, const char* value) {
    ChannelOptions options;
    const int res = readChannelOption(options, "ac", value);
    const std::uint64_t mask = maskOf(context);
    if (res >= 0 && (mask == 0 || __builtin_popcountll(mask) != options.count)) {
        setCountOf(context, options.count);
    }
    return res;
}

int setChannelMask(AVCodecContext& context, const char* value) {
    std::uint64_t mask = namedMask(value);
    if (mask == 0) {
        ChannelOptions options;
        const int res = readChannelOption(options, "channel_layout", value);
        if (res < 0) {
            return res;
        }
        mask = options.mask;
    }
    const int count = countOf(context);
    if (mask == 0) {
        setCountOf(context, count);
    } else if (maskOf(context) != 0 || count <= 0 || count == __builtin_popcountll(mask)) {
        setMaskOf(context, mask);
    }
    return 0;
}

int setChannelLayout(AVCodecContext& context, const char* value) {
#if HAVE_CH_LAYOUT
    AVChannelLayout layout{};
    const int res = av_channel_layout_from_string(&layout, value);
    if (res < 0) {
        return res;
    }
    // It may hold a list of channels, which the context owns from now on.
    av_channel_layout_uninit(&context.ch_layout);
    context.ch_layout = layout;
#if HAVE_CHANNEL_MASK_FIELD
    context.channel_layout = layout.order == AV_CHANNEL_ORDER_NATIVE ? layout.u.mask : 0;
    context.channels = layout.nb_channels;
#endif
    return 0;
#else
    if (const std::uint64_t mask = namedMask(value)) {
        setMaskOf(context, mask);
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
    setCountOf(context, static_cast<int>(number));
    return 0;
#endif
}

}  // namespace

int setCodecOption(AVCodecContext& context, const char* name, const char* value) {
    if (std::strcmp(name, "ac") == 0) {
        return setChannelCount(context, value);
    }
    if (std::strcmp(name, "channel_layout") == 0) {
        return setChannelMask(context, value);
    }
    if (std::strcmp(name, "ch_layout") == 0) {
        return setChannelLayout(context, value);
    }
    return av_opt_set(&context, name, value, AV_OPT_SEARCH_CHILDREN);
}

std::uint64_t channelMask(const AVCodecParameters& parameters) {
    return maskOf(parameters);
}

std::uint64_t channelMask(const AVCodecContext& context) {
    return maskOf(context);
}

int channelCount(const AVCodecContext& context) {
    return countOf(context);
}

void setChannelMask(AVCodecContext& context, std::uint64_t mask) {
    setMaskOf(context, mask);
}

std::uint64_t channelMask(const AVFrame& frame) {
    return maskOf(frame);
}

int channelCount(const AVCodecParameters& parameters) {
    return countOf(parameters);
}

void setChannelMask(AVCodecParameters& parameters, std::uint64_t mask) {
    setMaskOf(parameters, mask);
}

void setChannelMask(AVFrame& frame, std::uint64_t mask) {
    setMaskOf(frame, mask);
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

std::int64_t frameDuration(const AVFrame& frame) {
#if HAVE_FRAME_DURATION
    return frame.duration;
#else
    return frame.pkt_duration;
#endif
}

void setFrameDuration(AVFrame& frame, std::int64_t duration) {
#if HAVE_FRAME_DURATION
    frame.duration = duration;
#else
    frame.pkt_duration = duration;
#endif
}

std::uint64_t defaultChannelMask(int channels) {
    // FFmpeg's own table differs by generation above eight channels.
    constexpr std::array<std::uint64_t, 9> kMasks = {0, 0x4, 0x3, 0xb, 0x107, 0x37, 0x3f, 0x70f, 0x63f};
    constexpr std::uint64_t kHexadecagonal = 0x18003f737;
    if (channels == 16) {
        return kHexadecagonal;
    }
    return channels >= 0 && channels < static_cast<int>(kMasks.size())
               ? kMasks[static_cast<std::size_t>(channels)]
               : 0;
}

void resetPacket(AVPacket& packet) {
    packet = AVPacket{};
    packet.pts = AV_NOPTS_VALUE;
    packet.dts = AV_NOPTS_VALUE;
    packet.pos = -1;
#if HAVE_PACKET_TIME_BASE
    packet.time_base = AVRational{0, 1};
#endif
}

int packetStrings(const AVPacket& packet, AVDictionary** strings) {
    for (int i = 0; i < packet.side_data_elems; ++i) {
        const AVPacketSideData& entry = packet.side_data[i];
        if (entry.type == AV_PKT_DATA_STRINGS_METADATA) {
            return av_packet_unpack_dictionary(entry.data, entry.size, strings);
        }
    }
    return 0;
}

int setPacketStrings(AVPacket& packet, const AVDictionary* strings) {
#if DICTIONARY_SIZE_IS_INT
    int size = 0;
    std::uint8_t* data = av_packet_pack_dictionary(const_cast<AVDictionary*>(strings), &size);
#else
    std::size_t size = 0;
    std::uint8_t* data = av_packet_pack_dictionary(const_cast<AVDictionary*>(strings), &size);
#endif
    if (data == nullptr) {
        return AVERROR(ENOMEM);
    }
    const int res = av_packet_add_side_data(&packet, AV_PKT_DATA_STRINGS_METADATA, data, size);
    if (res < 0) {
        av_free(data);
        return res;
    }
    return 0;
}

}  // namespace vidorra::ffmpeg_ext
