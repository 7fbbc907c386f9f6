#pragma once

namespace z5::hw::accel {

/// Where an NV12 picture is, with or without an alpha plane of full resolution. `T` is void for a picture
/// that is written and const void for one that is read. The addresses are those of the calling process.
template <class T>
struct Nv12Buffer {
    /// The first row of luma.
    T* luma;
    /// The first row of U,V pairs, one pair for 2x2 pixels.
    T* chroma;
    /// The first row of alpha; null without an alpha plane.
    T* alpha;
    /// Bytes from one row to the next, the same in all planes.
    int linesize;
    /// In pixels.
    int width;
    int height;
};

}  // namespace z5::hw::accel
