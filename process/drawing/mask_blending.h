#pragma once

#include <cstdint>

#include "process/drawing/ff_draw.h"
#include "process/drawing/mask_coverage.h"

namespace vidorra::masks {

/// ff_blend_mask with one set of kernels; ff_blend_mask itself takes the fastest.
void blendMask(const Kernels& kernels, const ffmpeg_ext::FFDrawContext& draw,
               const ffmpeg_ext::FFDrawColor& color, std::uint8_t* const dst[], const int dstLinesize[],
               int dstWidth, int dstHeight, const Mask& mask, int x0, int y0);

}  // namespace vidorra::masks
