#include "clip/clip_input.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <limits>
#include <new>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <thread>
#include <utility>

#include "clip/interruption.h"
#include "core/shown_url.h"
#include "io/byte_stream.h"
#include "vidorra/clip/clip_reader.h"
#include "vidorra/core/ffmpeg_error.h"
#include "vidorra/core/format.h"

extern "C" {
#include <libavformat/avformat.h>
}

namespace vidorra {
namespace {

// What a network source may open further, as playlists do. None of these reaches a local file.
constexpr std::array<std::string_view, 14> kNetwork = {"http",  "https", "httpproxy", "ftp",  "rtmp",
                                                       "rtmps", "rtp",   "srt",       "srtp", "tcp",
                                                       "tls",   "udp",   "crypto",    "data"};
// Carries its bytes itself, so it opens nothing.
constexpr const char* kNothingFurther = "data";

constexpr std::chrono::milliseconds kPause{1};

template <class List>
std::string joined(const List& names) {
    std::string text;
    for (const auto& name : names) {
        text += text.empty() ? "" : ",";
        text += name;
    }
    return text;
}

// The descriptor of a FIFO or of "pipe:", in which FFmpeg would wait without an end.
std::optional<int> openPipe(const std::string& url) {
    constexpr std::string_view kPipe = "pipe:";
    if (url.compare(0, kPipe.size(), kPipe) == 0) {
        return fcntl(std::atoi(url.c_str() + kPipe.size()), F_DUPFD_CLOEXEC, 0);
    }
    constexpr std::string_view kFile = "file:";
    const char* path = url.c_str() + (url.compare(0, kFile.size(), kFile) == 0 ? kFile.size() : 0);
    struct stat status {};
    if (stat(path, &status) != 0 || !S_ISFIFO(status.st_mode)) {
        return std::nullopt;
    }
    // Does not wait for somebody to write into it.
    return open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
}

// Whether a demuxer of FFmpeg takes the URL by its name alone and opens what it needs.
bool opensByItself(const std::string& url) {
    AVProbeData data{};
    data.filename = url.c_str();
    int score = AVPROBE_SCORE_RETRY;
    return av_probe_input_format2(&data, 0, &score) != nullptr;
}

std::optional<Ticks> startOf(const AVStream& stream) {
    const AVMediaType type = stream.codecpar->codec_type;
    if ((type != AVMEDIA_TYPE_AUDIO && type != AVMEDIA_TYPE_VIDEO) ||
        (stream.disposition & AV_DISPOSITION_ATTACHED_PIC) != 0) {
        return std::nullopt;
    }
    return ticksOf(stream.start_time, stream.time_base);
}

// Where the tracks start. Deliberate: never before 0, since what lies before it is priming, which decoders
// leave out.
Ticks startOf(const AVFormatContext& context) {
    std::optional<Ticks> first;
    for (unsigned i = 0; i < context.nb_streams; ++i) {
        const std::optional<Ticks> start = startOf(*context.streams[i]);
        if (start && (!first || *start < *first)) {
            first = start;
        }
    }
    return std::max<Ticks>(first.value_or(0), 0);
}

}  // namespace

std::string ClipOrigin::name() const {
    return source ? source->name() : shownUrl(url);
}

ClipInput::ClipInput(const ClipOrigin& origin, const ClipOptions& options, Interruption& interruption)
    : mOptions(options),
      mInterruption(interruption),
      mName(origin.name()),
      mBytes(nullptr, [](AVIOContext* bytes) { avio_closep(&bytes); }),
      mContext(nullptr, [](AVFormatContext* context) { avformat_close_input(&context); }) {
    mInterruption.limit(options.openTimeout);
    Dictionary dictionary;
    for (const auto& [key, value] : options.options) {
        av_dict_set(dictionary.address(), key.c_str(), value.c_str(), 0);
    }
    openFormat(origin, dictionary);
    const AVDictionaryEntry* entry = nullptr;
    while ((entry = av_dict_get(dictionary.get(), "", entry, AV_DICT_IGNORE_SUFFIX)) != nullptr) {
        mUnknown.insert(entry->key);
    }
    const int found = avformat_find_stream_info(mContext.get(), nullptr);
    if (found < 0 || mInterruption.due()) {
        fail(found, "cannot find the tracks of");
    }
    if (mStream) {
        mStream->rethrow();
    }
    mStart = startOf(*mContext);
}

ClipInput::~ClipInput() = default;

void ClipInput::openFormat(const ClipOrigin& origin, Dictionary& options) {
    // Not const in the oldest FFmpeg.
    auto* format = mOptions.format.empty() ? nullptr : av_find_input_format(mOptions.format.c_str());
    if (format == nullptr && !mOptions.format.empty()) {
        throw std::invalid_argument(fmt::format("there is no format \"{}\"", mOptions.format));
    }
    const bool noFile = !origin.source &&
                        (format != nullptr ? (format->flags & AVFMT_NOFILE) != 0 : opensByItself(origin.url));
    openBytes(origin, options, noFile);
    chooseProtocols(origin, options);
    AVFormatContext* context = avformat_alloc_context();
    if (context == nullptr) {
        throw std::bad_alloc();
    }
    context->interrupt_callback = mInterruption.callback();
    context->pb = mStream ? mStream->context() : mBytes.get();
    const std::string url = origin.source ? origin.source->name() : origin.url;
    // FFmpeg frees the context when it fails.
    const int opened = avformat_open_input(&context, url.c_str(), format, options.address());
    if (opened < 0) {
        fail(opened, "cannot open");
    }
    mContext.reset(context);
}

void ClipInput::openBytes(const ClipOrigin& origin, Dictionary& options, bool noFile) {
    std::shared_ptr<ByteSource> source = origin.source;
    if (!source && !noFile) {
        if (const std::optional<int> pipe = openPipe(origin.url)) {
            if (*pipe < 0) {
                fail(AVERROR(errno), "cannot open");
            }
            source = descriptorSource(*pipe);
        }
    }
    mInterruption.watch(source);
    if (source) {
        mStream = std::make_unique<ByteStream>(std::move(source), [this] { return mInterruption.due(); });
        return;
    }
    if (noFile) {
        return;
    }
    AVIOContext* bytes = nullptr;
    const AVIOInterruptCB callback = mInterruption.callback();
    const int opened = avio_open2(&bytes, origin.url.c_str(), AVIO_FLAG_READ, &callback, options.address());
    if (opened < 0) {
        fail(opened, "cannot open");
    }
    mBytes.reset(bytes);
}

void ClipInput::chooseProtocols(const ClipOrigin& origin, Dictionary& options) const {
    constexpr const char* kOption = "protocol_whitelist";
    if (mOptions.options.count(kOption) != 0) {
        return;
    }
    std::string list;
    if (mOptions.protocols) {
        list = joined(*mOptions.protocols);
    } else if (mStream) {
        list = kNothingFurther;
    } else if (mBytes) {
        const char* name = avio_find_protocol_name(origin.url.c_str());
        const bool network =
            name != nullptr && std::find(kNetwork.begin(), kNetwork.end(), name) != kNetwork.end();
        list = network ? joined(kNetwork) : kNothingFurther;
    } else {
        // The name of the source itself says what is opened.
        return;
    }
    av_dict_set(options.address(), kOption, list.c_str(), 0);
}

void ClipInput::fail(int code, const char* what) const {
    if (mStream) {
        mStream->rethrow();
    }
    throw FFmpegError(mInterruption.reasonFor(code), fmt::format("{} {}", what, mName));
}

bool ClipInput::canSeek() const noexcept {
    // A demuxer that opens its files by itself can open them again.
    return mContext->pb == nullptr || (mContext->pb->seekable & AVIO_SEEKABLE_NORMAL) != 0;
}

void ClipInput::select(const std::set<int>& streams) {
    mSelected = streams;
    for (unsigned i = 0; i < mContext->nb_streams; ++i) {
        mContext->streams[i]->discard =
            streams.count(static_cast<int>(i)) != 0 ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
    }
}

bool ClipInput::read(AVPacket& packet) {
    mInterruption.limit(mOptions.readTimeout);
    for (;;) {
        const int read = av_read_frame(mContext.get(), &packet);
        const int error = mContext->pb != nullptr ? mContext->pb->error : 0;
        const bool failed = error < 0 && error != AVERROR_EOF;
        // FFmpeg gives what it has of a packet in which the source failed.
        const bool isCut = failed && (packet.flags & AV_PKT_FLAG_CORRUPT) != 0;
        if (read >= 0 && !isCut) {
            if (mSelected.count(packet.stream_index) != 0) {
                return true;
            }
            // FFmpeg had read it before the streams were selected, or found the stream later.
            av_packet_unref(&packet);
            continue;
        }
        av_packet_unref(&packet);
        if (!isCut && (mInterruption.due() || (read != AVERROR_EOF && read != AVERROR(EAGAIN)))) {
            fail(read, "cannot read");
        }
        // Demuxers say of many failures that they are the end.
        if (failed) {
            fail(error, "cannot read");
        }
        if (read == AVERROR_EOF) {
            if (mStream) {
                mStream->rethrow();
            }
            return false;
        }
        std::this_thread::sleep_for(kPause);
    }
}

bool ClipInput::seek(Ticks to) {
    mInterruption.limit(mOptions.readTimeout);
    const std::int64_t target = timestampOf(to + mStart).value;
    if (mContext->pb != nullptr) {
        // A failure at the place that is left does not count any more.
        mContext->pb->error = 0;
    }
    const int sought = av_seek_frame(mContext.get(), -1, target, AVSEEK_FLAG_BACKWARD);
    if (sought < 0 && mInterruption.due()) {
        fail(sought, "cannot seek in");
    }
    if (mStream) {
        mStream->rethrow();
    }
    return sought >= 0;
}

}  // namespace vidorra
