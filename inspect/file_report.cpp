#include "inspect/file_report.h"

#include <algorithm>
#include <exception>
#include <map>
#include <sstream>

#include "ffmpeg/display_matrix.h"
#include "inspect/settled_reading.h"
#include "vidorra/clip/clip_reader.h"
#include "vidorra/demux/format_context.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/pixdesc.h>
}

namespace vidorra::inspect {
namespace {

using objstream::object;

// A number, or a text where the value has no name.
const char* orUnknown(const char* name) {
    return name != nullptr ? name : "unknown";
}

std::string ratio(AVRational value) {
    return std::to_string(value.num) + ":" + std::to_string(value.den);
}

void addColours(object& report, const AVCodecParameters& parameters) {
    report["colorRange"] = orUnknown(av_color_range_name(parameters.color_range));
    report["colorSpace"] = orUnknown(av_color_space_name(parameters.color_space));
    report["colorPrimaries"] = orUnknown(av_color_primaries_name(parameters.color_primaries));
    report["colorTransfer"] = orUnknown(av_color_transfer_name(parameters.color_trc));
}

void addShape(object& report, AVFormatContext& context, AVStream& stream) {
    AVRational aspect = av_guess_sample_aspect_ratio(&context, &stream, nullptr);
    if (aspect.num <= 0 || aspect.den <= 0) {
        aspect = {1, 1};
    }
    AVRational shown{};
    av_reduce(&shown.num, &shown.den, std::int64_t{stream.codecpar->width} * aspect.num,
              std::int64_t{stream.codecpar->height} * aspect.den, 1 << 20);
    report["sampleAspect"] = ratio(aspect);
    report["displayAspect"] = ratio(shown);
    report["rotation"] = ffmpeg_ext::rotation(stream);
}

// The most packets from one key packet of a stream to the next, or to the end.
std::map<int, int> keyDistances(AVFormatContext& context) {
    std::map<int, int> greatest;
    std::map<int, int> since;
    const AvPtr<AVPacket> packet = makeAvPtr<AVPacket>();
    while (packet && av_read_frame(&context, packet.get()) >= 0) {
        int& count = since[packet->stream_index];
        count = (packet->flags & AV_PKT_FLAG_KEY) != 0 ? 1 : count + 1;
        greatest[packet->stream_index] = std::max(greatest[packet->stream_index], count);
        av_packet_unref(packet.get());
    }
    return greatest;
}

// Reads one track to its end.
void addFrames(object& report, const std::string& url, const ClipTrack& track, ClipCounters& sums) {
    const bool audio = track.kind == ClipTrack::Kind::Audio;
    ClipOptions options;
    (audio ? options.audio : options.video) = track.number;
    (audio ? options.video : options.audio) = TrackChoice::None;
    ClipReader reader(url, options);
    long long frames = 0;
    long long samples = 0;
    try {
        while (const ClipFrame frame = reader.read()) {
            if (const AudioFrame* sound = frame.audio()) {
                const AudioBuffer& buffer = sound->audioBuffer();
                samples += static_cast<long long>(buffer.numberOfSamples());
                report["sampleRate"] = buffer.sampleRate();
                report["channels"] = buffer.numberOfChannels();
            } else if (const VideoFrame* video = frame.video(); frames == 0) {
                const Picture& picture = video->picture();
                report["width"] = picture.frameSize().width;
                report["height"] = picture.frameSize().height;
                report["pixelFormat"] = to_string(picture.pixelFormat());
                report["alpha"] = picture.hasAlpha();
            }
            ++frames;
        }
    } catch (const std::exception& error) {
        report["error"] = error.what();
    }
    report["frames"] = frames;
    if (audio) {
        report["samples"] = samples;
    }
    const ClipCounters counters = reader.counters();
    sums.repairedTimes += counters.repairedTimes;
    sums.droppedFrames += counters.droppedFrames;
    sums.damagedPackets += counters.damagedPackets;
}

object settledReport(const SettledReading& settled) {
    object report = object::map();
    report["becomesReady"] = settled.becomesReady;
    if (!settled.endsProcess.empty()) {
        report["endsProcess"] = settled.endsProcess;
    }
    if (settled.loopGap) {
        report["loopGapSamples"] = static_cast<long long>(*settled.loopGap);
    }
    if (!settled.error.empty()) {
        report["error"] = settled.error;
    }
    return report;
}

}  // namespace

object reportOf(const std::string& url) {
    ClipReader reader(url);
    const std::vector<ClipTrack> tracks = reader.tracks();
    FormatContext source;
    source.setUrl(url);
    source.open("", true, std::chrono::seconds(5));
    AVFormatContext& context = *source.getAVFormatContext();
    const SettledReading settled = readSettled(url);

    object report = object::map();
    report["file"] = url;
    if (const Timestamp duration = reader.duration(); !duration.isNull) {
        report["duration"] = static_cast<double>(duration.value) / 1e6;
    }
    const std::map<int, int> distances = keyDistances(context);
    ClipCounters sums;
    int attached = 0;
    object list = object::array();
    std::size_t next = 0;
    for (const ClipTrack& track : tracks) {
        const AVMediaType type =
            track.kind == ClipTrack::Kind::Audio ? AVMEDIA_TYPE_AUDIO : AVMEDIA_TYPE_VIDEO;
        while (next < context.nb_streams && context.streams[next]->codecpar->codec_type != type) {
            ++next;
        }
        if (next == context.nb_streams) {
            break;
        }
        AVStream& stream = *context.streams[next++];
        if (track.attachedPicture) {
            ++attached;
            continue;
        }
        object entry = object::map();
        entry["kind"] = type == AVMEDIA_TYPE_AUDIO ? "audio" : "video";
        entry["number"] = track.number;
        entry["codec"] = track.codec;
        if (!track.language.empty()) {
            entry["language"] = track.language;
        }
        addFrames(entry, url, track, sums);
        if (type == AVMEDIA_TYPE_VIDEO) {
            addColours(entry, *stream.codecpar);
            addShape(entry, context, stream);
            const auto distance = distances.find(stream.index);
            entry["keyFrameDistance"] = distance != distances.end() ? distance->second : 0;
        }
        if (track.number == 0 && settled.error.empty()) {
            const auto given = static_cast<long long>(type == AVMEDIA_TYPE_AUDIO ? settled.audioFrames
                                                                                 : settled.videoFrames);
            entry["framesLost"] = std::max<long long>(entry["frames"].getValue<long long>() - given, 0);
        }
        list.append(entry);
    }
    report["tracks"] = list;
    report["attachedPictures"] = attached;
    report["repairedTimes"] = static_cast<long long>(sums.repairedTimes);
    report["droppedFrames"] = static_cast<long long>(sums.droppedFrames);
    report["damagedPackets"] = static_cast<long long>(sums.damagedPackets);
    report["settledReaders"] = settledReport(settled);
    return report;
}

std::string textOf(const object& report) {
    std::ostringstream text;
    const auto value = [](const object& from, const char* key) {
        return from[key].getValue(std::string("?"));
    };
    text << value(report, "file") << '\n';
    if (report.hasKey("duration")) {
        text << "  " << value(report, "duration") << " s\n";
    }
    const object& tracks = report["tracks"];
    for (std::size_t i = 0; i < tracks.size(); ++i) {
        const object& track = tracks.at(i);
        text << "  " << value(track, "kind") << ' ' << value(track, "number") << ": "
             << value(track, "codec");
        track.for_each_kv([&](const std::string& key, const object& entry) {
            if (key != "kind" && key != "number" && key != "codec") {
                text << ", " << key << ' ' << entry.getValue(std::string("?"));
            }
            return true;
        });
        text << '\n';
    }
    for (const char* key : {"attachedPictures", "repairedTimes", "droppedFrames", "damagedPackets"}) {
        text << "  " << key << ' ' << value(report, key) << '\n';
    }
    text << "  with MediaFileReader and MediaFileReaderAsync:";
    report["settledReaders"].for_each_kv([&](const std::string& key, const object& entry) {
        text << "\n    " << key << ' ' << entry.getValue(std::string("?"));
        return true;
    });
    text << '\n';
    return text.str();
}

}  // namespace vidorra::inspect
