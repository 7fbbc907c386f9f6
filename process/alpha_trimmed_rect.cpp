#include "vidorra/process/picture_analysis.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

#include "ffmpeg/pixel_formats.h"
#include "picture/chroma_grid.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

namespace vidorra {
namespace {

// Searches rows of pixels for a byte that is not 0. If words hold whole pixels, it searches blocks of many
// words first, then smaller ones.
class AlphaRows {
public:
    AlphaRows(const Picture& picture, const AVComponentDescriptor& component)
        : mData(picture.data()[static_cast<std::size_t>(component.plane)]),
          mStride(picture.linesize()[static_cast<std::size_t>(component.plane)]),
          mStep(component.step),
          mOffset(component.offset) {
        if (mStep <= kWord && kWord % mStep == 0) {
            mPixelsInWord = kWord / mStep;
            std::array<std::uint8_t, kWord> bytes{};
            for (int i = mOffset; i < kWord; i += mStep) {
                bytes[static_cast<std::size_t>(i)] = 0xFF;
            }
            std::memcpy(&mMask, bytes.data(), kWord);
        }
    }

    // The first visible pixel of `row` in the columns from `begin` to before `end`, or `end`.
    [[nodiscard]] int first(int row, int begin, int end) const {
        const std::uint8_t* pixels = mData + row * mStride;
        int x = begin;
        if (mPixelsInWord > 0) {
            x = skipForward<16>(pixels, x, end);
            x = skipForward<4>(pixels, x, end);
            x = skipForward<1>(pixels, x, end);
        }
        while (x < end && !isVisible(pixels, x)) {
            ++x;
        }
        return x;
    }

    // The last visible pixel of `row` in the columns from `begin` to before `end`, or `begin` - 1.
    [[nodiscard]] int last(int row, int begin, int end) const {
        const std::uint8_t* pixels = mData + row * mStride;
        int x = end;
        if (mPixelsInWord > 0) {
            x = skipBackward<16>(pixels, begin, x);
            x = skipBackward<4>(pixels, begin, x);
            x = skipBackward<1>(pixels, begin, x);
        }
        do {
            --x;
        } while (x >= begin && !isVisible(pixels, x));
        return x;
    }

private:
    static constexpr int kWord = 8;

    [[nodiscard]] bool isVisible(const std::uint8_t* pixels, int x) const {
        return pixels[std::ptrdiff_t{x} * mStep + mOffset] != 0;
    }

    template <int kWords>
    [[nodiscard]] int skipForward(const std::uint8_t* pixels, int x, int end) const {
        while (end - x >= kWords * mPixelsInWord && isClear<kWords>(pixels, x)) {
            x += kWords * mPixelsInWord;
        }
        return x;
    }
    template <int kWords>
    [[nodiscard]] int skipBackward(const std::uint8_t* pixels, int begin, int x) const {
        while (x - begin >= kWords * mPixelsInWord && isClear<kWords>(pixels, x - kWords * mPixelsInWord)) {
            x -= kWords * mPixelsInWord;
        }
        return x;
    }

    template <int kWords>
    [[nodiscard]] bool isClear(const std::uint8_t* pixels, int x) const {
        const std::uint8_t* bytes = pixels + std::ptrdiff_t{x} * mStep;
        if constexpr (kWords == 1) {
            std::uint64_t word = 0;
            std::memcpy(&word, bytes, kWord);
            return (word & mMask) == 0;
        } else {
            // Two vectors of the size that every processor has, so that one does not have to wait for the
            // other.
            using Words __attribute__((vector_size(2 * kWord))) = std::uint64_t;
            Words any[2] = {};
            for (int i = 0; i < kWords / 2; ++i) {
                Words words;
                std::memcpy(&words, bytes + i * 2 * kWord, sizeof(words));
                any[i % 2] |= words;
            }
            any[0] |= any[1];
            return ((any[0][0] | any[0][1]) & mMask) == 0;
        }
    }

    const std::uint8_t* mData;
    std::ptrdiff_t mStride;
    int mStep;
    int mOffset;
    int mPixelsInWord = 0;
    std::uint64_t mMask = 0;
};

}  // namespace

Rect alphaTrimmedRect(const Picture& picture) {
    const int width = picture.frameSize().width;
    const int height = picture.frameSize().height;
    if (!picture.hasAlpha()) {
        return {0, 0, width, height};
    }
    if (picture.empty()) {
        return {};
    }
    const AVPixFmtDescriptor& descriptor = *ffmpeg_ext::pixelFormatDescriptor(picture.pixelFormat());
    const AlphaRows alpha(picture, descriptor.comp[descriptor.nb_components - 1]);

    // Deliberate: the last row does not count as the top row, so a picture of one row has no visible pixel.
    const int last = height - 1;
    int top = 0;
    int firstX = width;
    for (; top < last; ++top) {
        firstX = alpha.first(top, 0, width);
        if (firstX < width) {
            break;
        }
    }
    if (top >= last) {
        return {};
    }

    // A row in the middle is likely to reach further than most, so that little is left to look at in the
    // others.
    const int middle = top + (last - top) / 2;

    // The leftmost column, and in it the lowest row.
    int left = std::min(firstX, alpha.first(middle, 0, firstX) + 1);
    int lowestKnown = top;
    for (int y = last; y > top; --y) {
        const int x = alpha.first(y, 0, left);
        if (x < left) {
            left = x;
            lowestKnown = y;
        }
    }

    int bottom = lowestKnown;
    int right = firstX;
    for (int y = last; y > lowestKnown; --y) {
        const int x = alpha.last(y, left, width);
        if (x >= left) {
            bottom = y;
            right = x;
            break;
        }
    }
    right = std::max(right, alpha.last(std::min(middle, bottom), right + 1, width));
    for (int y = top; y <= bottom; ++y) {
        right = std::max(right, alpha.last(y, right + 1, width));
    }

    // Enlarged to whole chroma samples on all sides.
    const Point corner = ChromaGrid(picture.pixelFormat()).down(Point{left, top});
    const Point end = ChromaGrid(picture.pixelFormat()).down(Point{right, bottom});
    const int sampleWidth = 1 << descriptor.log2_chroma_w;
    const int sampleHeight = 1 << descriptor.log2_chroma_h;
    return {corner.x, corner.y, end.x + sampleWidth - corner.x, end.y + sampleHeight - corner.y};
}

}  // namespace vidorra
