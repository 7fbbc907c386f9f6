// The operations of FormatContext that control an open source, and the reuse of its decoders.

#include <cstring>
#include <stdexcept>

#include "core/error_text.h"
#include "core/log.h"
#include "core/shown_url.h"
#include "core/wrapping.h"
#include "ffmpeg/channels.h"
#include "vidorra/core/timestamp.h"
#include "vidorra/demux/format_context.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace vidorra {
namespace {

bool sameVideo(const AVCodecParameters& a, const AVCodecParameters& b) {
    return a.width == b.width && a.height == b.height &&
           a.sample_aspect_ratio.num == b.sample_aspect_ratio.num &&
           a.sample_aspect_ratio.den == b.sample_aspect_ratio.den && a.field_order == b.field_order &&
           a.color_range == b.color_range && a.color_primaries == b.color_primaries &&
           a.color_trc == b.color_trc && a.color_space == b.color_space &&
           a.chroma_location == b.chroma_location && a.video_delay == b.video_delay;
}

bool sameAudio(const AVCodecParameters& a, const AVCodecParameters& b) {
    return ffmpeg_ext::sameChannels(a, b) && a.sample_rate == b.sample_rate &&
           a.block_align == b.block_align && a.frame_size == b.frame_size &&
           a.initial_padding == b.initial_padding && a.trailing_padding == b.trailing_padding &&
           a.seek_preroll == b.seek_preroll;
}

bool sameExtradata(const AVCodecParameters& a, const AVCodecParameters& b) {
    if (a.extradata_size != b.extradata_size || (a.extradata == nullptr) != (b.extradata == nullptr)) {
        return false;
    }
    return a.extradata == nullptr ||
           std::memcmp(a.extradata, b.extradata, static_cast<std::size_t>(a.extradata_size)) == 0;
}

// Whether a decoder of one stream can continue with the other. Deliberate: the bit rate is ignored.
bool sameParameters(const AVCodecParameters& a, const AVCodecParameters& b) {
    if (a.codec_type != b.codec_type || a.codec_id != b.codec_id || a.codec_tag != b.codec_tag ||
        a.format != b.format || a.bits_per_coded_sample != b.bits_per_coded_sample ||
        a.bits_per_raw_sample != b.bits_per_raw_sample || a.profile != b.profile || a.level != b.level) {
        return false;
    }
    if (a.codec_type == AVMEDIA_TYPE_VIDEO && !sameVideo(a, b)) {
        return false;
    }
    if (a.codec_type == AVMEDIA_TYPE_AUDIO && !sameAudio(a, b)) {
        return false;
    }
    return sameExtradata(a, b);
}

}  // namespace

void FormatContext::moveDecodersFromContext(FormatContext* other) {
    if (other == this || tracksNumber() != other->tracksNumber()) {
        return;
    }
    for (auto& [index, decoder] : other->mDecoders) {
        const auto stream = static_cast<unsigned>(index);
        const bool same = stream < tracksNumber() && sameParameters(*trackAtIndex(stream)->codecpar,
                                                                    *other->trackAtIndex(stream)->codecpar);
        if (same) {
            mDecoders[index] = std::move(decoder);
            logFormatted(kLogSource, {}, "Reused decoder for stream {} from {} in {} decoding", index,
                         shownUrl(other->mUrl), shownUrl(mUrl));
        } else {
            logFormatted(
                kLogSource, {},
                "Could not reuse decoder for stream {} from {} in {} decoding, codec parameters differ",
                index, shownUrl(other->mUrl), shownUrl(mUrl));
        }
    }
    for (const auto& entry : mDecoders) {
        const auto left = other->mDecoders.find(entry.first);
        if (left != other->mDecoders.end()) {
            left->second.reset();
        }
    }
}

void FormatContext::discardTrackAtIndex(unsigned index, int discard) {
    if (mFormatContext == nullptr) {
        throw std::runtime_error("Can not discard track on stream that was not opened");
    }
    if (index >= mFormatContext->nb_streams) {
        throw std::out_of_range("Index in discardTrackAtIndex");
    }
    mFormatContext->streams[index]->discard = static_cast<AVDiscard>(discard);
}

void FormatContext::seek(Timestamp to) {
    if (mFormatContext == nullptr) {
        return;
    }
    const std::int64_t target = wrappingSubtract(to.rescale(Timebase()).value, mTimeOrigin);
    const int res = av_seek_frame(mFormatContext, -1, target, AVSEEK_FLAG_BACKWARD);
    if (res < 0) {
        throw std::runtime_error(errorText(res));
    }
    mEof = false;
}

void FormatContext::drainDecoders() {
    for (const auto& [index, decoder] : mDecoders) {
        if (decoder && !decoder->drain().ok) {
            logger::warning("drainDecoders(): failed to drain decoder for stream %d", index);
        }
    }
}

std::string FormatContext::metadata(const std::string& key) const {
    const AVDictionaryEntry* entry =
        mFormatContext != nullptr ? av_dict_get(mFormatContext->metadata, key.c_str(), nullptr, 0) : nullptr;
    return entry != nullptr && entry->value != nullptr ? entry->value : "";
}

bool FormatContext::isStreamed() const noexcept {
    // Some demuxers open their files themselves and have no stream of bytes.
    return mFormatContext != nullptr && mFormatContext->pb != nullptr && mFormatContext->pb->seekable == 0;
}

}  // namespace vidorra
