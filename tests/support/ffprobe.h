#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace vidorra::test {

/// What the ffprobe program says about one packet, in ticks of its stream.
struct ProbedPacket {
    int stream = 0;
    std::optional<std::int64_t> pts;
    std::optional<std::int64_t> dts;
    std::int64_t duration = 0;
    int size = 0;
    bool key = false;
    /// MD5 of the data, in hexadecimal.
    std::string hash;
};

/// What the ffprobe program says about one stream.
struct ProbedStream {
    /// "video", "audio", ...
    std::string type;
    std::string codec;
    int timebaseNum = 0;
    int timebaseDen = 1;
};

/// The streams of a file by index, and all its packets in the order of reading.
struct ProbedMedia {
    std::vector<ProbedStream> streams;
    std::vector<ProbedPacket> packets;
};

ProbedMedia probe(const std::filesystem::path& path);

/// The best-effort times of all frames of the first video stream, in ticks of the stream.
std::vector<std::optional<std::int64_t>> probeFrameTimes(const std::filesystem::path& path);

/// The MD5 of each frame of the first video stream as the ffmpeg program decodes it: rows without padding,
/// plane after plane.
std::vector<std::string> frameHashes(const std::filesystem::path& path);

}  // namespace vidorra::test
