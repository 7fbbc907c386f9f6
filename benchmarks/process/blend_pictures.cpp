#include "blend_pictures.h"

#include <algorithm>
#include <random>

namespace vidorra::bench {

unsigned char alphaAt(Shape shape, int x, int y, int width, int height, unsigned noise) {
    if (shape == Shape::Dense) {
        return static_cast<unsigned char>(1 + noise % 254);
    }
    const double dx = (2.0 * x - width) / width;
    const double dy = (2.0 * y - height) / height;
    const double edge = (0.8 - dx * dx - dy * dy) * 2000;
    return static_cast<unsigned char>(std::clamp(edge, 0.0, 255.0));
}

BlendSize::BlendSize(bool shortRun)
    : width(shortRun ? 192 : 1920),
      height(shortRun ? 108 : 1080),
      ringBytes(shortRun ? 1 << 18 : std::size_t{400} << 20) {}

BlendPair makeBlendPair(const BlendSize& size, const BlendLayout& layout) {
    BlendPair pair{makeMemory(layout.dstBytes), makeMemory(layout.srcBytes), makeMemory(size.pixels())};
    // Of other bytes than the destination, which begins like it.
    std::reverse(pair.src.get(), pair.src.get() + layout.srcBytes);
    std::mt19937 random(7);
    for (int y = 0; y < size.height; ++y) {
        for (int x = 0; x < size.width; ++x) {
            const std::size_t pixel = static_cast<std::size_t>(y) * static_cast<std::size_t>(size.width) +
                                      static_cast<std::size_t>(x);
            const unsigned char alpha = alphaAt(layout.shape, x, y, size.width, size.height, random());
            pair.alpha[pixel] = alpha;
            if (layout.alphaOffset >= 0) {
                pair.src[4 * pixel + static_cast<std::size_t>(layout.alphaOffset)] = alpha;
            }
        }
    }
    return pair;
}

std::vector<BlendPair> makeBlendRing(const BlendSize& size, const BlendLayout& layout,
                                     std::size_t bytesPerPair) {
    std::vector<BlendPair> ring(std::max<std::size_t>(2, size.ringBytes / bytesPerPair));
    for (BlendPair& pair : ring) {
        pair = makeBlendPair(size, layout);
    }
    return ring;
}

}  // namespace vidorra::bench
