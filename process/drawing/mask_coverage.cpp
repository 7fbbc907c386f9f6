#include "process/drawing/mask_coverage.h"

namespace vidorra::masks {
namespace {

// Averages of 2 by 2 bytes; zeros replace the second row when `below` is null.
template <class Pairs, class Averages>
void averageSquaresBy(std::uint8_t* averages, const std::uint8_t* row, const std::uint8_t* below) {
    // The order of the two bytes does not matter.
    Pairs pairs;
    load(pairs, row);
    Pairs sum = (pairs & 0xff) + (pairs >> 8);
    if (below != nullptr) {
        load(pairs, below);
        sum += (pairs & 0xff) + (pairs >> 8);
    }
    store(averages, __builtin_convertvector(sum >> 2, Averages));
}

void averageSquare(std::uint8_t* average, const std::uint8_t* row, const std::uint8_t* below) {
    *average =
        static_cast<std::uint8_t>((row[0] + row[1] + (below != nullptr ? below[0] + below[1] : 0)) >> 2);
}

// Averages a row of squares. The last vector ends with the row and may overlap the one before.
void averageSquares(std::uint8_t* averages, const std::uint8_t* row, const std::uint8_t* below, int count) {
    using Pairs8 __attribute__((vector_size(16))) = std::uint16_t;
    using Pairs4 __attribute__((vector_size(8))) = std::uint16_t;
    using Averages8 __attribute__((vector_size(8))) = std::uint8_t;
    using Averages4 __attribute__((vector_size(4))) = std::uint8_t;
    const auto from = [&](int sample, auto average) {
        average(averages + sample, row + 2 * sample, below != nullptr ? below + 2 * sample : nullptr);
    };
    if (count >= 8) {
        for (int i = 0; i < count - 8; i += 8) {
            from(i, averageSquaresBy<Pairs8, Averages8>);
        }
        from(count - 8, averageSquaresBy<Pairs8, Averages8>);
    } else if (count >= 4) {
        from(0, averageSquaresBy<Pairs4, Averages4>);
        from(count - 4, averageSquaresBy<Pairs4, Averages4>);
    } else {
        for (int i = 0; i < count; ++i) {
            from(i, averageSquare);
        }
    }
}

std::uint8_t averageOfOneColumn(const std::uint8_t* row, const std::uint8_t* below) {
    return static_cast<std::uint8_t>((row[0] + (below != nullptr ? below[0] : 0)) >> 2);
}

}  // namespace

void MaskedSamples::average(const Bytes& coverages, const Tile& tile) const {
    for (int y = 0; y < tile.height; ++y) {
        std::uint8_t* out = coverages.row(y);
        if (mMask.oneBit || mHsub != 1 || mVsub != 1) {
            averageSamples(out, tile.x, tile.width, tile.y + y);
            continue;
        }
        // Samples at the ends may be covered by only one column.
        const int before = mAcross.first > 0 ? 1 : 0;
        const int head = tile.x == 0 ? before : 0;
        const int whole = std::clamp(before + mAcross.whole - tile.x - head, 0, tile.width - head);
        const int tail = tile.width - head - whole;
        const int left = mLeft + mAcross.before(tile.x + head, mHsub);
        const int top = mTop + mDown.before(tile.y + y, mVsub);
        const std::uint8_t* row = mMask.row(top) + left;
        const std::uint8_t* below = mDown.pixels(tile.y + y, mVsub) > 1 ? mMask.row(top + 1) + left : nullptr;
        if (head > 0) {
            out[0] = averageOfOneColumn(row - 1, below != nullptr ? below - 1 : nullptr);
        }
        averageSquares(out + head, row, below, whole);
        if (tail > 0) {
            out[head + whole] =
                averageOfOneColumn(row + 2 * whole, below != nullptr ? below + 2 * whole : nullptr);
        }
    }
}

void MaskedSamples::averageSamples(std::uint8_t* averages, int from, int count, int y) const {
    const int top = mTop + mDown.before(y, mVsub);
    const int rows = mDown.pixels(y, mVsub);
    for (int i = 0; i < count; ++i) {
        const int left = mLeft + mAcross.before(from + i, mHsub);
        const int columns = mAcross.pixels(from + i, mHsub);
        unsigned sum = 0;
        for (int row = 0; row < rows; ++row) {
            for (int column = 0; column < columns; ++column) {
                sum += mMask.at(left + column, top + row);
            }
        }
        averages[i] = static_cast<std::uint8_t>(sum >> (mHsub + mVsub));
    }
}

}  // namespace vidorra::masks
