#pragma once

#include "vidorra/core/export.h"
#include "vidorra/picture/picture_allocator.h"

namespace vidorra {

/// The allocator for whoever was not given another: each picture has heap memory of its own, with line sizes
/// in multiples of 32 bytes, and none is reachable by a device. Pictures of 0 by 0 are empty, without an
/// error.
///
///     PictureAllocator& heap = *getDefaultPictureAllocator();
///     Picture picture = heap.allocate(Size{640, 360}, AV_PIX_FMT_NV12, AVCOL_RANGE_MPEG);
///
/// Always the same object, never null; it lives until the process exits and is not deleted. Threads: any,
/// also for the first call.
[[nodiscard]] VIDORRA_API PictureAllocator* getDefaultPictureAllocator();

}  // namespace vidorra
