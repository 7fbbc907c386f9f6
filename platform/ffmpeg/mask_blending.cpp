// Blending through masks, in tiles of a plane: the coverages of its samples, which are averages of the mask
// where the plane is subsampled, are spread over the bytes of packed pixels; then the equation is the same
// for all bytes, whatever the format. It stands here for several sets of instructions, the best of which is
// chosen when the library is loaded. On x86 it is in intrinsics: wide vectors of the compiler's extensions
// are split into narrow ones before a function of another set takes them in.

#include "platform/ffmpeg/mask_blending.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "platform/cpu/instructions.h"

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
    // Mask pixels in front of the sample at `index`.
    [[nodiscard]] int before(int index, int shift) const {
        return index == 0 ? 0 : first + ((index - (first > 0 ? 1 : 0)) << shift);
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

// Bytes in rows.
template <class Byte>
struct Rows {
    Byte* data;
    std::ptrdiff_t stride;

    [[nodiscard]] Byte* row(int y) const { return data + y * stride; }
};
using Bytes = Rows<std::uint8_t>;
using Coverages = Rows<const std::uint8_t>;

struct Mask : Coverages {
    bool oneBit;

    [[nodiscard]] unsigned at(int x, int y) const {
        if (oneBit) {
            return (row(y)[x >> 3] >> (7 - (x & 7)) & 1U) * 255U;
        }
        return row(y)[x];
    }
};

template <class T>
void load(T& value, const std::uint8_t* bytes) {
    std::memcpy(&value, bytes, sizeof(T));
}

template <class T>
void store(std::uint8_t* bytes, const T& value) {
    std::memcpy(bytes, &value, sizeof(T));
}

// Bytes of one pixel of 8-bit samples.
constexpr int kLargestStep = 4;
// The most bytes that are blended at a time.
constexpr int kLargestVector = 16;

// What is drawn into the pixels of one plane.
struct Ink {
    // Bytes of a pixel.
    int step = 1;
    // Times a coverage of 255 at most kWhole.
    unsigned alpha = 0;
    // The colour's bytes over and over, as far as a vector that begins within a pixel reaches.
    std::array<std::uint8_t, kLargestVector + kLargestStep> bytes{};
    // 255 for the bytes of a pixel that are drawn.
    std::array<std::uint8_t, kLargestStep> drawn{};
};

// Where in the colour's bytes a vector begins, from one vector of a row to the next.
class Phase {
public:
    Phase(const Ink& ink, int vector) : mStep(ink.step), mAdvance(vector % ink.step) {}

    [[nodiscard]] int value() const { return mValue; }
    void advance() {
        mValue += mAdvance;
        mValue -= mValue >= mStep ? mStep : 0;
    }

private:
    int mStep;
    int mAdvance;
    int mValue = 0;
};

// This times a byte has the byte in its highest one.
constexpr unsigned kWhole = 0x1010101;

// Blends rows of bytes with one coverage for each: (kWhole - weight) * old + weight * fresh, where the weight
// is the coverage times the ink's alpha. The sum has 32 bits; the highest 8 are the result. Vectors compute
// it in another order, where the sum wraps on the way.
//
// The last vector of a row ends with it. It is computed from what stands there before the others are stored,
// so that it may overlap them.
using BlendRows = void (*)(const Bytes& dst, const Coverages& coverages, int bytes, int rows, const Ink& ink);

void blendRowsPlain(const Bytes& dst, const Coverages& coverages, int bytes, int rows, const Ink& ink) {
    for (int y = 0; y < rows; ++y) {
        std::uint8_t* line = dst.row(y);
        const std::uint8_t* covered = coverages.row(y);
        for (int i = 0; i < bytes; ++i) {
            const unsigned weight = covered[i] * ink.alpha;
            const unsigned fresh = ink.bytes[static_cast<std::size_t>(i % ink.step)];
            line[i] = static_cast<std::uint8_t>(((kWhole - weight) * line[i] + weight * fresh) >> 24);
        }
    }
}

// Four bytes as 32-bit lanes, for any processor.
using Lanes4 __attribute__((vector_size(16))) = std::uint32_t;
using Bytes4 __attribute__((vector_size(4))) = std::uint8_t;

Lanes4 lanes4(const std::uint8_t* bytes) {
    Bytes4 vector;
    load(vector, bytes);
    return __builtin_convertvector(vector, Lanes4);
}

Bytes4 mixed4(const std::uint8_t* dst, const std::uint8_t* coverages, const std::uint8_t* fresh,
              unsigned alpha) {
    const Lanes4 old = lanes4(dst);
    const Lanes4 sum = old * kWhole + lanes4(coverages) * ((lanes4(fresh) - old) * alpha);
    return __builtin_convertvector(sum >> 24, Bytes4);
}

void blendRows4(const Bytes& dst, const Coverages& coverages, int bytes, int rows, const Ink& ink) {
    if (bytes < 4) {
        blendRowsPlain(dst, coverages, bytes, rows, ink);
        return;
    }
    const int end = bytes - 4;
    const int endPhase = end % ink.step;
    for (int y = 0; y < rows; ++y) {
        std::uint8_t* line = dst.row(y);
        const std::uint8_t* covered = coverages.row(y);
        const Bytes4 last = mixed4(line + end, covered + end, ink.bytes.data() + endPhase, ink.alpha);
        Phase phase(ink, 4);
        for (int i = 0; i < end; i += 4, phase.advance()) {
            std::uint32_t any;
            load(any, covered + i);
            if (any != 0) {
                store(line + i, mixed4(line + i, covered + i, ink.bytes.data() + phase.value(), ink.alpha));
            }
        }
        store(line + end, last);
    }
}

#if defined(__x86_64__)

VIDORRA_AVX2 __m256i lanes8(const std::uint8_t* bytes) {
    return _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(bytes)));
}

// The results in the low half.
VIDORRA_AVX2 __m128i mixed8(const std::uint8_t* dst, const std::uint8_t* coverages, const std::uint8_t* fresh,
                            __m256i alpha) {
    const __m256i everywhere = _mm256_setr_epi8(0, 0, 0, 0, 4, 4, 4, 4, 8, 8, 8, 8, 12, 12, 12, 12, 0, 0, 0,
                                                0, 4, 4, 4, 4, 8, 8, 8, 8, 12, 12, 12, 12);
    const __m256i highest = _mm256_setr_epi8(3, 7, 11, 15, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, 3,
                                             7, 11, 15, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1);
    const __m256i old = lanes8(dst);
    const __m256i change = _mm256_mullo_epi32(_mm256_sub_epi32(lanes8(fresh), old), alpha);
    const __m256i sum =
        _mm256_add_epi32(_mm256_shuffle_epi8(old, everywhere), _mm256_mullo_epi32(change, lanes8(coverages)));
    const __m256i packed = _mm256_shuffle_epi8(sum, highest);
    return _mm_unpacklo_epi32(_mm256_castsi256_si128(packed), _mm256_extracti128_si256(packed, 1));
}

VIDORRA_AVX2 void blendRows8(const Bytes& dst, const Coverages& coverages, int bytes, int rows,
                             const Ink& ink) {
    if (bytes < 8) {
        blendRows4(dst, coverages, bytes, rows, ink);
        return;
    }
    const __m256i alpha = _mm256_set1_epi32(static_cast<int>(ink.alpha));
    const int end = bytes - 8;
    const int endPhase = end % ink.step;
    for (int y = 0; y < rows; ++y) {
        std::uint8_t* line = dst.row(y);
        const std::uint8_t* covered = coverages.row(y);
        const __m128i last = mixed8(line + end, covered + end, ink.bytes.data() + endPhase, alpha);
        Phase phase(ink, 8);
        for (int i = 0; i < end; i += 8, phase.advance()) {
            std::uint64_t any;
            load(any, covered + i);
            if (any != 0) {
                _mm_storel_epi64(reinterpret_cast<__m128i*>(line + i),
                                 mixed8(line + i, covered + i, ink.bytes.data() + phase.value(), alpha));
            }
        }
        _mm_storel_epi64(reinterpret_cast<__m128i*>(line + end), last);
    }
}

// With masks for the end of a row.
VIDORRA_AVX512 void blendRows16(const Bytes& dst, const Coverages& coverages, int bytes, int rows,
                                const Ink& ink) {
    const __m512i everywhere =
        _mm512_broadcast_i32x4(_mm_setr_epi8(0, 0, 0, 0, 4, 4, 4, 4, 8, 8, 8, 8, 12, 12, 12, 12));
    const __m512i alpha = _mm512_set1_epi32(static_cast<int>(ink.alpha));
    for (int y = 0; y < rows; ++y) {
        std::uint8_t* line = dst.row(y);
        const std::uint8_t* covered = coverages.row(y);
        Phase phase(ink, 16);
        for (int i = 0; i < bytes; i += 16, phase.advance()) {
            const auto inRow = static_cast<__mmask16>(bytes - i >= 16 ? 0xffff : (1 << (bytes - i)) - 1);
            const __m128i coverage = _mm_maskz_loadu_epi8(inRow, covered + i);
            if (_mm_testz_si128(coverage, coverage) != 0) {
                continue;
            }
            const __m512i old = _mm512_cvtepu8_epi32(_mm_maskz_loadu_epi8(inRow, line + i));
            const __m512i fresh = _mm512_cvtepu8_epi32(
                _mm_loadu_si128(reinterpret_cast<const __m128i*>(ink.bytes.data() + phase.value())));
            const __m512i change = _mm512_mullo_epi32(_mm512_sub_epi32(fresh, old), alpha);
            const __m512i sum = _mm512_add_epi32(_mm512_shuffle_epi8(old, everywhere),
                                                 _mm512_mullo_epi32(change, _mm512_cvtepu8_epi32(coverage)));
            _mm512_mask_cvtepi32_storeu_epi8(line + i, inRow, _mm512_srli_epi32(sum, 24));
        }
    }
}

#endif

// Averages of 2 by 2 bytes, or of 2 by 1 and as many zeros when `below` is null.
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

// Rows of them. The last vector ends with the row and may overlap the one before.
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

// The part of a plane whose coverages are worked out at a time, in samples.
constexpr int kTileWidth = 64;
constexpr int kTileHeight = 32;

struct Tile {
    int x;
    int y;
    int width;
    int height;
};

// The samples that a mask falls on, in planes of one subsampling.
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

    // Where the samples begin in the plane, and how many they are.
    [[nodiscard]] int x() const { return mAcross.start; }
    [[nodiscard]] int y() const { return mDown.start; }
    [[nodiscard]] int width() const { return mAcross.samples(); }
    [[nodiscard]] int height() const { return mDown.samples(); }

    // Whether the mask has the coverages as they are.
    [[nodiscard]] bool isPlain() const { return mHsub == 0 && mVsub == 0 && !mMask.oneBit; }
    [[nodiscard]] Coverages plainCoverages() const { return {mMask.row(mTop) + mLeft, mMask.stride}; }

    // Writes the coverages of a tile.
    void average(const Bytes& coverages, const Tile& tile) const {
        for (int y = 0; y < tile.height; ++y) {
            std::uint8_t* out = coverages.row(y);
            if (mMask.oneBit || mHsub != 1 || mVsub != 1) {
                averageSamples(out, tile.x, tile.width, tile.y + y);
                continue;
            }
            // Samples at the ends may be covered by one column only.
            const int before = mAcross.first > 0 ? 1 : 0;
            const int head = tile.x == 0 ? before : 0;
            const int whole = std::clamp(before + mAcross.whole - tile.x - head, 0, tile.width - head);
            const int tail = tile.width - head - whole;
            const int left = mLeft + mAcross.before(tile.x + head, mHsub);
            const int top = mTop + mDown.before(tile.y + y, mVsub);
            const std::uint8_t* row = mMask.row(top) + left;
            const std::uint8_t* below =
                mDown.pixels(tile.y + y, mVsub) > 1 ? mMask.row(top + 1) + left : nullptr;
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

private:
    static std::uint8_t averageOfOneColumn(const std::uint8_t* row, const std::uint8_t* below) {
        return static_cast<std::uint8_t>((row[0] + (below != nullptr ? below[0] : 0)) >> 2);
    }

    void averageSamples(std::uint8_t* averages, int from, int count, int y) const {
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

    const Mask& mMask;
    // Where the mask's part on the picture begins.
    int mLeft;
    int mTop;
    int mHsub;
    int mVsub;
    Span mAcross;
    Span mDown;
};

// Writes one coverage for each byte of the pixels, 0 for those that are not drawn. Behind the last there must
// be room for another pixel.
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
        // The bytes too many are overwritten by the next pixel.
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

// What is the same for all planes.
class Drawing {
public:
    Drawing(const FFDrawContext& context, const FFDrawColor& color, std::uint8_t* const* dst,
            const int* linesize, BlendRows blendRows)
        : mContext(context), mColor(color), mDst(dst), mLinesize(linesize), mBlendRows(blendRows) {
        const bool keepsAlpha =
            (context.desc->flags & AV_PIX_FMT_FLAG_ALPHA) != 0 && (context.flags & kDrawProcessAlpha) == 0;
        mComponents = context.desc->nb_components - (keepsAlpha ? 1 : 0);
    }

    // Blends on two planes of one subsampling, as far as the format has them.
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
                mBlendRows(targets[i].first, samples.plainCoverages(), samples.width(), samples.height(),
                           targets[i].ink);
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
            // Deliberate: full coverage stays a 255th below the whole.
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
        // Not cleared: what is read was written before.
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
                mBlendRows(dst, coverages, tile.width, tile.height, target.ink);
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
        mBlendRows(dst, {bytes.data, bytes.stride}, tile.width * target.ink.step, tile.height, target.ink);
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
    BlendRows mBlendRows;
    // Those in front of an alpha component that stays.
    int mComponents;
};

template <BlendRows kBlendRows>
void blendMask(const FFDrawContext* draw, const FFDrawColor* color, std::uint8_t* const dst[],
               const int dstLinesize[], int dstWidth, int dstHeight, const std::uint8_t* mask,
               int maskLinesize, int maskWidth, int maskHeight, int l2depth, unsigned /*endianness*/, int x0,
               int y0) {
    const Clipped columns(dstWidth, maskWidth, x0);
    const Clipped rows(dstHeight, maskHeight, y0);
    if (columns.length == 0 || rows.length == 0 || color->rgba[3] == 0) {
        return;
    }
    const Mask coverage{{mask, maskLinesize}, l2depth == 0};
    const Drawing drawing(*draw, *color, dst, dstLinesize, kBlendRows);
    drawing.blendPlanes(MaskedSamples(coverage, columns, rows, 0, 0), {0, 3});
    drawing.blendPlanes(MaskedSamples(coverage, columns, rows, draw->hsub[1], draw->vsub[1]), {1, 2});
}

BlendMask bestBlendMask() {
    for (const int vector : {16, 8}) {
        if (const BlendMask function = blendMaskBy(vector)) {
            return function;
        }
    }
    return blendMask<blendRows4>;
}

const BlendMask kBestBlendMask = bestBlendMask();

}  // namespace

BlendMask blendMaskBy(int bytes) {
#if defined(__x86_64__)
    if (bytes == 16 && cpu::hasAvx512()) {
        return blendMask<blendRows16>;
    }
    if (bytes == 8 && cpu::hasAvx2()) {
        return blendMask<blendRows8>;
    }
#endif
    return bytes == 4 ? blendMask<blendRows4> : nullptr;
}

void ff_blend_mask(const FFDrawContext* draw, const FFDrawColor* color, std::uint8_t* const dst[],
                   const int dstLinesize[], int dstWidth, int dstHeight, const std::uint8_t* mask,
                   int maskLinesize, int maskWidth, int maskHeight, int l2depth, unsigned endianness, int x0,
                   int y0) {
    kBestBlendMask(draw, color, dst, dstLinesize, dstWidth, dstHeight, mask, maskLinesize, maskWidth,
                   maskHeight, l2depth, endianness, x0, y0);
}

}  // namespace vidorra::ffmpeg_ext
