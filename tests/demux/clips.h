#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace vidorra::test {

/// Which packets of a clip's video are key packets.
enum class Keys { None, Some, All };

/// A small file made by the ffmpeg program, and what is known about its first video stream.
struct Clip {
    const char* name = nullptr;
    /// With the extension that chooses the container.
    const char* file = nullptr;
    std::vector<std::string> arguments;
    const char* codec = nullptr;
    /// Of the decoded pictures.
    const char* pixelFormat = "yuv420p";
    Keys keys = Keys::All;
    /// The container knows the presentation time of every packet.
    bool allTimesKnown = true;
};

/// The clips that are compared with the programs of FFmpeg.
const std::vector<Clip>& clips();

/// The clip of that name.
const Clip& clip(const std::string& name);

/// Its file, made if it does not exist.
std::filesystem::path fileOf(const Clip& clip);
std::filesystem::path fileOf(const std::string& clipName);

/// A moving picture as arguments of the ffmpeg program.
std::vector<std::string> movingPicture(const std::string& size, double seconds);

/// Joins lists of arguments.
std::vector<std::string> joined(std::vector<std::vector<std::string>> parts);

void PrintTo(const Clip& clip, std::ostream* stream);

}  // namespace vidorra::test
