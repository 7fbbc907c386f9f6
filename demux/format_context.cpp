#include "vidorra/demux/format_context.h"

#include <cstdlib>
#include <stdexcept>
#include <utility>

#include "core/error_text.h"
#include "core/log.h"
#include "core/shown_url.h"
#include "core/wrapping.h"
#include "demux/default_channels.h"
#include "demux/h264_key_packet.h"
#include "vdr_utils/bad_alloc.h"
#include "vidorra/core/dictionary.h"
#include "vidorra/core/timestamp.h"
#include "vidorra/demux/audio_decoder.h"
#include "vidorra/demux/video_decoder.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace vidorra {
namespace {

constexpr AVRational kMicroseconds = {1, 1000000};

// A demuxer of FFmpeg builds for devices, which sets the key flags of its packets itself.
constexpr const char* kRawPacketFormat = "rawpacket";

void setDefaultChannelMasks(const AVFormatContext& context) {
    for (unsigned i = 0; i < context.nb_streams; ++i) {
        AVCodecParameters& parameters = *context.streams[i]->codecpar;
        if (parameters.codec_type == AVMEDIA_TYPE_AUDIO) {
            setDefaultChannelMask(parameters);
        }
    }
}

}  // namespace

FormatContext::FormatContext() : mInterrupted(std::make_unique<std::atomic<bool>>(false)) {}

// Deliberate: not noexcept, since the moved-from source stays usable and so needs its own interrupt flag.
// NOLINTNEXTLINE(performance-noexcept-move-constructor)
FormatContext::FormatContext(FormatContext&& other) : FormatContext() {
    *this = std::move(other);
}

FormatContext& FormatContext::operator=(FormatContext&& other) noexcept {
    if (this != &other) {
        close();
        mUrl = std::exchange(other.mUrl, {});
        mFormatContext = std::exchange(other.mFormatContext, nullptr);
        mTimeOrigin = std::exchange(other.mTimeOrigin, 0);
        std::swap(mInterrupted, other.mInterrupted);
        mPacketsRead = std::exchange(other.mPacketsRead, 0);
        mRawPacket = std::exchange(other.mRawPacket, false);
        mEof = std::exchange(other.mEof, false);
        mInterruptEnabled = std::exchange(other.mInterruptEnabled, false);
        mDecoders = std::exchange(other.mDecoders, {});
        mRefusedSounds = std::exchange(other.mRefusedSounds, {});
    }
    return *this;
}

FormatContext::~FormatContext() {
    close();
}

void FormatContext::setUrl(const std::string& url) {
    mUrl = url;
}

void FormatContext::setInterruptCallback() {
    mInterruptEnabled = true;
}

bool FormatContext::open(const std::string& format, bool findStreamInfo,
                         std::chrono::microseconds analyzeDuration) {
    close();
    mFormatContext = avformat_alloc_context();
    if (mFormatContext == nullptr) {
        throw std::bad_alloc();
    }
    // Const in later FFmpeg versions.
    auto* inputFormat = format.empty() ? nullptr : av_find_input_format(format.c_str());
    if (!format.empty() && inputFormat == nullptr) {
        logFormatted(kLogWarning, {},
                     "FormatContext::open(): FFmpeg has no demuxer \"{}\" (\"ffmpeg -demuxers\" lists them), "
                     "the format of {} is detected",
                     format, shownUrl(mUrl));
    }
    mInterrupted->store(false);
    if (mInterruptEnabled) {
        mFormatContext->interrupt_callback = {interrupt_cb, mInterrupted.get()};
    }
    Dictionary options;
    av_dict_set_int(options.address(), "analyzeduration", analyzeDuration.count(), AV_DICT_APPEND);
    if (options.get() == nullptr) {
        throw vx::vdr::utils::BadAlloc("cannot allocate fmtParamsPtr");
    }
    // FFmpeg frees the context when it fails.
    const AvRes opened = avformat_open_input(&mFormatContext, mUrl.c_str(), inputFormat, options.address());
    if (!opened.ok) {
        throw std::runtime_error(fmt::format("can't open input file {} ({})", shownUrl(mUrl), opened));
    }
    if (findStreamInfo) {
        const AvRes found = avformat_find_stream_info(mFormatContext, nullptr);
        if (!found.ok) {
            throw std::runtime_error(fmt::format("can't find stream info of {} ({})", shownUrl(mUrl), found));
        }
    }
    setDefaultChannelMasks(*mFormatContext);
    mRawPacket = std::string(mFormatContext->iformat->name) == kRawPacketFormat;
    readTimeOrigin();
    logger::log(kLogSource) << shownUrl(mUrl) << " opened, time origin " << mTimeOrigin;
    mPacketsRead = 0;
    mEof = false;
    return true;
}

void FormatContext::readTimeOrigin() {
    const std::int64_t realtime = mFormatContext->start_time_realtime;
    if (realtime != 0 && realtime != AV_NOPTS_VALUE) {
        mTimeOrigin = realtime;
        return;
    }
    const AVDictionaryEntry* entry = av_dict_get(mFormatContext->metadata, "timeorigin", nullptr, 0);
    if (entry != nullptr) {
        mTimeOrigin = std::strtoll(entry->value, nullptr, 10);
    }
}

void FormatContext::close() {
    if (mFormatContext == nullptr) {
        return;
    }
    mDecoders.clear();
    mRefusedSounds.clear();
    avformat_close_input(&mFormatContext);
    try {
        logger::log(kLogSource) << shownUrl(mUrl) << " closed, " << mPacketsRead << " packets read";
    } catch (...) {
        // There is no memory for the line. The destructor and the move also call this and must not throw.
    }
}

void FormatContext::interrupt() noexcept {
    mInterrupted->store(true);
}

int FormatContext::interrupt_cb(void* opaque) {
    return opaque == nullptr || static_cast<const std::atomic<bool>*>(opaque)->load() ? 1 : 0;
}

unsigned FormatContext::tracksNumber() const noexcept {
    return mFormatContext != nullptr ? mFormatContext->nb_streams : 0;
}

AVStream* FormatContext::trackAtIndex(unsigned index) const noexcept {
    return mFormatContext->streams[index];
}

Packet FormatContext::readPacket() {
    if (mFormatContext == nullptr) {
        throw std::logic_error("FormatContext::readPacket(): the source is not opened");
    }
    const AvPtr<AVPacket> handle = makeAvPtr<AVPacket>();
    if (!handle) {
        throw std::bad_alloc();
    }
    const int read = av_read_frame(mFormatContext, handle.get());
    if (read == AvError::Eof.code()) {
        mEof = true;
        return {};
    }
    if (read != 0) {
        throw std::runtime_error(errorText(read));
    }
    Packet packet(handle);
    ++mPacketsRead;

    const AVRational timebase = mFormatContext->streams[packet.stream_index]->time_base;
    for (std::int64_t* time : {&packet.pts, &packet.dts}) {
        if (*time != AV_NOPTS_VALUE) {
            *time = av_rescale_q(*time, timebase, kMicroseconds);
        }
        // FFmpeg turns a time that is too large for microseconds into an unset one.
        if (*time != AV_NOPTS_VALUE) {
            *time = wrappingAdd(*time, mTimeOrigin);
        }
    }
    if (packet.duration != 0) {
        packet.duration = av_rescale_q(packet.duration, timebase, kMicroseconds);
    }
    if (packet.pts == AV_NOPTS_VALUE) {
        packet.pts = packet.dts;
    } else if (packet.dts == AV_NOPTS_VALUE) {
        packet.dts = packet.pts;
    }
    if (!mRawPacket) {
        setKeyFrameFlag(packet);
    }
    return packet;
}

void FormatContext::setKeyFrameFlag(Packet& packet) const {
    if (packet.stream_index < 0 || static_cast<unsigned>(packet.stream_index) >= tracksNumber()) {
        return;
    }
    const AVCodecParameters& parameters = *mFormatContext->streams[packet.stream_index]->codecpar;
    if (parameters.codec_type != AVMEDIA_TYPE_VIDEO) {
        return;
    }
    const bool key = parameters.codec_id != AV_CODEC_ID_H264 ||
                     (packet.size > 0 && isH264KeyPacket(packet.data, static_cast<std::size_t>(packet.size)));
    packet.setFlag(key ? Packet::KeyFrame::Yes : Packet::KeyFrame::No);
}

std::unique_ptr<DecoderBase>& FormatContext::getCodecContext(unsigned streamIndex) {
    const auto found = mDecoders.find(static_cast<int>(streamIndex));
    // Deliberate: a decoder that is given up after a lack of memory is replaced, since it would always fail.
    if (found != mDecoders.end() && !(found->second && found->second->isGivenUp())) {
        return found->second;
    }
    if (mFormatContext == nullptr) {
        throw std::logic_error("FormatContext::getCodecContext(): the source is not opened");
    }
    if (streamIndex >= mFormatContext->nb_streams) {
        throw std::out_of_range("Index in getCodecContext");
    }
    // A null decoder is stored too, so that a stream that failed once is not tried again.
    return mDecoders[static_cast<int>(streamIndex)] = makeDecoder(*mFormatContext->streams[streamIndex]);
}

std::unique_ptr<DecoderBase> FormatContext::makeDecoder(const AVStream& stream) const {
    const AVCodecParameters& parameters = *stream.codecpar;
    try {
        std::unique_ptr<DecoderBase> decoder;
        std::optional<DecoderBase::ChosenCodec> chosen;
        if (parameters.codec_type == AVMEDIA_TYPE_VIDEO) {
            chosen = VideoDecoder::chooseCodec(parameters, VideoDecoder::Acceleration::None);
            decoder = std::make_unique<VideoDecoder>();
        } else if (parameters.codec_type == AVMEDIA_TYPE_AUDIO) {
            AudioDecoder::validateCodecParams(parameters);
            decoder = std::make_unique<AudioDecoder>();
        } else {
            return nullptr;
        }
        Dictionary options = decoder->prepareCodec(std::move(chosen), parameters);
        // One thread for each stream: neither frames nor slices in parallel.
        av_dict_set(options.address(), "thread_type", "0", 0);
        decoder->openCodec(options);
        return decoder;
    } catch (const FFmpegError& error) {
        if (error.error() == AvError::DecoderNotFound) {
            logFormatted(kLogError, {}, "Codec {} not found", parameters.codec_id);
        } else {
            logFormatted(kLogError, {}, "Could not open codec {}: {}", parameters.codec_id,
                         error.error().toString());
        }
        return nullptr;
    }
}

}  // namespace vidorra
