#pragma once

/// The values that the blending functions work on: the planes of a raster as pointers and line sizes,
/// independent of pictures, and an opacity.
///
///     using namespace vidorra::alphablend;
///     const Planes<pixel_format::RGBA32, unsigned char*> raster{1920, 1080, bytes, 7680};

namespace vidorra::alphablend {

/// Tags for raster layouts, which only select overloads.
namespace pixel_format {

/// Luma, and a plane of U,V pairs, one for 2x2 pixels.
struct NV12 {};
/// NV12 with an alpha plane at luma resolution, one byte a pixel.
struct NVA12 {};
/// Four bytes a pixel: red, green, blue, alpha.
struct RGBA32 {};
/// Four bytes a pixel: alpha, red, green, blue.
struct ARGB32 {};
/// Three bytes a pixel: red, green, blue.
struct RGB24 {};
/// Three bytes a pixel: blue, green, red.
struct BGR24 {};

}  // namespace pixel_format

/// A raster of the layout `F`; `P` is `unsigned char*` for a destination and `const unsigned char*` for a
/// source. A plain value that owns nothing. The primary template is for the packed layouts.
template <class F, class P>
struct Planes {
    /// In pixels.
    int width;
    int height;
    P data;
    /// Bytes from one row to the next; may be more than the row's pixels take.
    int linesize;
};

template <class P>
struct Planes<pixel_format::NV12, P> {
    int width;
    int height;
    /// Luma, interleaved U and V.
    P data[2];
    int linesize[2];
};

template <class P>
struct Planes<pixel_format::NVA12, P> {
    int width;
    int height;
    /// Luma, interleaved U and V, an unused plane that may be null, alpha.
    P data[4];
    int linesize[4];
};

/// How much of the source shows: 0 is nothing, 255 everything.
class Opacity {
public:
    constexpr explicit Opacity(unsigned char value) noexcept : mValue(value) {}

    [[nodiscard]] constexpr unsigned char value() const noexcept { return mValue; }

private:
    unsigned char mValue;
};

}  // namespace vidorra::alphablend
