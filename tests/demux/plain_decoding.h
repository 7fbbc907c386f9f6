#pragma once

#include <cstdint>
#include <filesystem>
#include <limits>
#include <string>
#include <vector>

#include "demux/sounds.h"

namespace vidorra::test {

/// A time that is not set, in the files and frames of FFmpeg.
inline constexpr std::int64_t kNoTime = std::numeric_limits<std::int64_t>::min();

/// n / d, to the nearest integer, half away from zero.
std::int64_t roundedQuotient(std::int64_t factor, std::int64_t otherFactor, std::int64_t divisor);

/// What a frame and the duration of its packet come to.
struct Repaired {
    std::int64_t samples = 0;
    std::int64_t time = 0;
};

/// A frame of `samples` samples at `time` microseconds from a packet of `duration` microseconds: cut at the
/// end, or started later by what is missing.
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
    /// As the decoder gives them, one at most for a packet.
    std::vector<PlainFrame> frames;
    /// How many packets the decoder did not take.
    int refused = 0;
    /// Frames that come out when the decoder is drained at the end.
    int drained = 0;
};

/// Decodes by calls of libavformat and libavcodec alone. No duration is repaired.
PlainSound decodePlainly(const Sound& sound);

/// What the programs of FFmpeg say of the same stream: ffprobe of its packets, ffmpeg of its frames, whose
/// samples are interleaved.
struct ProgramSound {
    std::vector<PlainPacket> packets;
    std::vector<std::vector<std::uint8_t>> frames;
};
ProgramSound decodeByPrograms(const Sound& sound);

/// The samples of planes, channel by channel one sample after the other.
std::vector<std::uint8_t> interleaved(const std::vector<const std::uint8_t*>& planes, std::int64_t samples,
                                      int channels, int sampleBytes);

}  // namespace vidorra::test
