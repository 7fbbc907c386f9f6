// Blending through masks, in tiles of a plane. The coverages of its samples, which are averages of the mask
// in subsampled planes, are repeated for all bytes of packed pixels.

#include "process/drawing/mask_blending.h"

#include <algorithm>
#include <array>
#include <cstddef>

#include "process/drawing/mask_coverage.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

namespace vidorra {
namespace masks {

using ffmpeg_ext::FFDrawColor;
using ffmpeg_ext::FFDrawContext;

namespace {

// Writes one coverage for each byte of the pixels, 0 for bytes that are not drawn. There must be room for
// another pixel after the last.
void spread(std::uint8_t* bytes, const std::uint8_t* coverages, int count, const Ink& ink) {
    std::uint32_t drawn;
    load(drawn, ink.drawn.data());
    const auto pixel = [&](int i) { return coverages[i] * 0x1010101U & drawn; };
    if (ink.step == 2) {
        for (int i = 0; i < count; ++i) {
            store(bytes + 2 * i, static_cast<std::uint16_t>(pixel(i)));
        }
    } else if (ink.step == 4) {
        for (int i = 0; i < count; ++i) {
            store(bytes + 4 * i, pixel(i));
        }
    } else {
        // The next pixel overwrites the extra bytes.
        for (int i = 0; i < count; ++i) {
            store(bytes + ink.step * i, pixel(i));
        }
    }
}

// Samples of more than 8 bits, whose weights have 16 bits.
void blendWords(const Bytes& dst, int step, unsigned fresh, unsigned alpha, const Coverages& coverages,
                int width, int rows) {
    for (int y = 0; y < rows; ++y) {
        const std::uint8_t* covered = coverages.row(y);
        for (int i = 0; i < width; ++i) {
            if (covered[i] == 0) {
                continue;
            }
            std::uint8_t* bytes = dst.row(y) + std::ptrdiff_t{i} * step;
            const unsigned old = bytes[0] | static_cast<unsigned>(bytes[1]) << 8;
            const unsigned weight = covered[i] * alpha;
            const unsigned mixed = ((0x10001U - weight) * old + weight * fresh) >> 16;
            bytes[0] = static_cast<std::uint8_t>(mixed);
            bytes[1] = static_cast<std::uint8_t>(mixed >> 8);
        }
    }
}

// The parts that are the same for all planes.
class Drawing {
public:
    Drawing(const FFDrawContext& context, const FFDrawColor& color, std::uint8_t* const* dst,
            const int* linesize, const Kernels& kernels)
        : mContext(context), mColor(color), mDst(dst), mLinesize(linesize), mKernels(kernels) {
        const bool keepsAlpha = (context.desc->flags & AV_PIX_FMT_FLAG_ALPHA) != 0 &&
                                (context.flags & ffmpeg_ext::kDrawProcessAlpha) == 0;
        mComponents = context.desc->nb_components - (keepsAlpha ? 1 : 0);
    }

    // Blends on those of two planes with the same subsampling that the format has.
    void blendPlanes(const MaskedSamples& samples, const std::array<unsigned, 2>& planes) const {
        Target targets[2];
        int count = 0;
        for (const unsigned plane : planes) {
            if (drawsOn(plane)) {
                targets[count++] = targetFor(plane, samples);
            }
        }
        // The mask itself has a coverage for each byte.
        if (samples.isPlain() && std::all_of(targets, targets + count,
                                             [](const Target& target) { return target.ink.step == 1; })) {
            for (int i = 0; i < count; ++i) {
                mKernels.blendRows(targets[i].first, samples.plainCoverages(), samples.width(),
                                   samples.height(), targets[i].ink);
            }
            return;
        }
        for (int y = 0; y < samples.height() && count > 0; y += kTileHeight) {
            for (int x = 0; x < samples.width(); x += kTileWidth) {
                const Tile tile{x, y, std::min(kTileWidth, samples.width() - x),
                                std::min(kTileHeight, samples.height() - y)};
                blendTile(samples, tile, targets, count);
            }
        }
    }

private:
    // A plane, from the first sample on.
    struct Target {
        int plane = 0;
        Bytes first{};
        Ink ink;
    };

    [[nodiscard]] bool isWide() const { return mContext.desc->comp[0].depth > 8; }

    [[nodiscard]] bool drawsOn(unsigned plane) const {
        const AVComponentDescriptor* first = mContext.desc->comp;
        return std::any_of(first, first + mComponents, [plane](const AVComponentDescriptor& component) {
            return component.plane == static_cast<int>(plane);
        });
    }

    [[nodiscard]] Target targetFor(unsigned plane, const MaskedSamples& samples) const {
        Target target;
        target.plane = static_cast<int>(plane);
        const Bytes whole{mDst[plane], mLinesize[plane]};
        target.first = {whole.row(samples.y()) + std::ptrdiff_t{samples.x()} * mContext.pixelstep[plane],
                        whole.stride};
        Ink& ink = target.ink;
        ink.step = mContext.pixelstep[plane];
        if (isWide()) {
            // Deliberate: full coverage stays 1/255 below the whole.
            ink.alpha = (0x101U * mColor.rgba[3] + 2) >> 8;
            return target;
        }
        ink.alpha = (0x10307U * mColor.rgba[3] + 3) >> 8;
        const auto step = static_cast<std::size_t>(ink.step);
        std::copy_n(mColor.comp[plane], step, ink.bytes.begin());
        for (std::size_t i = step; i < ink.bytes.size(); ++i) {
            ink.bytes[i] = ink.bytes[i - step];
        }
        for (int i = 0; i < mComponents; ++i) {
            const AVComponentDescriptor& component = mContext.desc->comp[i];
            if (component.plane == target.plane) {
                ink.drawn[static_cast<std::size_t>(component.offset)] = 255;
            }
        }
        return target;
    }

    void blendTile(const MaskedSamples& samples, const Tile& tile, const Target* targets, int count) const {
        // Not cleared, since only written bytes are read.
        std::uint8_t averages[kTileWidth * kTileHeight];
        Coverages coverages{averages, kTileWidth};
        if (samples.isPlain()) {
            coverages = samples.plainCoverages();
            coverages.data = coverages.row(tile.y) + tile.x;
        } else {
            samples.average({averages, kTileWidth}, tile);
        }
        for (int i = 0; i < count; ++i) {
            const Target& target = targets[i];
            const Bytes dst{target.first.row(tile.y) + std::ptrdiff_t{tile.x} * target.ink.step,
                            target.first.stride};
            if (isWide()) {
                blendWide(target, dst, coverages, tile);
            } else if (target.ink.step > 1) {
                blendPacked(target, dst, coverages, tile);
            } else {
                mKernels.blendRows(dst, coverages, tile.width, tile.height, target.ink);
            }
        }
    }

    void blendPacked(const Target& target, const Bytes& dst, const Coverages& coverages,
                     const Tile& tile) const {
        std::uint8_t spreads[(kTileWidth * kTileHeight + 1) * kLargestStep];
        const Bytes bytes{spreads, std::ptrdiff_t{kTileWidth} * target.ink.step};
        for (int y = 0; y < tile.height; ++y) {
            spread(bytes.row(y), coverages.row(y), tile.width, target.ink);
        }
        mKernels.blendRows(dst, {bytes.data, bytes.stride}, tile.width * target.ink.step, tile.height,
                           target.ink);
    }

    void blendWide(const Target& target, const Bytes& dst, const Coverages& coverages,
                   const Tile& tile) const {
        for (int i = 0; i < mComponents; ++i) {
            const AVComponentDescriptor& component = mContext.desc->comp[i];
            if (component.plane == target.plane) {
                const std::uint8_t* value = mColor.comp[target.plane] + component.offset;
                blendWords({dst.data + component.offset, dst.stride}, target.ink.step,
                           value[0] | static_cast<unsigned>(value[1]) << 8, target.ink.alpha, coverages,
                           tile.width, tile.height);
            }
        }
    }

    const FFDrawContext& mContext;
    const FFDrawColor& mColor;
    std::uint8_t* const* mDst;
    const int* mLinesize;
    const Kernels& mKernels;
    // The components before an alpha component that stays unchanged.
    int mComponents;
};

}  // namespace

void blendMask(const Kernels& kernels, const FFDrawContext& draw, const FFDrawColor& color,
               std::uint8_t* const dst[], const int dstLinesize[], int dstWidth, int dstHeight,
               const Mask& mask, int x0, int y0) {
    const Clipped columns(dstWidth, mask.width, x0);
    const Clipped rows(dstHeight, mask.height, y0);
    if (columns.length == 0 || rows.length == 0 || color.rgba[3] == 0) {
        return;
    }
    const Drawing drawing(draw, color, dst, dstLinesize, kernels);
    drawing.blendPlanes(MaskedSamples(mask, columns, rows, 0, 0), {0, 3});
    drawing.blendPlanes(MaskedSamples(mask, columns, rows, draw.hsub[1], draw.vsub[1]), {1, 2});
}

}  // namespace masks

void ffmpeg_ext::ff_blend_mask(const FFDrawContext* draw, const FFDrawColor* color, std::uint8_t* const dst[],
                               const int dstLinesize[], int dstWidth, int dstHeight, const std::uint8_t* mask,
                               int maskLinesize, int maskWidth, int maskHeight, int l2depth,
                               unsigned /*endianness*/, int x0, int y0) {
    masks::blendMask(masks::kernels(), *draw, *color, dst, dstLinesize, dstWidth, dstHeight,
                     {{mask, maskLinesize}, maskWidth, maskHeight, l2depth == 0}, x0, y0);
}

}  // namespace vidorra
