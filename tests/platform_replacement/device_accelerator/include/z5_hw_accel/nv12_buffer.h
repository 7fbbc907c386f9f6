#pragma once

namespace z5::hw::accel {

/// The records of an accelerator of another make.
template <class T>
struct Nv12Buffer {
    T* luma;
    T* chroma;
    T* alpha;
    int linesize;
    int width;
    int height;
};

}  // namespace z5::hw::accel
