#pragma once

#include <algorithm>
#include <cstdint>

#include "process/drawing/mask_kernels.h"

namespace vidorra::masks {

/// The mask pixels along one axis that fall on a picture plane: `first` and `last` are the partial samples
/// at the ends, `whole` the full samples between them.
struct Span {
    int start;
    int first;
    int whole;
    int last;

    Span(int position, int length, int shift) {
        const int grid = (1 << shift) - 1;
        first = std::min(-position & grid, length);
        start = position >> shift;
        whole = (length - first) >> shift;
        last = (length - first) & grid;
    }
    [[nodiscard]] int samples() const { return (first > 0 ? 1 : 0) + whole + (last > 0 ? 1 : 0); }
    /// The mask pixels of the sample at `index`, out of 2 to the power of `shift`.
    [[nodiscard]] int pixels(int index, int shift) const {
        if (first > 0) {
            if (index == 0) {
                return first;
            }
            --index;
        }
        return index < whole ? 1 << shift : last;
    }
    /// The mask pixels before the sample at `index`.
    [[nodiscard]] int before(int index, int shift) const {
        return index == 0 ? 0 : first + ((index - (first > 0 ? 1 : 0)) << shift);
    }
};

/// The part of a mask that is on the picture: where it begins in the mask and in the picture.
struct Clipped {
    int mask = 0;
    int position = 0;
    int length = 0;

    Clipped(int pictureLength, int maskLength, int at) {
        const std::int64_t begin = std::max<std::int64_t>(at, 0);
        const std::int64_t end = std::min<std::int64_t>(std::int64_t{at} + maskLength, pictureLength);
        if (begin < end) {
            mask = static_cast<int>(begin - at);
            position = static_cast<int>(begin);
            length = static_cast<int>(end - begin);
        }
    }
};

/// A mask of 8 bits a pixel, or of 1 bit with the highest bit first.
struct Mask : Coverages {
    int width;
    int height;
    bool oneBit;

    [[nodiscard]] unsigned at(int x, int y) const {
        if (oneBit) {
            return (row(y)[x >> 3] >> (7 - (x & 7)) & 1U) * 255U;
        }
        return row(y)[x];
    }
};

/// The part of a plane whose coverages are computed at a time, in samples.
inline constexpr int kTileWidth = 64;
inline constexpr int kTileHeight = 32;

struct Tile {
    int x;
    int y;
    int width;
    int height;
};

/// The samples that a mask falls on, in planes of one subsampling.
class MaskedSamples {
public:
    MaskedSamples(const Mask& mask, const Clipped& columns, const Clipped& rows, int hsub, int vsub)
        : mMask(mask),
          mLeft(columns.mask),
          mTop(rows.mask),
          mHsub(hsub),
          mVsub(vsub),
          mAcross(columns.position, columns.length, mHsub),
          mDown(rows.position, rows.length, mVsub) {}

    /// Where the samples begin in the plane, and how many there are.
    [[nodiscard]] int x() const { return mAcross.start; }
    [[nodiscard]] int y() const { return mDown.start; }
    [[nodiscard]] int width() const { return mAcross.samples(); }
    [[nodiscard]] int height() const { return mDown.samples(); }

    /// Whether the bytes of the mask are the coverages themselves.
    [[nodiscard]] bool isPlain() const { return mHsub == 0 && mVsub == 0 && !mMask.oneBit; }
    [[nodiscard]] Coverages plainCoverages() const { return {mMask.row(mTop) + mLeft, mMask.stride}; }

    /// Writes the coverages of a tile.
    void average(const Bytes& coverages, const Tile& tile) const;

private:
    void averageSamples(std::uint8_t* averages, int from, int count, int y) const;

    const Mask& mMask;
    // Where the mask's part on the picture begins.
    int mLeft;
    int mTop;
    int mHsub;
    int mVsub;
    Span mAcross;
    Span mDown;
};

}  // namespace vidorra::masks
