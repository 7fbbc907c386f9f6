#pragma once

#include <filesystem>
#include <vector>

#include "vidorra/encode/encoder_base.h"

namespace vidorra::test {

/// Writes packets of an encoder to a file with FFmpeg's muxer for the name.
void writeFile(const std::filesystem::path& path, const EncoderBase& encoder,
               const std::vector<Packet>& packets);

}  // namespace vidorra::test
