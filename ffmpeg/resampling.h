#pragma once

#include <cstdint>

struct SwrContext;

/// libswresample under the names of each generation.
namespace vidorra::ffmpeg_ext {

/// Sets the channel masks of a resampler that is not initialised. One that is 0 or invalid makes its
/// initialisation fail.
void setResamplerLayouts(SwrContext& context, std::uint64_t in, std::uint64_t out);

/// swr_convert.
int convertSamples(SwrContext& context, std::uint8_t* const* out, int outCount, const std::uint8_t* const* in,
                   int inCount);

}  // namespace vidorra::ffmpeg_ext
