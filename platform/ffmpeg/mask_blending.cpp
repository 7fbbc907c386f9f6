#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

#include "platform/ffmpeg/drawing.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

namespace vidorra::ffmpeg_ext {
namespace {

// Mask pixels along one axis that fall on one picture plane: `first` and `last` are the parts of a sample at
// the ends, `whole` the full samples between them.
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
    // Mask pixels of the sample at `index`, of 2 to the power of `shift`.
    [[nodiscard]] int pixels(int index, int shift) const {
        if (first > 0) {
            if (index == 0) {
                return first;
            }
            --index;
        }
        return index < whole ? 1 << shift : last;
    }
};

// The part of a mask that lies on the picture: where it begins in the mask and in the picture.
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

struct Mask {
    const std::uint8_t* data;
    std::ptrdiff_t stride;
    bool oneBit;

    [[nodiscard]] unsigned at(int x, int y) const {
        const std::uint8_t* row = data + y * stride;
        if (oneBit) {
            return (row[x >> 3] >> (7 - (x & 7)) & 1U) * 255U;
        }
        return row[x];
    }
};

// Coverages of 0 to 255 of neighbouring samples of a plane.
constexpr int kChunk = 256;
using Coverages = std::array<std::uint32_t, kChunk>;

// The weights of 8-bit samples have 24 bits, those of wider ones 16 bits.
void blendBytes(std::uint8_t* dst, int step, unsigned source, unsigned alpha, const Coverages& coverages,
                int count) {
    for (int i = 0; i < count; ++i) {
        const unsigned weight = coverages[static_cast<std::size_t>(i)] * alpha;
        dst[i * step] =
            static_cast<std::uint8_t>(((0x1010101U - weight) * dst[i * step] + weight * source) >> 24);
    }
}

void blendWords(std::uint8_t* dst, int step, unsigned source, unsigned alpha, const Coverages& coverages,
                int count) {
    for (int i = 0; i < count; ++i) {
        std::uint8_t* bytes = dst + i * step;
        const unsigned old = bytes[0] | static_cast<unsigned>(bytes[1]) << 8;
        const unsigned weight = coverages[static_cast<std::size_t>(i)] * alpha;
        const unsigned mixed = ((0x10001U - weight) * old + weight * source) >> 16;
        bytes[0] = static_cast<std::uint8_t>(mixed);
        bytes[1] = static_cast<std::uint8_t>(mixed >> 8);
    }
}

}  // namespace

void ff_blend_mask(const FFDrawContext* draw, const FFDrawColor* color, std::uint8_t* const dst[],
                   const int dstLinesize[], int dstWidth, int dstHeight, const std::uint8_t* mask,
                   int maskLinesize, int maskWidth, int maskHeight, int l2depth, unsigned /*endianness*/,
                   int x0, int y0) {
    const Clipped columns(dstWidth, maskWidth, x0);
    const Clipped rows(dstHeight, maskHeight, y0);
    if (columns.length == 0 || rows.length == 0 || color->rgba[3] == 0) {
        return;
    }
    const Mask coverage{mask + rows.mask * std::ptrdiff_t{maskLinesize}, maskLinesize, l2depth == 0};
    const bool keepsAlpha =
        (draw->desc->flags & AV_PIX_FMT_FLAG_ALPHA) != 0 && (draw->flags & kDrawProcessAlpha) == 0;
    const int components = draw->desc->nb_components - (keepsAlpha ? 1 : 0);
    const bool wide = draw->desc->comp[0].depth > 8;
    // Times a coverage of 255 at most the whole weight. Deliberate: of wide samples it stays a 255th below.
    const unsigned alpha = wide ? (0x101U * color->rgba[3] + 2) >> 8 : (0x10307U * color->rgba[3] + 3) >> 8;

    for (unsigned plane = 0; plane < draw->nb_planes; ++plane) {
        const int hsub = draw->hsub[plane];
        const int vsub = draw->vsub[plane];
        const int step = draw->pixelstep[plane];
        if (step == 0) {
            continue;
        }
        const Span across(columns.position, columns.length, hsub);
        const Span down(rows.position, rows.length, vsub);
        std::uint8_t* line = dst[plane] + down.start * std::ptrdiff_t{dstLinesize[plane]} +
                             across.start * std::ptrdiff_t{step};
        int maskY = 0;
        for (int y = 0; y < down.samples(); ++y, line += dstLinesize[plane]) {
            const int maskRows = down.pixels(y, vsub);
            int maskX = columns.mask;
            for (int x = 0; x < across.samples(); x += kChunk) {
                const int count = std::min(kChunk, across.samples() - x);
                Coverages coverages;
                for (int i = 0; i < count; ++i) {
                    const int maskColumns = across.pixels(x + i, hsub);
                    unsigned sum = 0;
                    for (int row = 0; row < maskRows; ++row) {
                        for (int column = 0; column < maskColumns; ++column) {
                            sum += coverage.at(maskX + column, maskY + row);
                        }
                    }
                    coverages[static_cast<std::size_t>(i)] = sum >> (hsub + vsub);
                    maskX += maskColumns;
                }
                for (int i = 0; i < components; ++i) {
                    const AVComponentDescriptor& component = draw->desc->comp[i];
                    if (component.plane != static_cast<int>(plane)) {
                        continue;
                    }
                    const std::uint8_t* value = color->comp[plane] + component.offset;
                    std::uint8_t* first = line + std::ptrdiff_t{x} * step + component.offset;
                    if (wide) {
                        blendWords(first, step, value[0] | static_cast<unsigned>(value[1]) << 8, alpha,
                                   coverages, count);
                    } else {
                        blendBytes(first, step, value[0], alpha, coverages, count);
                    }
                }
            }
            maskY += maskRows;
        }
    }
}

}  // namespace vidorra::ffmpeg_ext
