#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

struct AVCodecParameters;

namespace vidorra {

/// Visits the parts of a packet that any container keeps as they are: the slices of H.264 and HEVC without
/// start codes or lengths, AAC without its ADTS header, AV1 without its temporal delimiter, and all of other
/// codecs. `parameters` are those of the stream that the packet is from.
void visitCodedContent(const AVCodecParameters& parameters, const std::uint8_t* data, std::size_t size,
                       const std::function<void(const std::uint8_t* data, std::size_t size)>& visit);

}  // namespace vidorra
