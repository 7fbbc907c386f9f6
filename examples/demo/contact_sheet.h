#pragma once

#include <cstdint>
#include <string>

namespace demo {

/// Reads a video of `frames` frames and writes a sheet with twelve of its pictures, evenly spread, as an
/// image file. Throws std::runtime_error when the video gives no picture or the image cannot be written.
void writeContactSheet(const std::string& video, std::uint64_t frames, const std::string& image);

}  // namespace demo
