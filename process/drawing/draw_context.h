#pragma once

#include "process/drawing/ff_draw.h"
#include "vidorra/core/color.h"

namespace vidorra {

using ffmpeg_ext::FFDrawColor;
using ffmpeg_ext::FFDrawContext;

/// The context for drawing on a format; alpha is drawn too. Throws std::runtime_error for an unsupported
/// format.
FFDrawContext initDrawContext(AVPixelFormat format, bool fullRange);

/// The colour's samples.
FFDrawColor initDrawColor(const FFDrawContext& context, Color color);

}  // namespace vidorra
