#include "vidorra/picture/picture_allocator.h"

namespace vidorra {

PictureAllocator::~PictureAllocator() = default;

}  // namespace vidorra
