#pragma once

#include "platform/ffmpeg/drawing.h"

namespace vidorra::ffmpeg_ext {

using BlendMask = decltype(&ff_blend_mask);

/// ff_blend_mask by vectors of 4, 8 or 16 samples; null where the processor has no such vectors, never for 4.
/// ff_blend_mask itself takes the widest.
BlendMask blendMaskBy(int bytes);

}  // namespace vidorra::ffmpeg_ext
