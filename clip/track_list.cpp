#include "clip/track_list.h"

#include <strings.h>

#include <algorithm>
#include <stdexcept>

#include "vidorra/core/format.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace vidorra {
namespace {

const char* textOf(ClipTrack::Kind kind) {
    return kind == ClipTrack::Kind::Audio ? "audio" : "video";
}

AVMediaType typeOf(ClipTrack::Kind kind) {
    return kind == ClipTrack::Kind::Audio ? AVMEDIA_TYPE_AUDIO : AVMEDIA_TYPE_VIDEO;
}

// The best of the tracks that may be taken by themselves: FFmpeg's choice, or else the first.
std::optional<std::size_t> best(AVFormatContext& context, const std::vector<int>& streams,
                                const std::vector<std::size_t>& candidates, ClipTrack::Kind kind,
                                int related) {
    if (candidates.empty()) {
        return std::nullopt;
    }
    const int chosen = av_find_best_stream(&context, typeOf(kind), -1, related, nullptr, 0);
    const auto found = std::find_if(candidates.begin(), candidates.end(),
                                    [&](std::size_t track) { return streams[track] == chosen; });
    return found != candidates.end() ? *found : candidates.front();
}

}  // namespace

std::vector<ClipTrack> listTracks(const AVFormatContext& context, std::vector<int>& streams) {
    std::vector<ClipTrack> tracks;
    streams.clear();
    int audio = 0;
    int video = 0;
    for (unsigned i = 0; i < context.nb_streams; ++i) {
        const AVStream& stream = *context.streams[i];
        const AVMediaType type = stream.codecpar->codec_type;
        if (type != AVMEDIA_TYPE_AUDIO && type != AVMEDIA_TYPE_VIDEO) {
            continue;
        }
        ClipTrack track;
        track.kind = type == AVMEDIA_TYPE_AUDIO ? ClipTrack::Kind::Audio : ClipTrack::Kind::Video;
        track.number = type == AVMEDIA_TYPE_AUDIO ? audio++ : video++;
        track.codec = avcodec_get_name(stream.codecpar->codec_id);
        const AVDictionaryEntry* language = av_dict_get(stream.metadata, "language", nullptr, 0);
        track.language = language != nullptr ? language->value : "";
        track.attachedPicture = (stream.disposition & AV_DISPOSITION_ATTACHED_PIC) != 0;
        tracks.push_back(std::move(track));
        streams.push_back(static_cast<int>(i));
    }
    return tracks;
}

std::optional<std::size_t> chooseTrack(AVFormatContext& context, const std::vector<ClipTrack>& tracks,
                                       const std::vector<int>& streams, ClipTrack::Kind kind,
                                       const ClipTrackChoice& choice, int related, const std::string& name) {
    if (choice.by == TrackChoice::None) {
        return std::nullopt;
    }
    std::vector<std::size_t> candidates;
    std::vector<std::size_t> inLanguage;
    for (std::size_t i = 0; i < tracks.size(); ++i) {
        if (tracks[i].kind != kind) {
            continue;
        }
        if (choice.by == TrackChoice::Number && tracks[i].number == choice.number) {
            return i;
        }
        const AVCodecID codec = context.streams[streams[i]]->codecpar->codec_id;
        if (tracks[i].attachedPicture || avcodec_find_decoder(codec) == nullptr) {
            continue;
        }
        candidates.push_back(i);
        if (choice.by == TrackChoice::Language &&
            strcasecmp(tracks[i].language.c_str(), choice.language.c_str()) == 0) {
            inLanguage.push_back(i);
        }
    }
    if (choice.by == TrackChoice::Number) {
        throw std::invalid_argument(fmt::format("{} has no {} track {}", name, textOf(kind), choice.number));
    }
    return best(context, streams, inLanguage.empty() ? candidates : inLanguage, kind, related);
}

}  // namespace vidorra
