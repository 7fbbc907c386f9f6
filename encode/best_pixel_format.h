#pragma once

#include "vidorra/core/ffmpeg_fwd.h"

namespace vidorra {

/// The format in which to send pictures of the format `wanted` to an encoder: `wanted` if the encoder lists
/// it, otherwise the first listed format that agrees about alpha, otherwise the first listed format.
/// AV_PIX_FMT_NONE when there is no list or it is empty. Throws std::logic_error without an encoder.
AVPixelFormat bestPixelFormat(const AVCodec* encoder, AVPixelFormat wanted);

}  // namespace vidorra
