// Blending through masks. A row of a plane is drawn in two steps: the coverages of its samples, averages of
// the mask where the plane is subsampled, spread over the bytes of packed pixels; and the equation, byte by
// byte. Both are written once in the compilers' vector extensions and compiled for several sets of
// instructions, the best of which is chosen at run time.

#include "platform/ffmpeg/mask_blending.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

extern "C" {
#include <libavutil/pixdesc.h>
}

// Vectors wider than the registers of the baseline never cross a call: all that handles them is inlined.
#pragma GCC diagnostic ignored "-Wpsabi"

#define VIDORRA_INLINE [[gnu::always_inline]] inline

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

    [[nodiscard]] const std::uint8_t* row(int y) const { return data + y * stride; }
    [[nodiscard]] unsigned at(int x, int y) const {
        if (oneBit) {
            return (row(y)[x >> 3] >> (7 - (x & 7)) & 1U) * 255U;
        }
        return row(y)[x];
    }
};

// Samples of a row that are drawn at a time.
constexpr int kChunk = 256;
// Bytes of one pixel of 8-bit samples.
constexpr int kLargestStep = 4;
// Lanes of the widest vectors.
constexpr int kLanes = 16;

// Coverages of 0 to 255, with room for a store of a whole pixel behind the last.
using Coverages = std::array<std::uint8_t, kChunk * kLargestStep + kLargestStep>;

template <class Sample, int N>
struct VectorOf {
    using Type __attribute__((vector_size(N * sizeof(Sample)))) = Sample;
};
template <class Sample, int N>
using Vector = typename VectorOf<Sample, N>::Type;

template <class T>
VIDORRA_INLINE void load(T& value, const std::uint8_t* bytes) {
    std::memcpy(&value, bytes, sizeof(T));
}

template <class T>
VIDORRA_INLINE void store(std::uint8_t* bytes, const T& value) {
    std::memcpy(bytes, &value, sizeof(T));
}

// What is drawn into the pixels of one plane.
struct Ink {
    // Bytes of a pixel.
    int step;
    // Times a coverage of 255 at most kWhole.
    unsigned alpha;
    // The colour's bytes over and over, as far as a vector that begins within a pixel reaches.
    std::array<std::uint8_t, kLanes + kLargestStep> bytes;
    // 255 for the bytes of a pixel that are drawn.
    std::array<std::uint8_t, kLargestStep> drawn;
};

// 255 times this has 255 in its highest byte.
constexpr unsigned kWhole = 0x1010101;

// (kWhole - weight) * old + weight * fresh, which never wraps, in another order, which may in between.
template <class T>
VIDORRA_INLINE T mixed(const T& old, const T& fresh, const T& coverage, unsigned alpha) {
    return (old * kWhole + coverage * ((fresh - old) * alpha)) >> 24;
}

template <int N>
VIDORRA_INLINE Vector<std::uint8_t, N> mixedBytes(const std::uint8_t* dst, const std::uint8_t* coverages,
                                                  const std::uint8_t* fresh, unsigned alpha) {
    using Bytes = Vector<std::uint8_t, N>;
    using Words = Vector<std::uint32_t, N>;
    Bytes old;
    Bytes source;
    Bytes coverage;
    load(old, dst);
    load(source, fresh);
    load(coverage, coverages);
    return __builtin_convertvector(
        mixed(__builtin_convertvector(old, Words), __builtin_convertvector(source, Words),
              __builtin_convertvector(coverage, Words), alpha),
        Bytes);
}

// Whether N coverages are all 0.
template <int N>
VIDORRA_INLINE bool areTransparent(const std::uint8_t* coverages) {
    if constexpr (N == 4) {
        std::uint32_t word;
        load(word, coverages);
        return word == 0;
    } else {
        std::uint64_t words[N / 8];
        load(words, coverages);
        std::uint64_t any = 0;
        for (const std::uint64_t word : words) {
            any |= word;
        }
        return any == 0;
    }
}

template <int N>
VIDORRA_INLINE void blendBytes(std::uint8_t* dst, const std::uint8_t* coverages, int count, const Ink& ink) {
    if (count < N) {
        if constexpr (N > 4) {
            blendBytes<N / 2>(dst, coverages, count, ink);
        } else {
            for (int i = 0; i < count; ++i) {
                dst[i] = static_cast<std::uint8_t>(
                    mixed<unsigned>(dst[i], ink.bytes[static_cast<std::size_t>(i)], coverages[i], ink.alpha));
            }
        }
        return;
    }
    // The last vector ends with the row and is computed from what stands there before the others are stored.
    const int end = count - N;
    const Vector<std::uint8_t, N> last =
        mixedBytes<N>(dst + end, coverages + end, ink.bytes.data() + end % ink.step, ink.alpha);
    int phase = 0;
    for (int i = 0; i < end; i += N) {
        if (!areTransparent<N>(coverages + i)) {
            store(dst + i, mixedBytes<N>(dst + i, coverages + i, ink.bytes.data() + phase, ink.alpha));
        }
        phase += N % ink.step;
        phase -= phase >= ink.step ? ink.step : 0;
    }
    store(dst + end, last);
}

// Averages of 2 by 2 bytes, or of 2 by 1 and as many zeros when `below` is null.
template <int N>
VIDORRA_INLINE void averageSquares(std::uint8_t* averages, const std::uint8_t* row, const std::uint8_t* below,
                                   int count) {
    using Pairs = Vector<std::uint16_t, N>;
    int i = 0;
    for (; i + N <= count; i += N) {
        Pairs pairs;
        load(pairs, row + 2 * i);
        // The order of the two bytes does not matter.
        Pairs sum = (pairs & 0xff) + (pairs >> 8);
        if (below != nullptr) {
            load(pairs, below + 2 * i);
            sum += (pairs & 0xff) + (pairs >> 8);
        }
        store(averages + i, __builtin_convertvector(sum >> 2, Vector<std::uint8_t, N>));
    }
    if constexpr (N > 4) {
        averageSquares<N / 2>(averages + i, row + 2 * i, below != nullptr ? below + 2 * i : nullptr,
                              count - i);
    } else {
        for (; i < count; ++i) {
            unsigned sum = row[2 * i] + row[2 * i + 1];
            if (below != nullptr) {
                sum += below[2 * i] + below[2 * i + 1];
            }
            averages[i] = static_cast<std::uint8_t>(sum >> 2);
        }
    }
}

// A row of samples of subsampled planes: where it lies in the mask.
struct MaskRow {
    const Mask& mask;
    const Span& across;
    int hsub;
    int vsub;
    // The first column and row of the mask that take part, and the number of rows.
    int left;
    int top;
    int rows;

    // The first column of a sample.
    [[nodiscard]] int column(int sample) const {
        if (sample == 0) {
            return left;
        }
        return left + across.first + ((sample - (across.first > 0 ? 1 : 0)) << hsub);
    }
    // Coverages of the samples from `from` on.
    void average(std::uint8_t* coverages, int from, int count) const {
        for (int i = 0; i < count; ++i) {
            const int x = column(from + i);
            const int columns = across.pixels(from + i, hsub);
            unsigned sum = 0;
            for (int row = 0; row < rows; ++row) {
                for (int j = 0; j < columns; ++j) {
                    sum += mask.at(x + j, top + row);
                }
            }
            coverages[i] = static_cast<std::uint8_t>(sum >> (hsub + vsub));
        }
    }
};

// The coverages of samples `from` on: in the mask itself where that has them, otherwise in `buffer`.
template <int N>
VIDORRA_INLINE const std::uint8_t* coveragesOf(const MaskRow& row, int from, int count, Coverages& buffer) {
    const bool plain = !row.mask.oneBit;
    if (plain && row.hsub == 0 && row.vsub == 0) {
        return row.mask.row(row.top) + row.column(from);
    }
    if (plain && row.hsub == 1 && row.vsub == 1) {
        // Samples at the ends may be covered by one column only.
        const int firstWhole = from == 0 && row.across.first > 0 ? 1 : 0;
        const int wholeEnd = (row.across.first > 0 ? 1 : 0) + row.across.whole - from;
        const int whole = std::max(std::min(count, wholeEnd) - firstWhole, 0);
        const int behind = firstWhole + whole;
        const int x = row.column(from + firstWhole);
        row.average(buffer.data(), from, firstWhole);
        averageSquares<N>(buffer.data() + firstWhole, row.mask.row(row.top) + x,
                          row.rows > 1 ? row.mask.row(row.top + 1) + x : nullptr, whole);
        row.average(buffer.data() + behind, from + behind, count - behind);
        return buffer.data();
    }
    row.average(buffer.data(), from, count);
    return buffer.data();
}

// One coverage for each byte of the pixels, 0 for those that are not drawn.
VIDORRA_INLINE void spread(Coverages& bytes, const std::uint8_t* coverages, int count, const Ink& ink) {
    if (ink.step == 2) {
        std::uint16_t drawn;
        load(drawn, ink.drawn.data());
        for (int i = 0; i < count; ++i) {
            const auto pixel = static_cast<std::uint16_t>(coverages[i] * 0x101U & drawn);
            store(bytes.data() + 2 * i, pixel);
        }
        return;
    }
    std::uint32_t drawn;
    load(drawn, ink.drawn.data());
    if (ink.step == 4) {
        for (int i = 0; i < count; ++i) {
            const std::uint32_t pixel = coverages[i] * 0x1010101U & drawn;
            store(bytes.data() + 4 * i, pixel);
        }
        return;
    }
    // The bytes too many are those of the next pixel, or room behind the last.
    for (int i = 0; i < count; ++i) {
        const std::uint32_t pixel = coverages[i] * 0x1010101U & drawn;
        store(bytes.data() + static_cast<std::ptrdiff_t>(ink.step) * i, pixel);
    }
}

// The weights of samples of more than 8 bits have 16 bits.
void blendWords(std::uint8_t* dst, int step, unsigned source, unsigned alpha, const std::uint8_t* coverages,
                int count) {
    for (int i = 0; i < count; ++i) {
        if (coverages[i] == 0) {
            continue;
        }
        std::uint8_t* bytes = dst + std::ptrdiff_t{i} * step;
        const unsigned old = bytes[0] | static_cast<unsigned>(bytes[1]) << 8;
        const unsigned weight = coverages[i] * alpha;
        const unsigned mix = ((0x10001U - weight) * old + weight * source) >> 16;
        bytes[0] = static_cast<std::uint8_t>(mix);
        bytes[1] = static_cast<std::uint8_t>(mix >> 8);
    }
}

// What a call draws.
struct Drawing {
    const FFDrawContext& context;
    const FFDrawColor& color;
    std::uint8_t* const* dst;
    const int* linesize;
    Mask mask;
    Clipped columns;
    Clipped rows;
    // Those in front of an alpha component that stays.
    int components;

    [[nodiscard]] bool wide() const { return context.desc->comp[0].depth > 8; }
    // Deliberate: full coverage of wide samples stays a 255th below the whole.
    [[nodiscard]] unsigned alpha() const {
        return wide() ? (0x101U * color.rgba[3] + 2) >> 8 : (0x10307U * color.rgba[3] + 3) >> 8;
    }
    [[nodiscard]] bool drawsOn(unsigned plane) const {
        const AVComponentDescriptor* first = context.desc->comp;
        return std::any_of(first, first + components, [plane](const AVComponentDescriptor& component) {
            return component.plane == static_cast<int>(plane);
        });
    }
    [[nodiscard]] Ink ink(unsigned plane) const {
        Ink result{context.pixelstep[plane], alpha(), {}, {}};
        for (int i = 0; i < components; ++i) {
            const AVComponentDescriptor& component = context.desc->comp[i];
            if (component.plane == static_cast<int>(plane)) {
                result.drawn[static_cast<std::size_t>(component.offset)] = 255;
            }
        }
        for (std::size_t i = 0; i < result.bytes.size(); ++i) {
            result.bytes[i] = color.comp[plane][i % static_cast<std::size_t>(result.step)];
        }
        return result;
    }
};

void blendWide(const Drawing& drawing, unsigned plane, std::uint8_t* first, const std::uint8_t* coverages,
               int count) {
    for (int i = 0; i < drawing.components; ++i) {
        const AVComponentDescriptor& component = drawing.context.desc->comp[i];
        if (component.plane == static_cast<int>(plane)) {
            const std::uint8_t* value = drawing.color.comp[plane] + component.offset;
            blendWords(first + component.offset, drawing.context.pixelstep[plane],
                       value[0] | static_cast<unsigned>(value[1]) << 8, drawing.alpha(), coverages, count);
        }
    }
}

template <int N>
VIDORRA_INLINE void blendPlane(const Drawing& drawing, unsigned plane) {
    const FFDrawContext& context = drawing.context;
    const int hsub = context.hsub[plane];
    const int vsub = context.vsub[plane];
    const int step = context.pixelstep[plane];
    const bool wide = drawing.wide();
    const Ink ink = wide ? Ink{} : drawing.ink(plane);
    const Span across(drawing.columns.position, drawing.columns.length, hsub);
    const Span down(drawing.rows.position, drawing.rows.length, vsub);
    std::uint8_t* line = drawing.dst[plane] + down.start * std::ptrdiff_t{drawing.linesize[plane]} +
                         across.start * std::ptrdiff_t{step};
    MaskRow row{drawing.mask, across, hsub, vsub, drawing.columns.mask, drawing.rows.mask, 0};
    // Not cleared: what is read was written before.
    Coverages averages;
    Coverages bytes;
    const int samples = across.samples();
    for (int y = 0; y < down.samples(); ++y, line += drawing.linesize[plane]) {
        row.rows = down.pixels(y, vsub);
        for (int x = 0; x < samples; x += kChunk) {
            const int count = std::min(kChunk, samples - x);
            const std::uint8_t* coverages = coveragesOf<N>(row, x, count, averages);
            std::uint8_t* first = line + std::ptrdiff_t{x} * step;
            if (wide) {
                blendWide(drawing, plane, first, coverages, count);
                continue;
            }
            if (step > 1) {
                spread(bytes, coverages, count, ink);
                coverages = bytes.data();
            }
            blendBytes<N>(first, coverages, count * step, ink);
        }
        row.top += row.rows;
    }
}

using BlendPlane = void (*)(const Drawing&, unsigned);

void blendPlane4(const Drawing& drawing, unsigned plane) {
    blendPlane<4>(drawing, plane);
}

#if defined(__x86_64__)
__attribute__((target("avx2"))) void blendPlane8(const Drawing& drawing, unsigned plane) {
    blendPlane<8>(drawing, plane);
}

__attribute__((target("avx512f,avx512bw,avx512vl"))) void blendPlane16(const Drawing& drawing,
                                                                       unsigned plane) {
    blendPlane<16>(drawing, plane);
}
#endif

template <BlendPlane kBlendPlane>
void blendMask(const FFDrawContext* draw, const FFDrawColor* color, std::uint8_t* const dst[],
               const int dstLinesize[], int dstWidth, int dstHeight, const std::uint8_t* mask,
               int maskLinesize, int maskWidth, int maskHeight, int l2depth, unsigned /*endianness*/, int x0,
               int y0) {
    const bool keepsAlpha =
        (draw->desc->flags & AV_PIX_FMT_FLAG_ALPHA) != 0 && (draw->flags & kDrawProcessAlpha) == 0;
    const Drawing drawing{.context = *draw,
                          .color = *color,
                          .dst = dst,
                          .linesize = dstLinesize,
                          .mask = {mask, maskLinesize, l2depth == 0},
                          .columns = Clipped(dstWidth, maskWidth, x0),
                          .rows = Clipped(dstHeight, maskHeight, y0),
                          .components = draw->desc->nb_components - (keepsAlpha ? 1 : 0)};
    if (drawing.columns.length == 0 || drawing.rows.length == 0 || color->rgba[3] == 0) {
        return;
    }
    for (unsigned plane = 0; plane < draw->nb_planes; ++plane) {
        if (drawing.drawsOn(plane)) {
            kBlendPlane(drawing, plane);
        }
    }
}

BlendMask bestBlendMask() {
    for (const int lanes : {16, 8}) {
        if (BlendMask blend = blendMaskOn(lanes)) {
            return blend;
        }
    }
    return blendMask<blendPlane4>;
}

const BlendMask kBestBlendMask = bestBlendMask();

}  // namespace

BlendMask blendMaskOn(int lanes) {
#if defined(__x86_64__)
    if (lanes == 16 && __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
        __builtin_cpu_supports("avx512vl")) {
        return blendMask<blendPlane16>;
    }
    if (lanes == 8 && __builtin_cpu_supports("avx2")) {
        return blendMask<blendPlane8>;
    }
#endif
    return lanes == 4 ? blendMask<blendPlane4> : nullptr;
}

void ff_blend_mask(const FFDrawContext* draw, const FFDrawColor* color, std::uint8_t* const dst[],
                   const int dstLinesize[], int dstWidth, int dstHeight, const std::uint8_t* mask,
                   int maskLinesize, int maskWidth, int maskHeight, int l2depth, unsigned endianness, int x0,
                   int y0) {
    kBestBlendMask(draw, color, dst, dstLinesize, dstWidth, dstHeight, mask, maskLinesize, maskWidth,
                   maskHeight, l2depth, endianness, x0, y0);
}

}  // namespace vidorra::ffmpeg_ext
