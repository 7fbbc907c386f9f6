// Blending through masks: the equation is the same for all bytes, whatever the format. On x86 the wider sets
// use intrinsics, since the compiler splits wide vectors of its extensions into narrow ones before it
// inlines them in a function for another set.

#include "process/drawing/mask_kernels.h"

#include "process/instructions.h"

namespace vidorra::masks {
namespace {

// The position in the colour's bytes at which each vector of a row begins.
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

// Vectors compute the sum in another order, in which intermediate results wrap. The last vector of a row
// ends with the row. It is computed before the others are stored, so that it may overlap them.

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

void blendRowsVector16(const Bytes& dst, const Coverages& coverages, int bytes, int rows, const Ink& ink) {
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

VIDORRA_AVX2 __m128i load8(const std::uint8_t* bytes) {
    return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(bytes));
}

VIDORRA_AVX2 __m128i load4(const std::uint8_t* bytes) {
    int word;
    load(word, bytes);
    return _mm_cvtsi32_si128(word);
}

// Mixes the bytes in the low halves and returns the results in the low half.
VIDORRA_AVX2 __m128i mixed8(__m128i dst, __m128i coverages, __m128i fresh, __m256i alpha) {
    const __m256i everywhere = _mm256_setr_epi8(0, 0, 0, 0, 4, 4, 4, 4, 8, 8, 8, 8, 12, 12, 12, 12, 0, 0, 0,
                                                0, 4, 4, 4, 4, 8, 8, 8, 8, 12, 12, 12, 12);
    const __m256i highest = _mm256_setr_epi8(3, 7, 11, 15, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, 3,
                                             7, 11, 15, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1);
    const __m256i old = _mm256_cvtepu8_epi32(dst);
    const __m256i change = _mm256_mullo_epi32(_mm256_sub_epi32(_mm256_cvtepu8_epi32(fresh), old), alpha);
    const __m256i sum = _mm256_add_epi32(_mm256_shuffle_epi8(old, everywhere),
                                         _mm256_mullo_epi32(change, _mm256_cvtepu8_epi32(coverages)));
    const __m256i packed = _mm256_shuffle_epi8(sum, highest);
    return _mm_unpacklo_epi32(_mm256_castsi256_si128(packed), _mm256_extracti128_si256(packed, 1));
}

// Rows of 4 to 7 bytes, as the chroma of small letters has: their first and last four are one vector.
VIDORRA_AVX2 void blendNarrowRowsAvx2(const Bytes& dst, const Coverages& coverages, int bytes, int rows,
                                      const Ink& ink) {
    const __m256i alpha = _mm256_set1_epi32(static_cast<int>(ink.alpha));
    const int end = bytes - 4;
    const __m128i fresh =
        _mm_unpacklo_epi32(load4(ink.bytes.data()), load4(ink.bytes.data() + end % ink.step));
    for (int y = 0; y < rows; ++y) {
        std::uint8_t* line = dst.row(y);
        const std::uint8_t* covered = coverages.row(y);
        const __m128i coverage = _mm_unpacklo_epi32(load4(covered), load4(covered + end));
        const __m128i mixed =
            mixed8(_mm_unpacklo_epi32(load4(line), load4(line + end)), coverage, fresh, alpha);
        store(line, _mm_cvtsi128_si32(mixed));
        store(line + end, _mm_extract_epi32(mixed, 1));
    }
}

VIDORRA_AVX2 void blendRowsAvx2(const Bytes& dst, const Coverages& coverages, int bytes, int rows,
                                const Ink& ink) {
    if (bytes < 4) {
        blendRowsPlain(dst, coverages, bytes, rows, ink);
        return;
    }
    if (bytes < 8) {
        blendNarrowRowsAvx2(dst, coverages, bytes, rows, ink);
        return;
    }
    const __m256i alpha = _mm256_set1_epi32(static_cast<int>(ink.alpha));
    const int end = bytes - 8;
    const int endPhase = end % ink.step;
    for (int y = 0; y < rows; ++y) {
        std::uint8_t* line = dst.row(y);
        const std::uint8_t* covered = coverages.row(y);
        const __m128i last =
            mixed8(load8(line + end), load8(covered + end), load8(ink.bytes.data() + endPhase), alpha);
        Phase phase(ink, 8);
        for (int i = 0; i < end; i += 8, phase.advance()) {
            std::uint64_t any;
            load(any, covered + i);
            if (any != 0) {
                _mm_storel_epi64(reinterpret_cast<__m128i*>(line + i),
                                 mixed8(load8(line + i), load8(covered + i),
                                        load8(ink.bytes.data() + phase.value()), alpha));
            }
        }
        _mm_storel_epi64(reinterpret_cast<__m128i*>(line + end), last);
    }
}

// Uses masks for the end of a row.
VIDORRA_AVX512 void blendRowsAvx512(const Bytes& dst, const Coverages& coverages, int bytes, int rows,
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

using Sets = cpu::KernelSets<Kernels, 4>;

constexpr Kernels kPlain = {.name = "plain", .blendRows = blendRowsPlain};
constexpr Kernels kVector16 = {.name = "vector16", .blendRows = blendRowsVector16};
#if defined(__x86_64__)
constexpr Kernels kAvx2 = {.name = "avx2", .blendRows = blendRowsAvx2};
constexpr Kernels kAvx512 = {.name = "avx512", .blendRows = blendRowsAvx512};
#endif

Sets supportedSets() {
    Sets sets;
    sets.add(kPlain);
    sets.add(kVector16);
#if defined(__x86_64__)
    sets.addSupported(kAvx2, kAvx512);
#endif
    return sets;
}

}  // namespace

std::span<const Kernels* const> supportedKernels() {
    static const Sets sets = supportedSets();
    return sets.all();
}

const Kernels& kernels() {
    return *supportedKernels().back();
}

}  // namespace vidorra::masks
