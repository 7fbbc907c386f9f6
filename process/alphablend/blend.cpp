// The public functions, from arrays of pointers to planes.

#include "vidorra/process/alphablend/blend.h"

#include "process/alphablend/opacity.h"
#include "vidorra/process/alphablend/multithreaded.h"

namespace vidorra::alphablend {
namespace {

template <class F, class P>
Planes<F, P> packedPlanes(P const* data, const int* linesize, int width, int height) {
    return {width, height, data[0], linesize[0]};
}

template <class P>
Planes<pixel_format::NV12, P> nv12Planes(P const* data, const int* linesize, int width, int height) {
    return {width, height, {data[0], data[1]}, {linesize[0], linesize[1]}};
}

template <class F>
void blendPacked(unsigned char** dst, const int* dstLinesize, int dstWidth, int dstHeight,
                 const unsigned char* const* src, const int* srcLinesize, int srcWidth, int srcHeight, int x,
                 int y, double opacity, int numThreads) {
    if (const auto byte = opacityToByte(opacity)) {
        blendPlanesMultithreaded<8>(
            packedPlanes<F, unsigned char*>(dst, dstLinesize, dstWidth, dstHeight),
            packedPlanes<F, const unsigned char*>(src, srcLinesize, srcWidth, srcHeight), Point{x, y}, *byte,
            numThreads);
    }
}

}  // namespace

std::optional<Opacity> opacityToByte(double opacity) {
    const double value = opacity * 255.0;
    if (value > 255.0) {
        return Opacity(255);
    }
    // NaN fails this comparison too.
    if (!(value >= 1.0)) {
        return std::nullopt;
    }
    return Opacity(static_cast<unsigned char>(value));
}

void blendNv12(unsigned char** dst, const int* dstLinesize, int dstWidth, int dstHeight,
               const unsigned char* const* src, const int* srcLinesize, int srcWidth, int srcHeight, int x,
               int y, double opacity, int numThreads) {
    if (const auto byte = opacityToByte(opacity)) {
        blendPlanesMultithreaded<8>(nv12Planes<unsigned char*>(dst, dstLinesize, dstWidth, dstHeight),
                                    nv12Planes<const unsigned char*>(src, srcLinesize, srcWidth, srcHeight),
                                    Point{x, y}, *byte, numThreads);
    }
}

void blendNva12(unsigned char** dst, const int* dstLinesize, int dstWidth, int dstHeight,
                const unsigned char* const* src, const int* srcLinesize, int srcWidth, int srcHeight, int x,
                int y, double opacity, int numThreads) {
    if (const auto byte = opacityToByte(opacity)) {
        const Planes<pixel_format::NVA12, const unsigned char*> srcPlanes = {
            srcWidth,
            srcHeight,
            {src[0], src[1], src[2], src[3]},
            {srcLinesize[0], srcLinesize[1], srcLinesize[2], srcLinesize[3]}};
        blendPlanesMultithreaded<8>(nv12Planes<unsigned char*>(dst, dstLinesize, dstWidth, dstHeight),
                                    srcPlanes, Point{x, y}, *byte, numThreads);
    }
}

void blendRgba32(unsigned char** dst, const int* dstLinesize, int dstWidth, int dstHeight,
                 const unsigned char* const* src, const int* srcLinesize, int srcWidth, int srcHeight, int x,
                 int y, double opacity, int numThreads) {
    blendPacked<pixel_format::RGBA32>(dst, dstLinesize, dstWidth, dstHeight, src, srcLinesize, srcWidth,
                                      srcHeight, x, y, opacity, numThreads);
}

void blendArgb32(unsigned char** dst, const int* dstLinesize, int dstWidth, int dstHeight,
                 const unsigned char* const* src, const int* srcLinesize, int srcWidth, int srcHeight, int x,
                 int y, double opacity, int numThreads) {
    blendPacked<pixel_format::ARGB32>(dst, dstLinesize, dstWidth, dstHeight, src, srcLinesize, srcWidth,
                                      srcHeight, x, y, opacity, numThreads);
}

void blendRgb24(unsigned char** dst, const int* dstLinesize, int dstWidth, int dstHeight,
                const unsigned char* const* src, const int* srcLinesize, int srcWidth, int srcHeight, int x,
                int y, double opacity, int numThreads) {
    blendPacked<pixel_format::RGB24>(dst, dstLinesize, dstWidth, dstHeight, src, srcLinesize, srcWidth,
                                     srcHeight, x, y, opacity, numThreads);
}

void blendBgr24(unsigned char** dst, const int* dstLinesize, int dstWidth, int dstHeight,
                const unsigned char* const* src, const int* srcLinesize, int srcWidth, int srcHeight, int x,
                int y, double opacity, int numThreads) {
    blendPacked<pixel_format::BGR24>(dst, dstLinesize, dstWidth, dstHeight, src, srcLinesize, srcWidth,
                                     srcHeight, x, y, opacity, numThreads);
}

}  // namespace vidorra::alphablend
