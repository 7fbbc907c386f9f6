#include "mux/container.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <stdexcept>
#include <utility>

#include "vidorra/core/av_res.h"
#include "vidorra/core/dictionary.h"

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/mem.h>
#include <libavutil/opt.h>
}

namespace vidorra {
namespace {

// Without pictures there are no key frames to begin fragments at.
constexpr std::chrono::microseconds kFragmentOfSound = std::chrono::seconds(1);

// The clock in which MP4 and MOV count where tracks begin and end: that of the sound, to the sample.
constexpr const char* kMovieClock = "movie_timescale";

int movieClock(const AVFormatContext& context) {
    constexpr int kDefault = 1000;
    for (unsigned i = 0; i < context.nb_streams; ++i) {
        if (context.streams[i]->codecpar->sample_rate > kDefault) {
            return context.streams[i]->codecpar->sample_rate;
        }
    }
    return kDefault;
}

}  // namespace

void Container::Free::operator()(AVFormatContext* context) const {
    context->pb = nullptr;
    avformat_free_context(context);
}

Container::Container(const std::string& path, const std::string& format) : mName(path) {
    AVFormatContext* context = nullptr;
    AvRes(avformat_alloc_output_context2(&context, nullptr, format.empty() ? nullptr : format.c_str(),
                                         path.c_str()))
        .throwIfError("no container for {}", format.empty() ? path : format);
    mContext.reset(context);
    // The order in which packets come is that of the file.
    mContext->max_interleave_delta = 1;
}

Container::~Container() = default;

const char* Container::formatName() const noexcept {
    return mContext->oformat->name;
}

bool Container::wantsGlobalHeader() const noexcept {
    return (mContext->oformat->flags & AVFMT_GLOBALHEADER) != 0;
}

bool Container::hasFragments() const noexcept {
    return hasOption("movflags");
}

bool Container::makesFiles() const noexcept {
    return (mContext->oformat->flags & AVFMT_NOFILE) != 0;
}

bool Container::hasTimes() const noexcept {
    return (mContext->oformat->flags & AVFMT_NOTIMESTAMPS) == 0;
}

bool Container::takesNegativeTimes() const noexcept {
    return (mContext->oformat->flags & AVFMT_TS_NEGATIVE) != 0 || !hasTimes();
}

bool Container::storesDecodingTimes() const noexcept {
    return std::strcmp(formatName(), "matroska") != 0 && std::strcmp(formatName(), "webm") != 0;
}

bool Container::hasOption(const std::string& name) const noexcept {
    return av_opt_find(mContext.get(), name.c_str(), nullptr, 0, AV_OPT_SEARCH_CHILDREN) != nullptr;
}

void Container::setOutput(std::shared_ptr<ByteSink> sink, const std::string& name) {
    mName = name;
    // What is before a colon in a path is no protocol.
    char* url = av_strdup((sink != nullptr ? "file:" + name : name).c_str());
    if (url == nullptr) {
        throw std::bad_alloc();
    }
    av_free(mContext->url);
    mContext->url = url;
    if (sink != nullptr) {
        mOutput.emplace(std::move(sink));
        mContext->pb = mOutput->context();
        mContext->flags |= AVFMT_FLAG_CUSTOM_IO;
    }
}

AVStream& Container::addStream() {
    AVStream* stream = avformat_new_stream(mContext.get(), nullptr);
    if (stream == nullptr) {
        throw std::bad_alloc();
    }
    return *stream;
}

void Container::dropForeignTag(AVStream& stream) const {
    const auto* tags = mContext->oformat->codec_tag;
    AVCodecParameters& parameters = *stream.codecpar;
    if (tags == nullptr || av_codec_get_id(tags, parameters.codec_tag) != parameters.codec_id) {
        parameters.codec_tag = 0;
    }
}

const AVStream& Container::stream(int index) const noexcept {
    return *mContext->streams[index];
}

std::map<std::string, std::string> Container::fragmentOptions(
    std::optional<std::chrono::microseconds> duration) const {
    if (!duration) {
        // A file that is written from front to end has to be in fragments.
        if (!hasFragments() || !mOutput || mOutput->canSeek()) {
            return {};
        }
        duration = std::chrono::microseconds(0);
    }
    const bool hasPictures = std::any_of(
        mContext->streams, mContext->streams + mContext->nb_streams,
        [](const AVStream* stream) { return stream->codecpar->codec_type == AVMEDIA_TYPE_VIDEO; });
    // The header comes with the first fragment, when the beginning of each track is known.
    std::map<std::string, std::string> options = {{"movflags", "+empty_moov+delay_moov+default_base_moof"}};
    if (duration->count() > 0 || !hasPictures) {
        options["frag_duration"] =
            std::to_string(duration->count() > 0 ? duration->count() : kFragmentOfSound.count());
    } else {
        options["movflags"] += "+frag_keyframe";
    }
    return options;
}

void Container::begin(const std::map<std::string, std::string>& options,
                      std::optional<std::chrono::microseconds> fragmentDuration) {
    std::map<std::string, std::string> all = fragmentOptions(fragmentDuration);
    if (hasOption(kMovieClock)) {
        all[kMovieClock] = std::to_string(movieClock(*mContext));
    }
    for (const auto& [name, value] : options) {
        std::string& known = all[name];
        // Flags add to those that fragments need; other options of the caller win.
        if (name != "movflags" || known.empty()) {
            known = value;
            continue;
        }
        if (value.front() != '+') {
            known += '+';
        }
        known += value;
    }
    Dictionary dictionary;
    for (const auto& [name, value] : all) {
        check(av_dict_set(dictionary.address(), name.c_str(), value.c_str(), 0), "cannot begin");
    }
    check(avformat_write_header(mContext.get(), dictionary.address()),
          mOutput && !mOutput->canSeek() ? "cannot seek, which the container may need to begin"
                                         : "cannot begin");
}

void Container::write(Packet packet) {
    check(av_interleaved_write_frame(mContext.get(), &packet), "cannot write");
}

void Container::end() {
    check(av_write_trailer(mContext.get()), "cannot complete");
    if (mOutput) {
        avio_flush(mOutput->context());
        check(mOutput->context()->error, "cannot complete");
    }
}

void Container::check(int code, const char* step) const {
    if (mOutput) {
        mOutput->rethrow();
    }
    AvRes(code).throwIfError("{} {}", step, mName);
}

}  // namespace vidorra
