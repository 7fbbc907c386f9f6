#pragma once

#include "vidorra/core/export.h"
#include "vidorra/picture/picture_allocator.h"

namespace vidorra {

/// The allocator that is used by default. Each picture has its own heap memory, which no device can reach,
/// with line sizes in multiples of 32 bytes. Pictures of 0 by 0 are empty; that is not an error.
///
///     PictureAllocator& heap = *getDefaultPictureAllocator();
///     Picture picture = heap.allocate(Size{640, 360}, AV_PIX_FMT_NV12, AVCOL_RANGE_MPEG);
///
/// Always the same object, never null; it lives until the process exits and is never deleted. Threads:
/// thread-safe, including the first call.
[[nodiscard]] VIDORRA_API PictureAllocator* getDefaultPictureAllocator();

}  // namespace vidorra
