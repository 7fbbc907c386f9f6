#pragma once

#include <optional>

#include "vidorra/process/alphablend/planes.h"

namespace vidorra::alphablend {

/// The opacity 0.0 to 1.0 as a byte, truncated; more than 1.0 is 255. Nothing where nothing is to be drawn:
/// for what truncates to 0, for negative values and for NaN.
std::optional<Opacity> opacityToByte(double opacity);

}  // namespace vidorra::alphablend
