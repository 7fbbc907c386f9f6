#pragma once

#include <cstdint>

struct SwrContext;

/// libswresample under the names of each version.
namespace vidorra::ffmpeg_ext {

/// Sets the channel masks of a resampler before its initialisation. A mask that is 0 or invalid makes the
/// initialisation fail.
void setResamplerLayouts(SwrContext& context, std::uint64_t in, std::uint64_t out);

/// swr_convert.
int convertSamples(SwrContext& context, std::uint8_t* const* out, int outCount, const std::uint8_t* const* in,
                   int inCount);

}  // namespace vidorra::ffmpeg_ext
