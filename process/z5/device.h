#pragma once

#include <memory>
#include <string_view>

#include "vdr_utils/file_descriptor_deleter.h"
#include "vidorra/picture/picture.h"
#include "z5_hw_accel/nv12_buffer.h"

/// The common part of the classes that use the accelerator.
namespace vidorra::z5 {

using Device = std::unique_ptr<int, vx::utils::priv::FileDescriptorDeleter>;

/// Opens "/dev/" and `name`. Throws std::system_error.
Device openDevice(std::string_view name);

/// Whether a picture is within the accelerator's limits.
bool isCompatible(const Picture& picture);

/// The accelerator's record of a whole picture; `T` is void or const void.
template <class T>
::z5::hw::accel::Nv12Buffer<T> wholeBuffer(const Picture& picture) {
    return {picture.data()[0],     picture.data()[1],         picture.data()[3],
            picture.linesize()[0], picture.frameSize().width, picture.frameSize().height};
}

}  // namespace vidorra::z5
