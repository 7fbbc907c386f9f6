#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "objstream/object.h"
#include "vidorra/mux/media_file_writer.h"

namespace vidorra::test {

constexpr Size kRecordedSize{64, 48};

/// A configuration for pictures of kRecordedSize at 25 a second.
objstream::object videoConfig(const std::string& codec = "mpeg4");

/// A configuration for stereo at 48000 Hz.
objstream::object audioConfig(const std::string& codec = "pcm_s16le");

/// The picture of a number, unlike that of any other number below 200, at its time.
VideoFrame numberedPicture(int number);

/// `count` samples of a signal that never repeats, from a sample on, in both channels.
std::vector<short> signal(std::int64_t start, std::int64_t count);

/// The same as a frame at its time, at a rate of `rate` Hz.
AudioFrame signalFrame(std::int64_t start, std::int64_t count, int rate = 48000);

/// A path in the folder of temporary files at which nothing is.
std::filesystem::path freshPath(const std::string& name);

/// The first channel of a file's sound, as the ffmpeg program decodes it to 16 bits.
std::vector<short> decodedSound(const std::filesystem::path& path);

}  // namespace vidorra::test
