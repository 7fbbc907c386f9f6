#include "support/ffprobe.h"

#include <cstdlib>
#include <map>

#include "support/process.h"

namespace vidorra::test {
namespace {

// One section of ffprobe's output, without its inner sections.
struct Section {
    std::string name;
    std::map<std::string, std::string> fields;

    std::string text(const std::string& key) const {
        const auto found = fields.find(key);
        return found == fields.end() ? "" : found->second;
    }

    std::optional<std::int64_t> number(const std::string& key) const {
        const std::string value = text(key);
        if (value.empty() || value == "N/A") {
            return std::nullopt;
        }
        return std::strtoll(value.c_str(), nullptr, 10);
    }
};

// [NAME], lines "key=value" and further sections, [/NAME].
std::vector<Section> runProbe(const std::filesystem::path& path, const std::vector<std::string>& options) {
    std::vector<std::string> command = {"ffprobe", "-loglevel", "fatal", "-of", "default"};
    command.insert(command.end(), options.begin(), options.end());
    command.push_back(path.string());
    std::vector<Section> result;
    int depth = 0;
    for (const std::string& line : lines(run(command))) {
        if (line.starts_with("[/")) {
            --depth;
        } else if (line.starts_with("[")) {
            if (depth++ == 0) {
                result.push_back({line.substr(1, line.size() - 2), {}});
            }
        } else if (const std::size_t equals = line.find('='); depth == 1 && equals != std::string::npos) {
            result.back().fields[line.substr(0, equals)] = line.substr(equals + 1);
        }
    }
    return result;
}

ProbedStream makeStream(const Section& section) {
    const std::vector<std::string> timebase = split(section.text("time_base"), '/');
    ProbedStream stream;
    stream.type = section.text("codec_type");
    stream.codec = section.text("codec_name");
    stream.timebaseNum = std::atoi(timebase.at(0).c_str());
    stream.timebaseDen = std::atoi(timebase.at(1).c_str());
    return stream;
}

ProbedPacket makePacket(const Section& section) {
    ProbedPacket packet;
    packet.stream = static_cast<int>(section.number("stream_index").value());
    packet.pts = section.number("pts");
    packet.dts = section.number("dts");
    packet.duration = section.number("duration").value_or(0);
    packet.size = static_cast<int>(section.number("size").value());
    packet.key = section.text("flags").starts_with("K");
    packet.hash = split(section.text("data_hash"), ':').at(1);
    return packet;
}

}  // namespace

ProbedMedia probe(const std::filesystem::path& path) {
    ProbedMedia result;
    for (const Section& section :
         runProbe(path, {"-show_streams", "-show_packets", "-show_data_hash", "md5", "-show_entries",
                         "stream=index,codec_type,codec_name,time_base:"
                         "packet=stream_index,pts,dts,duration,size,flags,data_hash"})) {
        if (section.name == "STREAM") {
            result.streams.push_back(makeStream(section));
        } else if (section.name == "PACKET") {
            result.packets.push_back(makePacket(section));
        }
    }
    return result;
}

std::vector<std::optional<std::int64_t>> probeFrameTimes(const std::filesystem::path& path) {
    std::vector<std::optional<std::int64_t>> result;
    for (const Section& section : runProbe(path, {"-select_streams", "v:0", "-show_frames", "-show_entries",
                                                  "frame=best_effort_timestamp"})) {
        result.push_back(section.number("best_effort_timestamp"));
    }
    return result;
}

std::vector<std::string> frameHashes(const std::filesystem::path& path) {
    std::vector<std::string> result;
    for (const std::string& line :
         lines(run({"ffmpeg", "-hide_banner", "-loglevel", "fatal", "-nostdin", "-noautorotate", "-i",
                    path.string(), "-map", "0:v:0", "-fps_mode", "passthrough", "-copyts", "-f", "framemd5",
                    "-"}))) {
        if (!line.empty() && line.front() != '#') {
            const std::string hash = split(line, ',').at(5);
            result.push_back(hash.substr(hash.find_first_not_of(' ')));
        }
    }
    return result;
}

}  // namespace vidorra::test
