#pragma once

#include <string>
#include <vector>

#include "vidorra/picture/picture.h"

namespace vidorra::test {

using Drawn = std::vector<std::string>;

/// A black full-range GRAY8 picture, on which white is 255.
Picture blackPicture(int width, int height);

/// One plane of 8-bit samples as text: '.' for 0, '#' for 255, '+' for values between. Planes 1 and 2 are
/// those of 4:2:0.
Drawn drawn(const Picture& picture, std::size_t plane = 0);

}  // namespace vidorra::test
