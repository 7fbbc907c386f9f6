#include "ffmpeg/filter_parsing.h"

#include <cstddef>
#include <cstring>

#include "ffmpeg/owners.h"
#include "ffmpeg/versions.h"

extern "C" {
#include <libavfilter/avfilter.h>
#include <libavutil/buffer.h>
#include <libavutil/error.h>
#include <libavutil/mem.h>
}

namespace vidorra::ffmpeg_ext {

namespace {

// Offers a device, which may be null, to every filter of a graph.
int giveDevice(AVFilterGraph& graph, AVBufferRef* device) {
    for (unsigned i = 0; device != nullptr && i < graph.nb_filters; ++i) {
        AVBufferRef*& reference = graph.filters[i]->hw_device_ctx;
        release(reference);
        reference = av_buffer_ref(device);
        if (reference == nullptr) {
            return AVERROR(ENOMEM);
        }
    }
    return 0;
}

}  // namespace

#if DEVICE_BEFORE_INITIALISATION

namespace {

// Parses as avfilter_graph_parse_ptr does, but in steps, so that filters have their device when they are
// initialised and look for it.
class FilterParser {
public:
    FilterParser(AVFilterGraph& graph, AVBufferRef* device) : mGraph(graph), mDevice(device) {}
    FilterParser(const FilterParser&) = delete;
    FilterParser& operator=(const FilterParser&) = delete;
    ~FilterParser() {
        release(mInputs);
        release(mOutputs);
        release(mSegment);
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
            res = giveDevice(mGraph, mDevice);
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
        Owner<void> pad = adoptMemory(av_mallocz(sizeof(AVFilterPadParams)));
        Owner<void> list = adoptMemory(av_mallocz(sizeof(AVFilterPadParams*)));
        Owner<void> text = adoptMemory(av_strdup(name));
        if (pad == nullptr || list == nullptr || text == nullptr) {
            return AVERROR(ENOMEM);
        }
        pads = static_cast<AVFilterPadParams**>(list.release());
        pads[0] = static_cast<AVFilterPadParams*>(pad.release());
        pads[0]->label = static_cast<char*>(text.release());
        count = 1;
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

    // Links the open ends of the segment with the caller's ends of the same name, which are removed from the
    // caller's list.
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
            release(done);
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
    const int res = avfilter_graph_parse_ptr(&graph, description, inputs, outputs, nullptr);
    return {res < 0 ? res : giveDevice(graph, device), false};
}

#endif

}  // namespace vidorra::ffmpeg_ext
