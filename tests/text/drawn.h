#pragma once

#include <string>
#include <vector>

#include "vidorra/picture/picture.h"

namespace vidorra::test {

using Drawn = std::vector<std::string>;

/// A black GRAY8 picture of the full range, on which white is 255.
Picture blackPicture(int width, int height);

/// One plane of 8-bit samples, of which 1 and 2 are those of 4:2:0, as text: '.' for 0, '#' for 255, '+' for
/// what lies between.
Drawn drawn(const Picture& picture, std::size_t plane = 0);

}  // namespace vidorra::test
