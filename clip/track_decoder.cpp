#include "clip/track_decoder.h"

#include <algorithm>
#include <stdexcept>
#include <thread>

#include "clip/clip_counts.h"
#include "core/log.h"
#include "vidorra/clip/clip_reader.h"
#include "vidorra/demux/audio_decoder.h"
#include "vidorra/demux/video_decoder.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace vidorra {
namespace {

// A decoder that only fails would be asked for ever.
constexpr int kMostErrorsInARow = 1000;

constexpr int kMostThreads = 16;
// Of smaller pictures there is not enough work for a thread.
constexpr std::int64_t kPixelsForAThread = 250000;

// Leaves out what the decoder still holds, which it would decode before it goes.
void forget(const DecoderBase& decoder) {
    avcodec_flush_buffers(const_cast<AVCodecContext*>(decoder.codecContext()));
}

}  // namespace

TrackDecoder::TrackDecoder(const AVStream& stream, const ClipOptions& options, ClipCounts& counts)
    : mStream(stream), mOptions(options), mCounts(counts), mDecoder(make()) {}

TrackDecoder::~TrackDecoder() {
    forget(*mDecoder);
}

bool TrackDecoder::isVideo() const noexcept {
    return mStream.codecpar->codec_type == AVMEDIA_TYPE_VIDEO;
}

std::unique_ptr<DecoderBase> TrackDecoder::make() {
    const std::string& name = isVideo() ? mOptions.videoDecoder : mOptions.audioDecoder;
    DecoderBase::ChosenCodec chosen;
    chosen.codec = name.empty() ? avcodec_find_decoder(mStream.codecpar->codec_id)
                                : avcodec_find_decoder_by_name(name.c_str());
    if (chosen.codec == nullptr && !name.empty()) {
        throw std::invalid_argument(fmt::format("there is no decoder \"{}\"", name));
    }
    for (const auto& [key, value] : mOptions.options) {
        av_dict_set(chosen.options.address(), key.c_str(), value.c_str(), 0);
    }
    if (chosen.codec != nullptr) {
        av_dict_set_int(chosen.options.address(), "threads", threadsFor(*chosen.codec), 0);
    }
    // Decoders bring the times of frames in line with the samples that they cut.
    av_dict_set(chosen.options.address(), "pkt_timebase",
                fmt::format("{}/{}", mStream.time_base.num, mStream.time_base.den).c_str(), 0);
    std::unique_ptr<DecoderBase> decoder;
    if (isVideo()) {
        decoder = std::make_unique<VideoDecoder>();
    } else {
        decoder = std::make_unique<AudioDecoder>();
    }
    const bool known = chosen.codec != nullptr;
    Dictionary options =
        decoder->prepareCodec(known ? std::optional(std::move(chosen)) : std::nullopt, *mStream.codecpar);
    decoder->openCodec(options);
    mUnknown.clear();
    const AVDictionaryEntry* entry = nullptr;
    while ((entry = av_dict_get(options.get(), "", entry, AV_DICT_IGNORE_SUFFIX)) != nullptr) {
        mUnknown.insert(entry->key);
    }
    return decoder;
}

int TrackDecoder::threadsFor(const AVCodec& codec) {
    const bool several = (codec.capabilities & (AV_CODEC_CAP_FRAME_THREADS | AV_CODEC_CAP_SLICE_THREADS |
                                                AV_CODEC_CAP_OTHER_THREADS)) != 0 &&
                         (mStream.disposition & AV_DISPOSITION_ATTACHED_PIC) == 0;
    if (!isVideo() || !several) {
        return 1;
    }
    if (mOptions.threads > 0) {
        return mOptions.threads;
    }
    const std::int64_t pixels = std::int64_t{mStream.codecpar->width} * mStream.codecpar->height;
    const auto wanted =
        static_cast<int>(std::min<std::int64_t>(1 + pixels / kPixelsForAThread, kMostThreads));
    mThreads = ThreadShare(wanted);
    return std::max(1, mThreads.count());
}

void TrackDecoder::send(const AVPacket* packet) {
    const AVPacket end{};
    const AvRes sent = mDecoder->send(packet != nullptr ? *packet : end);
    mErrorsInARow = 0;
    if (!sent.ok && sent.error != AvError::Eof) {
        countDamage(sent.error);
    }
}

AvPtr<AVFrame> TrackDecoder::receive() {
    for (;;) {
        tl::expected<AvPtr<AVFrame>, AvError> frame = mDecoder->receiveAvFrame();
        if (frame) {
            mErrorsInARow = 0;
            return std::move(*frame);
        }
        if (frame.error() == AvError::Again || frame.error() == AvError::Eof) {
            break;
        }
        countDamage(frame.error());
        if (++mErrorsInARow > kMostErrorsInARow) {
            break;
        }
    }
    return {nullptr, [](AVFrame*) {}};
}

void TrackDecoder::countDamage(AvError error) {
    ++mCounts.damagedPackets;
    // Once: a damaged file can have thousands.
    if (!mLogged) {
        logFormatted(kLogWarning, {}, "Could not decode a packet of track {} ({}): {}", mStream.index,
                     avcodec_get_name(mStream.codecpar->codec_id), error.toString());
        mLogged = true;
    }
}

void TrackDecoder::restart() {
    if (isVideo()) {
        forget(*mDecoder);
        return;
    }
    // Deliberate: sound decoders keep the state of noise generators, so the same packets would give other
    // samples.
    forget(*mDecoder);
    mDecoder = make();
}

}  // namespace vidorra
