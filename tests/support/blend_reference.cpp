#include "support/blend_reference.h"

#include <algorithm>
#include <cmath>

namespace vidorra::test {
namespace {

int bytesPerPixel(RasterFormat format) {
    return format == RasterFormat::Rgb24 || format == RasterFormat::Bgr24 ? 3 : 4;
}

bool semiPlanar(RasterFormat format) {
    return format == RasterFormat::Nv12 || format == RasterFormat::Nva12;
}

int floorHalf(int value) {
    return static_cast<int>(std::floor(value / 2.0));
}

// The positions of the first sample in the source and in the destination, along one axis.
struct Span {
    int src;
    int dst;
    int length;

    Span(int position, int srcLength, int dstLength) {
        src = position < 0 ? -position : 0;
        dst = position > 0 ? position : 0;
        length = std::min(srcLength - src, dstLength - dst);
    }
};

// The offset of a chroma plane, in pairs: rounded towards minus infinity before its sign is removed.
int chromaSrc(int position) {
    return position < 0 ? -floorHalf(position) : 0;
}
int chromaDst(int position) {
    return position > 0 ? floorHalf(position) : 0;
}

void blendSemiPlanar(RasterFormat format, Raster& dst, const Raster& src, int px, int py, int opacity) {
    const Span x(px, src.width(), dst.width());
    const Span y(py, src.height(), dst.height());
    if (x.length <= 0 || y.length <= 0) {
        return;
    }
    const bool ownAlpha = format == RasterFormat::Nva12;
    const int evenColumns = x.length / 2 * 2;
    for (int row = 0; row < y.length / 2 * 2; ++row) {
        for (int column = 0; column < x.length; ++column) {
            const int s = src.at(0, x.src + column, y.src + row);
            std::uint8_t& d = dst.at(0, x.dst + column, y.dst + row);
            if (column == evenColumns) {
                d = ownAlpha ? d : referenceBlend255(s, d, opacity);
            } else if (ownAlpha) {
                const int a = src.at(3, x.src + column, y.src + row);
                d = referenceBlend256(s, d, referenceFaded(a, opacity), a);
            } else {
                d = referenceBlend256(s, d, opacity, opacity);
            }
        }
    }
    for (int row = 0; row < y.length / 2; ++row) {
        for (int column = 0; column < x.length; ++column) {
            if (ownAlpha && column == evenColumns) {
                // Unchanged; the source may have no byte there.
                continue;
            }
            const int s = src.at(1, 2 * chromaSrc(px) + column, chromaSrc(py) + row);
            std::uint8_t& d = dst.at(1, 2 * chromaDst(px) + column, chromaDst(py) + row);
            if (column == evenColumns) {
                d = ownAlpha ? d : referenceBlend255(s, d, opacity);
            } else if (ownAlpha) {
                int sum = 0;
                for (int i : {0, 1}) {
                    for (int j : {0, 1}) {
                        sum += src.at(3, x.src + column / 2 * 2 + i, y.src + 2 * row + j);
                    }
                }
                d = referenceBlend256(s, d, referenceFaded(sum / 4, opacity), sum / 4);
            } else {
                d = referenceBlend256(s, d, opacity, opacity);
            }
        }
    }
}

void blendPacked(RasterFormat format, Raster& dst, const Raster& src, int px, int py, int opacity) {
    const int bytes = bytesPerPixel(format);
    const int alphaByte = format == RasterFormat::Rgba ? 3 : format == RasterFormat::Argb ? 0 : -1;
    for (int row = 0; row < src.height(); ++row) {
        for (int column = 0; column < src.width(); ++column) {
            const long dstRow = long{row} + py;
            const long dstColumn = long{column} + px;
            if (dstRow < 0 || dstRow >= dst.height() || dstColumn < 0 || dstColumn >= dst.width()) {
                continue;
            }
            const int a =
                alphaByte < 0 ? opacity : referenceFaded(src.at(0, column * bytes + alphaByte, row), opacity);
            for (int i = 0; i < bytes; ++i) {
                if (i != alphaByte) {
                    std::uint8_t& d =
                        dst.at(0, static_cast<int>(dstColumn) * bytes + i, static_cast<int>(dstRow));
                    d = referenceBlend255(src.at(0, column * bytes + i, row), d, a);
                }
            }
        }
    }
}

}  // namespace

std::uint8_t referenceBlend255(int s, int d, int a) {
    return static_cast<std::uint8_t>((2 * (s * a + d * (255 - a)) + 255) / 510);
}

int referenceFaded(int alpha, int opacity) {
    return (alpha * opacity + 255) / 256;
}

std::uint8_t referenceBlend256(int s, int d, int sWeight, int dWeight) {
    return static_cast<std::uint8_t>((s * (sWeight + 1) + d * (256 - dWeight)) / 256);
}

Raster::Raster(RasterFormat format, int width, int height, int padding, int guard, std::mt19937& random)
    : mWidth(width), mHeight(height), mGuard(guard) {
    const auto makePlane = [&](int index, int rowBytes, int rows) {
        Plane& result = mPlanes[index];
        result.rowBytes = rowBytes;
        result.rows = rows;
        result.linesize = rowBytes + padding;
        const int size = rows > 0 ? (rows - 1) * result.linesize + rowBytes : 0;
        result.memory.resize(static_cast<std::size_t>(size + 2 * guard));
        for (std::uint8_t& byte : result.memory) {
            byte = static_cast<std::uint8_t>(random());
        }
    };
    if (semiPlanar(format)) {
        makePlane(0, width, height);
        makePlane(1, (width + 1) / 2 * 2, (height + 1) / 2);
        if (format == RasterFormat::Nva12) {
            makePlane(3, width, height);
        }
    } else {
        makePlane(0, width * bytesPerPixel(format), height);
    }
}

std::uint8_t* Raster::plane(int index) {
    return mPlanes[index].memory.empty() ? nullptr : mPlanes[index].memory.data() + mGuard;
}

const std::uint8_t* Raster::plane(int index) const {
    return mPlanes[index].memory.empty() ? nullptr : mPlanes[index].memory.data() + mGuard;
}

void Raster::addRuns(int index, int step, int offset, std::mt19937& random) {
    for (int row = 0; row < rows(index); ++row) {
        for (int byte = offset; byte < rowBytes(index);) {
            const unsigned kind = random() % 3;
            const int end = byte + static_cast<int>(random() % 200) * step;
            for (; byte < std::min(end + 1, rowBytes(index)); byte += step) {
                if (kind != 2) {
                    at(index, byte, row) = kind == 0 ? 0 : 255;
                }
            }
        }
    }
}

std::string Raster::difference(const Raster& expected) const {
    for (int index = 0; index < 4; ++index) {
        const Plane& ours = mPlanes[index];
        const Plane& theirs = expected.mPlanes[index];
        if (ours.memory.size() != theirs.memory.size()) {
            return "sizes differ";
        }
        const auto at = std::mismatch(ours.memory.begin(), ours.memory.end(), theirs.memory.begin());
        if (at.first != ours.memory.end()) {
            const auto offset = at.first - ours.memory.begin() - mGuard;
            return "plane " + std::to_string(index) + ", byte " + std::to_string(offset) + " (line size " +
                   std::to_string(ours.linesize) + "): " + std::to_string(*at.first) + " instead of " +
                   std::to_string(*at.second);
        }
    }
    return {};
}

int referenceOpacity(double opacity) {
    const double scaled = opacity * 255.0;
    if (std::isnan(scaled) || scaled < 1.0) {
        return -1;
    }
    return static_cast<int>(std::floor(std::min(scaled, 255.0)));
}

void referenceBlendImpl(RasterFormat format, Raster& dst, const Raster& src, int x, int y, double opacity) {
    const int byte = referenceOpacity(opacity);
    if (byte < 0) {
        return;
    }
    if (semiPlanar(format)) {
        blendSemiPlanar(format, dst, src, x, y, byte);
    } else {
        blendPacked(format, dst, src, x, y, byte);
    }
}

void referenceBlend(RasterFormat format, Raster& dst, const Raster& src, int x, int y, double opacity) {
    if (format == RasterFormat::Rgba && referenceOpacity(opacity) > 0) {
        opacity = 1.0;
    }
    referenceBlendImpl(format, dst, src, x, y, opacity);
}

}  // namespace vidorra::test
