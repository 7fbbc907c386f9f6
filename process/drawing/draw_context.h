#pragma once

#include "process/drawing/ff_draw.h"
#include "vidorra/core/color.h"

namespace vidorra {

using ffmpeg_ext::FFDrawColor;
using ffmpeg_ext::FFDrawContext;

/// What drawing on a format needs; alpha is drawn as well. Throws std::runtime_error for a format that cannot
/// be drawn on.
FFDrawContext initDrawContext(AVPixelFormat format, bool fullRange);

/// The colour's samples.
FFDrawColor initDrawColor(const FFDrawContext& context, Color color);

}  // namespace vidorra
