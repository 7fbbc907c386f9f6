#include "z5_hw_accel/scaler.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <vector>

namespace z5::hw::accel {
namespace {

// Weights are whole numbers of this many bits. Between the two passes samples have 7 more bits.
constexpr int kWeightBits = 14;
constexpr int kBetweenBits = 7;

struct Tap {
    int index;
    int weight;
};

// The samples of a line that contribute to each sample of a line of another length, weighted by a triangle
// around the position of the new sample, as wide as two samples of the coarser line. Weights add up to
// exactly one, so uniform areas stay uniform. Positions are in units of 1 / (2 * dstLength), so they are
// whole numbers.
class Filter {
public:
    Filter(int srcLength, int dstLength) {
        const std::int64_t unit = 2 * std::int64_t{dstLength};
        const std::int64_t reach = 2 * std::int64_t{std::max(srcLength, dstLength)};
        mStarts.reserve(static_cast<std::size_t>(dstLength) + 1);
        for (std::int64_t i = 0; i < dstLength; ++i) {
            mStarts.push_back(mTaps.size());
            // The centre of the new sample, relative to the centre of the first old one.
            const std::int64_t middle = (2 * i + 1) * srcLength - dstLength;
            const std::int64_t first = floorDivided(middle - reach, unit) + 1;
            const std::int64_t last = floorDivided(middle + reach - 1, unit);
            std::int64_t total = 0;
            for (std::int64_t j = first; j <= last; ++j) {
                total += reach - std::abs(unit * j - middle);
            }
            std::int64_t sum = 0;
            int given = 0;
            for (std::int64_t j = first; j <= last; ++j) {
                sum += reach - std::abs(unit * j - middle);
                // Rounding the sums and not the weights makes the last sum exactly one.
                const auto rounded = static_cast<int>(((sum << kWeightBits) + total / 2) / total);
                // The edge sample is repeated past the edge.
                const auto index = static_cast<int>(std::clamp<std::int64_t>(j, 0, srcLength - 1));
                mTaps.push_back({index, rounded - given});
                given = rounded;
            }
        }
        mStarts.push_back(mTaps.size());
    }

    [[nodiscard]] const Tap* begin(int index) const { return mTaps.data() + mStarts[index]; }
    [[nodiscard]] const Tap* end(int index) const { return mTaps.data() + mStarts[index + 1]; }

private:
    static std::int64_t floorDivided(std::int64_t a, std::int64_t b) {
        return a >= 0 ? a / b : -((-a + b - 1) / b);
    }

    std::vector<Tap> mTaps;
    std::vector<std::size_t> mStarts;
};

template <class T>
struct Plane {
    T* data;
    std::ptrdiff_t linesize;
    int width;
    int height;
};

// Planes of `Components` interleaved bytes.
template <int Components>
void scalePlane(const Plane<std::uint8_t>& dst, const Plane<const std::uint8_t>& src) {
    const Filter columns(src.width, dst.width);
    const Filter rows(src.height, dst.height);
    std::vector<int> line(static_cast<std::size_t>(src.width) * Components);
    for (int y = 0; y < dst.height; ++y) {
        std::fill(line.begin(), line.end(), 0);
        for (const Tap* tap = rows.begin(y); tap != rows.end(y); ++tap) {
            const std::uint8_t* const source = src.data + tap->index * src.linesize;
            for (std::size_t i = 0; i < line.size(); ++i) {
                line[i] += tap->weight * source[i];
            }
        }
        constexpr int kCut = kWeightBits - kBetweenBits;
        for (int& sample : line) {
            sample = (sample + (1 << (kCut - 1))) >> kCut;
        }
        std::uint8_t* const target = dst.data + y * dst.linesize;
        for (int x = 0; x < dst.width; ++x) {
            int sums[Components] = {};
            for (const Tap* tap = columns.begin(x); tap != columns.end(x); ++tap) {
                const int* const samples = line.data() + std::ptrdiff_t{tap->index} * Components;
                for (int c = 0; c < Components; ++c) {
                    sums[c] += tap->weight * samples[c];
                }
            }
            constexpr int kBits = kWeightBits + kBetweenBits;
            for (int c = 0; c < Components; ++c) {
                target[x * Components + c] =
                    static_cast<std::uint8_t>((sums[c] + (1 << (kBits - 1))) >> kBits);
            }
        }
    }
}

constexpr int half(int length) {
    return length / 2 + length % 2;
}

void check(bool right, const char* text) {
    if (!right) {
        throw std::invalid_argument(text);
    }
}

template <class T>
void checkBuffer(const Nv12Buffer<T>& buffer) {
    check(buffer.luma != nullptr && buffer.chroma != nullptr, "z5 hw accel: a buffer to scale lacks a plane");
    check(buffer.width >= 1 && buffer.height >= 1, "z5 hw accel: a buffer to scale has no pixels");
    check(buffer.linesize / 2 >= half(buffer.width), "z5 hw accel: a row to scale is wider than a line");
}

}  // namespace

Scaler::Scaler(int device) noexcept : mDevice(device) {}

void Scaler::process(Nv12Buffer<void>&& dst, Nv12Buffer<const void>&& src, unsigned int /*flags*/) const {
    checkBuffer(dst);
    checkBuffer(src);
    check((dst.alpha == nullptr) == (src.alpha == nullptr),
          "z5 hw accel: one of the buffers to scale lacks an alpha plane");
    const auto scaleFull = [&](void* to, const void* from) {
        scalePlane<1>({static_cast<std::uint8_t*>(to), dst.linesize, dst.width, dst.height},
                      {static_cast<const std::uint8_t*>(from), src.linesize, src.width, src.height});
    };
    scaleFull(dst.luma, src.luma);
    scalePlane<2>(
        {static_cast<std::uint8_t*>(dst.chroma), dst.linesize, half(dst.width), half(dst.height)},
        {static_cast<const std::uint8_t*>(src.chroma), src.linesize, half(src.width), half(src.height)});
    if (dst.alpha != nullptr) {
        scaleFull(dst.alpha, src.alpha);
    }
}

}  // namespace z5::hw::accel
