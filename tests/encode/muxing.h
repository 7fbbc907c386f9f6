#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "vidorra/encode/encoder_base.h"

namespace vidorra::test {

/// All packets that an encoder can give now.
std::vector<Packet> receiveAll(EncoderBase& encoder);

/// A Matroska file of one stream in the folder of temporaryFile(), written by libavformat.
std::filesystem::path muxed(const std::string& name, const EncoderBase& encoder, std::vector<Packet> packets);

}  // namespace vidorra::test
