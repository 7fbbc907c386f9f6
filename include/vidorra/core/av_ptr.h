#pragma once

#include <memory>

#include "vidorra/core/export.h"
#include "vidorra/core/ffmpeg_fwd.h"

namespace vidorra {

/// The owner of an FFmpeg object. The deleter is a plain function, so the type does not depend on who made
/// the object.
///
///     const AvPtr<AVFrame> frame = makeAvPtr<AVFrame>();
///     if (!frame) { throw std::bad_alloc(); }
template <class T>
using AvPtr = std::unique_ptr<T, void (*)(T*)>;

/// A new, empty AVFrame or AVPacket; null when there is no memory.
template <class T>
[[nodiscard]] AvPtr<T> makeAvPtr();

/// Adopts an existing reference, which may be null.
template <class T>
[[nodiscard]] AvPtr<T> makeAvPtr(T* adopted);

template <>
VIDORRA_API AvPtr<AVFrame> makeAvPtr<AVFrame>();
template <>
VIDORRA_API AvPtr<AVPacket> makeAvPtr<AVPacket>();
template <>
VIDORRA_API AvPtr<AVBufferRef> makeAvPtr<AVBufferRef>(AVBufferRef* adopted);

}  // namespace vidorra
