#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "vidorra/core/ffmpeg_fwd.h"
#include "vidorra/demux/format_context.h"

namespace vidorra::test {

/// How the frames of a file relate to its packets.
enum class Framing {
    /// One frame for each packet, except those that the decoder holds back.
    OneForOne,
    /// Packets of several frames. Receiving one frame for each packet loses some.
    SeveralInAPacket,
};

/// A short file with sound, made by the ffmpeg program, and what is known about its first audio stream.
struct Sound {
    const char* name = nullptr;
    /// With the extension that chooses the container.
    const char* file = nullptr;
    int rate = 48000;
    /// The layout of the source; coded formats may have another name for it.
    const char* layout = "stereo";
    int channels = 2;
    /// Arguments of the ffmpeg program after those that make the signal.
    std::vector<std::string> arguments;
    /// The decoder's name, its sample format and the text of its channels.
    const char* decoder = nullptr;
    AVSampleFormat format = AV_SAMPLE_FMT_NONE;
    const char* decodedLayout = "stereo";
    unsigned stream = 0;
    Framing framing = Framing::OneForOne;
};

const std::vector<Sound>& sounds();
const Sound& sound(const std::string& name);
void PrintTo(const Sound& sound, std::ostream* stream);

/// The file, made if it does not exist.
std::filesystem::path fileOf(const Sound& sound);
std::filesystem::path fileOf(const std::string& soundName);

/// Arguments for a signal in which every channel differs from the others at any time.
std::vector<std::string> signal(int rate, const std::string& layout, int channels, double seconds);

/// Joins lists of arguments.
std::vector<std::string> joined(std::vector<std::vector<std::string>> parts);

/// The open file, with stream information.
FormatContext opened(const std::filesystem::path& path);

/// All packets of a stream up to the end.
std::vector<Packet> packetsOf(FormatContext& source, int stream);

/// A packet that owns `size` bytes, all 0.
Packet makePacket(int size, int stream = 0);

}  // namespace vidorra::test
