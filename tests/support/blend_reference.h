#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace vidorra::test {

/// Blending written from its equations, sample by sample and in whole numbers: the expected result of the
/// library, byte for byte. Independent of the library.

/// round(s * a + d * (255 - a)) / 255).
std::uint8_t referenceBlend255(int s, int d, int a);

/// An alpha faded by an opacity of 0 to 255.
int referenceFaded(int alpha, int opacity);

/// floor((s * (sWeight + 1) + d * (256 - dWeight)) / 256).
std::uint8_t referenceBlend256(int s, int d, int sWeight, int dWeight);

enum class RasterFormat { Nv12, Nva12, Rgba, Argb, Rgb24, Bgr24 };

/// A raster with each plane in its own memory, which ends with the last pixel. `padding` bytes separate the
/// rows, and `guard` bytes are before and after each plane. All bytes start random, including those around
/// the pixels.
class Raster {
public:
    Raster(RasterFormat format, int width, int height, int padding, int guard, std::mt19937& random);

    int width() const { return mWidth; }
    int height() const { return mHeight; }

    /// Plane 0 to 3; null for a plane that the format lacks.
    std::uint8_t* plane(int index);
    const std::uint8_t* plane(int index) const;
    int linesize(int index) const { return mPlanes[index].linesize; }

    std::uint8_t& at(int index, int byte, int row) { return plane(index)[row * linesize(index) + byte]; }
    std::uint8_t at(int index, int byte, int row) const { return plane(index)[row * linesize(index) + byte]; }

    /// Bytes of a row's pixels.
    int rowBytes(int index) const { return mPlanes[index].rowBytes; }
    int rows(int index) const { return mPlanes[index].rows; }

    /// Sets runs of a plane's pixels to 0 and 255; the others stay unchanged.
    void addRuns(int index, int step, int offset, std::mt19937& random);

    /// The first byte that differs, including guards and padding, or an empty text.
    std::string difference(const Raster& expected) const;

    friend bool operator==(const Raster& a, const Raster& b) { return a.difference(b).empty(); }

private:
    struct Plane {
        std::vector<std::uint8_t> memory;
        int linesize = 0;
        int rowBytes = 0;
        int rows = 0;
    };

    int mWidth;
    int mHeight;
    int mGuard;
    Plane mPlanes[4];
};

/// The opacity as a byte, or -1 if nothing is drawn.
int referenceOpacity(double opacity);

/// The result of the public function for the format, including the peculiarity of RGBA.
void referenceBlend(RasterFormat format, Raster& dst, const Raster& src, int x, int y, double opacity);

/// For packed formats, the result of the function with Impl in its name.
void referenceBlendImpl(RasterFormat format, Raster& dst, const Raster& src, int x, int y, double opacity);

}  // namespace vidorra::test
