#pragma once

#include <cstddef>
#include <vector>

#include "support/memory.h"

namespace vidorra::bench {

/// What an overlay's alpha is: "dense" neither 0 nor 255 anywhere, "logo" a disc with a soft edge.
enum class Shape { Dense, Logo };

/// `noise` decides where the alpha is dense.
unsigned char alphaAt(Shape shape, int x, int y, int width, int height, unsigned noise);

/// What is blended, small in a short run.
struct BlendSize {
    int width;
    int height;
    /// What a ring of pictures takes that is larger than the caches.
    std::size_t ringBytes;

    explicit BlendSize(bool shortRun);
    [[nodiscard]] std::size_t pixels() const {
        return static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
    }
};

/// A destination, a source, and the source's plane of alpha.
struct BlendPair {
    Memory dst;
    Memory src;
    Memory alpha;
};

/// What a pair has to hold.
struct BlendLayout {
    std::size_t dstBytes;
    std::size_t srcBytes;
    Shape shape;
    /// Where in each pixel of four bytes the alpha stands too; -1 for formats of which it is a plane or that
    /// have none.
    int alphaOffset;
};

BlendPair makeBlendPair(const BlendSize& size, const BlendLayout& layout);

/// Pairs that together take `size.ringBytes`, of which one picture pair reads and writes `bytesPerPair`.
std::vector<BlendPair> makeBlendRing(const BlendSize& size, const BlendLayout& layout,
                                     std::size_t bytesPerPair);

}  // namespace vidorra::bench
