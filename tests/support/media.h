#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace vidorra::test {

/// A media file made by the ffmpeg program with `arguments`, which are put between "ffmpeg" and the name of
/// the file. It is made once and kept: the same name and arguments give the same file, even in another
/// process or build folder. Throws std::runtime_error when ffmpeg fails.
///
///     const auto path = mediaFile("noise.mkv", {"-f", "lavfi", "-i", "testsrc2=d=1", "-c:v", "ffv1"});
std::filesystem::path mediaFile(const std::string& name, const std::vector<std::string>& arguments);

/// A file with this content, in a folder that is removed when this process ends.
std::filesystem::path temporaryFile(const std::string& name, const std::string& content);

/// The folder of temporaryFile().
std::filesystem::path temporaryFolder();

/// All bytes of a file.
std::string fileContent(const std::filesystem::path& path);

}  // namespace vidorra::test
