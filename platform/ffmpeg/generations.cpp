#include "platform/ffmpeg/generations.h"

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "platform/ffmpeg/filters.h"
#include "platform/ffmpeg/pixel_formats.h"
#include "platform/ffmpeg/resampling.h"
#include "platform/ffmpeg/scaling.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavfilter/avfilter.h>
#include <libavutil/avutil.h>
#include <libavutil/bprint.h>
#include <libavutil/channel_layout.h>
#include <libavutil/dict.h>
#include <libavutil/frame.h>
#include <libavutil/mem.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
#include <libswscale/swscale.h>
}

// One line for each thing that came or went with a version.
#define HAVE_CH_LAYOUT (LIBAVUTIL_VERSION_INT >= AV_VERSION_INT(57, 24, 100))
#define HAVE_FRAME_DURATION (LIBAVUTIL_VERSION_INT >= AV_VERSION_INT(57, 30, 100))
#define HAVE_CHANNEL_MASK_FIELD (LIBAVUTIL_VERSION_MAJOR < 59)
#define HAVE_SUPPORTED_CONFIG (LIBAVCODEC_VERSION_INT >= AV_VERSION_INT(61, 13, 100))
#define MJPEG_LISTS_HALF_ITS_FORMATS (LIBAVCODEC_VERSION_MAJOR < 59)
#define HAVE_PACKET_TIME_BASE (LIBAVCODEC_VERSION_MAJOR >= 59)
#define DICTIONARY_SIZE_IS_INT (LIBAVCODEC_VERSION_MAJOR < 59)
#define HAVE_SOURCE_RANGE (LIBAVFILTER_VERSION_MAJOR >= 10)
#define SAMPLE_POINTERS_ARE_CONST (LIBSWRESAMPLE_VERSION_MAJOR >= 5)
#define SCALER_HANDS_ITS_RANGES_ON (LIBSWSCALE_VERSION_MAJOR >= 9)
#define DEVICE_BEFORE_INITIALISATION (LIBAVFILTER_VERSION_MAJOR >= 11)

// While both the fields of the old and of the new channel layout exist, both are kept in step: callers may
// use either.
#if HAVE_CHANNEL_MASK_FIELD
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
#endif

namespace vidorra::ffmpeg_ext {

namespace {

// Streams, codecs and frames have the same fields.
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

int channelCount(const AVFrame& frame) {
    return countOf(frame);
}

int channelCount(const AVCodecContext& context) {
    return countOf(context);
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

void setChannelMask(AVCodecContext& context, std::uint64_t mask) {
    setMaskOf(context, mask);
}

void setChannelMask(AVFrame& frame, std::uint64_t mask) {
    setMaskOf(frame, mask);
}

AVSampleFormat firstSampleFormat(const AVCodec& codec) {
#if HAVE_SUPPORTED_CONFIG
    const void* list = nullptr;
    int count = 0;
    const int res =
        avcodec_get_supported_config(nullptr, &codec, AV_CODEC_CONFIG_SAMPLE_FORMAT, 0, &list, &count);
    return res >= 0 && list != nullptr && count > 0 ? *static_cast<const AVSampleFormat*>(list)
                                                    : AV_SAMPLE_FMT_NONE;
#else
    return codec.sample_fmts != nullptr ? codec.sample_fmts[0] : AV_SAMPLE_FMT_NONE;
#endif
}

std::optional<std::vector<AVPixelFormat>> encoderPixelFormats(const AVCodec& encoder) {
    const AVPixelFormat* list = nullptr;
#if HAVE_SUPPORTED_CONFIG
    // Without a context: with one the list depends on its settings.
    const void* configs = nullptr;
    if (avcodec_get_supported_config(nullptr, &encoder, AV_CODEC_CONFIG_PIX_FORMAT, 0, &configs, nullptr) >=
        0) {
        list = static_cast<const AVPixelFormat*>(configs);
    }
#else
    list = encoder.pix_fmts;
#endif
    if (list == nullptr) {
        return std::nullopt;
    }
    std::vector<AVPixelFormat> formats;
    for (; *list != AV_PIX_FMT_NONE; ++list) {
        if (*list != kNva12 || hasNva12()) {
            formats.push_back(*list);
        }
    }
#if MJPEG_LISTS_HALF_ITS_FORMATS
    // It takes these as well, as later generations say.
    if (std::strcmp(encoder.name, "mjpeg") == 0) {
        formats.insert(formats.end(), {AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUV422P, AV_PIX_FMT_YUV444P});
    }
#endif
    return formats;
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

std::uint64_t channelMaskFromName(const std::string& name) {
#if HAVE_CH_LAYOUT
    AVChannelLayout layout{};
    if (av_channel_layout_from_string(&layout, name.c_str()) < 0) {
        return 0;
    }
    const std::uint64_t mask = layout.order == AV_CHANNEL_ORDER_NATIVE ? layout.u.mask : 0;
    av_channel_layout_uninit(&layout);
    return mask;
#else
    return av_get_channel_layout(name.c_str());
#endif
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

SwsContext* dropOtherScaler(SwsContext* context, const ScalerParameters& parameters) {
#if SCALER_HANDS_ITS_RANGES_ON
    if (context != nullptr &&
        (context->src_w != parameters.srcWidth || context->src_h != parameters.srcHeight ||
         context->src_format != parameters.srcFormat || context->dst_w != parameters.dstWidth ||
         context->dst_h != parameters.dstHeight || context->dst_format != parameters.dstFormat ||
         context->flags != static_cast<unsigned>(parameters.flags))) {
        sws_freeContext(context);
        return nullptr;
    }
#else
    static_cast<void>(parameters);
#endif
    return context;
}

std::string rangeOfSource(AVColorRange range) {
#if HAVE_SOURCE_RANGE
    return ":range=" + std::to_string(static_cast<int>(range));
#else
    static_cast<void>(range);
    return "";
#endif
}

int keepRangeInScaling(AVFilterGraph& graph, AVColorRange range) {
#if HAVE_SOURCE_RANGE
    static_cast<void>(graph);
    static_cast<void>(range);
    return 0;
#else
    // Without a request the filter gives limited range, whatever it is given.
    if (range != AVCOL_RANGE_JPEG) {
        return 0;
    }
    for (unsigned i = 0; i < graph.nb_filters; ++i) {
        AVFilterContext* filter = graph.filters[i];
        std::int64_t requested = 0;
        if (std::strcmp(filter->filter->name, "scale") != 0 ||
            av_opt_get_int(filter, "out_range", AV_OPT_SEARCH_CHILDREN, &requested) < 0 ||
            requested != AVCOL_RANGE_UNSPECIFIED) {
            continue;
        }
        const int res = av_opt_set_int(filter, "out_range", range, AV_OPT_SEARCH_CHILDREN);
        if (res < 0) {
            return res;
        }
    }
    // Those of the description stand here after "sws_flags=".
    std::string options = graph.scale_sws_opts != nullptr ? graph.scale_sws_opts : "";
    options += options.empty() ? "out_range=full" : ":out_range=full";
    av_freep(&graph.scale_sws_opts);
    graph.scale_sws_opts = av_strdup(options.c_str());
    return graph.scale_sws_opts != nullptr ? 0 : AVERROR(ENOMEM);
#endif
}

#if DEVICE_BEFORE_INITIALISATION

namespace {

// Parses as avfilter_graph_parse_ptr does, in steps, so that filters get their device before they are
// initialised, where they look for it.
class FilterParser {
public:
    FilterParser(AVFilterGraph& graph, AVBufferRef* device) : mGraph(graph), mDevice(device) {}
    FilterParser(const FilterParser&) = delete;
    FilterParser& operator=(const FilterParser&) = delete;
    ~FilterParser() {
        avfilter_inout_free(&mInputs);
        avfilter_inout_free(&mOutputs);
        avfilter_graph_segment_free(&mSegment);
    }

    ParsedFilters parse(const char* description, AVFilterInOut** inputs, AVFilterInOut** outputs) {
        int res = avfilter_graph_segment_parse(&mGraph, description, 0, &mSegment);
        if (res >= 0) {
            res = avfilter_graph_segment_create_filters(mSegment, 0);
        }
        if (res >= 0) {
            res = labelEnds();
        }
        if (res >= 0) {
            res = avfilter_graph_segment_apply_opts(mSegment, 0);
        }
        if (res >= 0) {
            res = giveDevice();
        }
        if (res >= 0) {
            res = initialise();
        }
        if (res >= 0) {
            res = avfilter_graph_segment_link(mSegment, 0, &mInputs, &mOutputs);
        }
        if (res >= 0) {
            res = linkAll(mInputs, outputs, [](AVFilterInOut& ours, AVFilterInOut& theirs) {
                return avfilter_link(theirs.filter_ctx, static_cast<unsigned>(theirs.pad_idx),
                                     ours.filter_ctx, static_cast<unsigned>(ours.pad_idx));
            });
        }
        if (res >= 0) {
            res = linkAll(mOutputs, inputs, [](AVFilterInOut& ours, AVFilterInOut& theirs) {
                return avfilter_link(ours.filter_ctx, static_cast<unsigned>(ours.pad_idx), theirs.filter_ctx,
                                     static_cast<unsigned>(theirs.pad_idx));
            });
        }
        return {res, mLacksDevice};
    }

private:
    // The first input is called "in" and the last output "out" when they have no label.
    int labelEnds() {
        if (mSegment->nb_chains == 0 || mSegment->chains[0]->nb_filters == 0) {
            return AVERROR(EINVAL);
        }
        AVFilterParams& first = *mSegment->chains[0]->filters[0];
        int res = 0;
        if (first.filter != nullptr && first.filter->nb_inputs == 1 && first.nb_inputs == 0) {
            res = label(first.inputs, first.nb_inputs, "in");
        }
        const AVFilterChain& chain = *mSegment->chains[mSegment->nb_chains - 1];
        AVFilterParams& last = *chain.filters[chain.nb_filters - 1];
        if (res >= 0 && last.filter != nullptr && last.filter->nb_outputs == 1 && last.nb_outputs == 0) {
            res = label(last.outputs, last.nb_outputs, "out");
        }
        return res;
    }

    static int label(AVFilterPadParams**& pads, unsigned& count, const char* name) {
        auto* pad = static_cast<AVFilterPadParams*>(av_mallocz(sizeof(AVFilterPadParams)));
        auto** list = static_cast<AVFilterPadParams**>(av_mallocz(sizeof(AVFilterPadParams*)));
        char* text = av_strdup(name);
        if (pad == nullptr || list == nullptr || text == nullptr) {
            av_free(pad);
            av_free(list);
            av_free(text);
            return AVERROR(ENOMEM);
        }
        pad->label = text;
        list[0] = pad;
        pads = list;
        count = 1;
        return 0;
    }

    int giveDevice() {
        for (unsigned i = 0; mDevice != nullptr && i < mGraph.nb_filters; ++i) {
            av_buffer_unref(&mGraph.filters[i]->hw_device_ctx);
            mGraph.filters[i]->hw_device_ctx = av_buffer_ref(mDevice);
            if (mGraph.filters[i]->hw_device_ctx == nullptr) {
                return AVERROR(ENOMEM);
            }
        }
        return 0;
    }

    // One by one, to know which one fails.
    int initialise() {
        for (std::size_t i = 0; i < mSegment->nb_chains; ++i) {
            const AVFilterChain& chain = *mSegment->chains[i];
            for (std::size_t j = 0; j < chain.nb_filters; ++j) {
                AVFilterContext* filter = chain.filters[j]->filter;
                const int res = avfilter_init_dict(filter, nullptr);
                if (res < 0) {
                    mLacksDevice =
                        mDevice == nullptr && (filter->filter->flags & AVFILTER_FLAG_HWDEVICE) != 0;
                    return res;
                }
            }
        }
        return 0;
    }

    // Links the open ends of the segment with those of the caller that have the same name, which are taken
    // out of the caller's list.
    template <class Link>
    static int linkAll(AVFilterInOut* ours, AVFilterInOut** theirs, Link link) {
        for (; ours != nullptr; ours = ours->next) {
            if (ours->name == nullptr) {
                return AVERROR(EINVAL);
            }
            AVFilterInOut** match = theirs;
            while (*match != nullptr && std::strcmp((*match)->name, ours->name) != 0) {
                match = &(*match)->next;
            }
            if (*match == nullptr) {
                continue;
            }
            const int res = link(*ours, **match);
            if (res < 0) {
                return res;
            }
            AVFilterInOut* done = *match;
            *match = done->next;
            done->next = nullptr;
            avfilter_inout_free(&done);
        }
        return 0;
    }

    AVFilterGraph& mGraph;
    AVBufferRef* mDevice;
    AVFilterGraphSegment* mSegment = nullptr;
    AVFilterInOut* mInputs = nullptr;
    AVFilterInOut* mOutputs = nullptr;
    bool mLacksDevice = false;
};

}  // namespace

ParsedFilters parseFilters(AVFilterGraph& graph, const char* description, AVFilterInOut** inputs,
                           AVFilterInOut** outputs, AVBufferRef* device) {
    return FilterParser(graph, device).parse(description, inputs, outputs);
}

#else

ParsedFilters parseFilters(AVFilterGraph& graph, const char* description, AVFilterInOut** inputs,
                           AVFilterInOut** outputs, AVBufferRef* device) {
    int res = avfilter_graph_parse_ptr(&graph, description, inputs, outputs, nullptr);
    for (unsigned i = 0; res >= 0 && device != nullptr && i < graph.nb_filters; ++i) {
        av_buffer_unref(&graph.filters[i]->hw_device_ctx);
        graph.filters[i]->hw_device_ctx = av_buffer_ref(device);
        if (graph.filters[i]->hw_device_ctx == nullptr) {
            res = AVERROR(ENOMEM);
        }
    }
    return {res, false};
}

#endif

}  // namespace vidorra::ffmpeg_ext
