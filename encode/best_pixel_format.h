#pragma once

#include "vidorra/core/ffmpeg_fwd.h"

namespace vidorra {

/// The format in which to give an encoder pictures of the format `wanted`: that one where the encoder lists
/// it, else the first one of the list that agrees about alpha, else the first one. AV_PIX_FMT_NONE where
/// there is no list or an empty one. Throws std::logic_error without an encoder.
AVPixelFormat bestPixelFormat(const AVCodec* encoder, AVPixelFormat wanted);

}  // namespace vidorra
