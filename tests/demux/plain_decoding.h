#pragma once

#include <cstdint>
#include <filesystem>
#include <limits>
#include <string>
#include <vector>

#include "demux/sounds.h"

namespace vidorra::test {

/// An unset time in FFmpeg's files and frames.
inline constexpr std::int64_t kNoTime = std::numeric_limits<std::int64_t>::min();

/// n / d, to the nearest integer, half away from zero.
std::int64_t roundedQuotient(std::int64_t factor, std::int64_t otherFactor, std::int64_t divisor);

/// A frame fitted to the duration of its packet.
struct Repaired {
    std::int64_t samples = 0;
    std::int64_t time = 0;
};

/// Fits a frame of `samples` samples at `time` microseconds to a packet of `duration` microseconds: cuts it
/// at the end, or starts it later by the missing time.
Repaired repaired(std::int64_t samples, std::int64_t time, std::int64_t duration, int rate);

/// A decoded frame with its samples interleaved.
struct PlainFrame {
    std::size_t packet = 0;
    std::int64_t samples = 0;
    std::int64_t time = 0;
    std::int64_t duration = 0;
    std::vector<std::uint8_t> bytes;
};

/// A packet with times in microseconds.
struct PlainPacket {
    std::int64_t time = 0;
    std::int64_t duration = 0;
};

struct PlainSound {
    std::vector<PlainPacket> packets;
    /// In the decoder's order, at most one for each packet.
    std::vector<PlainFrame> frames;
    /// How many packets the decoder refused.
    int refused = 0;
    /// Frames that come out when the decoder is drained at the end.
    int drained = 0;
};

/// Decodes by calls of libavformat and libavcodec alone. No duration is repaired.
PlainSound decodePlainly(const Sound& sound);

/// What FFmpeg's programs say about the same stream: ffprobe about its packets, ffmpeg about its frames,
/// with interleaved samples.
struct ProgramSound {
    std::vector<PlainPacket> packets;
    std::vector<std::vector<std::uint8_t>> frames;
};
ProgramSound decodeByPrograms(const Sound& sound);

/// The samples of planes, interleaved.
std::vector<std::uint8_t> interleaved(const std::vector<const std::uint8_t*>& planes, std::int64_t samples,
                                      int channels, int sampleBytes);

}  // namespace vidorra::test
