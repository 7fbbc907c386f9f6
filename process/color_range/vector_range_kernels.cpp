// The range kernels on vectors: chosen at run time by what the processor has. ARM looks 256 bytes up in
// registers. x86 has look-ups of 16 bytes only, cheap ones, so that a sample is looked up by its two
// hexadecimal digits, and the sum corrected by a carry. That is exact: the compiler compares it with the
// tables for all bytes.

#include <array>
#include <cstdint>

#include "process/color_range/range_kernels.h"
#include "process/color_range/range_tables.h"
#include "process/instructions.h"

#if defined(__aarch64__)
#include <arm_neon.h>
#endif

namespace vidorra {
namespace {

// Fetches the next 64 bytes, and what lies further ahead: the next block alone comes too late for memory that
// is in no cache. Behind the end of a row that is the next row, as a rule; an address that is nothing does no
// harm here, but would as a pointer.
[[gnu::always_inline]] inline void fetchAhead(const unsigned char* src) {
    constexpr std::uintptr_t kFar = 2048;
    const auto address = reinterpret_cast<std::uintptr_t>(src);
    // NOLINTBEGIN(performance-no-int-to-ptr): nothing is read through them.
    __builtin_prefetch(reinterpret_cast<const void*>(address + 64));
    __builtin_prefetch(reinterpret_cast<const void*>(address + kFar));
    // NOLINTEND(performance-no-int-to-ptr)
}

#if defined(__x86_64__)

// With u for v - 16 the tables hold floor((255 * u + steps / 2) / steps). Written as u = 16 * high + low,
// both digits give a whole quotient and a remainder; the whole ones are added, and one more where the
// remainders reach `steps` together.
struct Digits {
    std::array<std::uint8_t, 16> highWhole{};
    // Larger by 255 - steps, so that the remainders together reach 255 instead.
    std::array<std::uint8_t, 16> highRest{};
    std::array<std::uint8_t, 16> lowWhole{};
    std::array<std::uint8_t, 16> lowRest{};
};

constexpr Digits makeDigits(int steps) {
    Digits digits;
    for (int i = 0; i < 16; ++i) {
        const auto at = static_cast<std::size_t>(i);
        const int high = 255 * 16 * i + steps / 2;
        const int low = 255 * i;
        digits.highWhole[at] = static_cast<std::uint8_t>(std::min(high / steps, 255));
        digits.highRest[at] = static_cast<std::uint8_t>(high % steps + 255 - steps);
        digits.lowWhole[at] = static_cast<std::uint8_t>(low / steps);
        digits.lowRest[at] = static_cast<std::uint8_t>(low % steps);
    }
    return digits;
}

constexpr bool agree(const Digits& digits, const std::array<std::uint8_t, 256>& table) {
    for (unsigned v = 0; v < 256; ++v) {
        const unsigned u = v < 16 ? 0 : v - 16;
        const unsigned carry = digits.highRest[u / 16] + digits.lowRest[u % 16] >= 255 ? 1 : 0;
        if (std::min(digits.highWhole[u / 16] + digits.lowWhole[u % 16] + carry, 255U) != table[v]) {
            return false;
        }
    }
    return true;
}

constexpr Digits kLumaDigits = makeDigits(kLimitedLumaSteps);
constexpr Digits kChromaDigits = makeDigits(kLimitedChromaSteps);
static_assert(agree(kLumaDigits, kRangeLimitedToFullTable235));
static_assert(agree(kChromaDigits, kRangeLimitedToFullTable240));

// AVX2: 32 bytes at a time.

VIDORRA_AVX2 inline __m256i load32(const unsigned char* bytes) {
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(bytes));
}

VIDORRA_AVX2 inline void store32(unsigned char* bytes, __m256i vector) {
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(bytes), vector);
}

VIDORRA_AVX2 inline __m256i repeated32(const std::array<std::uint8_t, 16>& bytes) {
    return _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes.data())));
}

struct LookUp32 {
    __m256i highWhole;
    __m256i highRest;
    __m256i lowWhole;
    __m256i lowRest;
};

VIDORRA_AVX2 inline LookUp32 makeLookUp32(const Digits& digits) {
    return {repeated32(digits.highWhole), repeated32(digits.highRest), repeated32(digits.lowWhole),
            repeated32(digits.lowRest)};
}

VIDORRA_AVX2 inline __m256i lookUp(const LookUp32& tables, __m256i samples) {
    const __m256i digit = _mm256_set1_epi8(0x0f);
    const __m256i u = _mm256_subs_epu8(samples, _mm256_set1_epi8(16));
    const __m256i low = _mm256_and_si256(u, digit);
    const __m256i high = _mm256_and_si256(_mm256_srli_epi16(u, 4), digit);
    // The mean, rounded up, has its upper bit set where the sum is 255 or more.
    const __m256i mean =
        _mm256_avg_epu8(_mm256_shuffle_epi8(tables.highRest, high), _mm256_shuffle_epi8(tables.lowRest, low));
    const __m256i carry = _mm256_cmpgt_epi8(_mm256_setzero_si256(), mean);
    const __m256i lowWhole = _mm256_sub_epi8(_mm256_shuffle_epi8(tables.lowWhole, low), carry);
    return _mm256_adds_epu8(_mm256_shuffle_epi8(tables.highWhole, high), lowWhole);
}

VIDORRA_AVX2 inline std::ptrdiff_t convertRowAvx2(const Digits& digits, unsigned char* dst,
                                                  const unsigned char* src, std::ptrdiff_t count) {
    const LookUp32 tables = makeLookUp32(digits);
    std::ptrdiff_t x = 0;
    for (; x + 64 <= count; x += 64) {
        fetchAhead(src + x);
        store32(dst + x, lookUp(tables, load32(src + x)));
        store32(dst + x + 32, lookUp(tables, load32(src + x + 32)));
    }
    if (x + 32 <= count) {
        store32(dst + x, lookUp(tables, load32(src + x)));
        x += 32;
    }
    return x;
}

VIDORRA_AVX2 void convertLumaAvx2(unsigned char* dst, const unsigned char* src, std::ptrdiff_t count) {
    const std::ptrdiff_t x = convertRowAvx2(kLumaDigits, dst, src, count);
    kPlainRangeKernels.convertLuma(dst + x, src + x, count - x);
}

VIDORRA_AVX2 void convertChromaAvx2(unsigned char* dst, const unsigned char* src, std::ptrdiff_t count) {
    const std::ptrdiff_t x = convertRowAvx2(kChromaDigits, dst, src, count);
    kPlainRangeKernels.convertChroma(dst + x, src + x, count - x);
}

VIDORRA_AVX2 void splitChromaAvx2(unsigned char* u, unsigned char* v, const unsigned char* src,
                                  std::ptrdiff_t pairs) {
    const LookUp32 tables = makeLookUp32(kChromaDigits);
    const __m256i evenBytes = _mm256_set1_epi16(0xff);
    std::ptrdiff_t i = 0;
    for (; i + 32 <= pairs; i += 32) {
        fetchAhead(src + 2 * i);
        const __m256i first = lookUp(tables, load32(src + 2 * i));
        const __m256i second = lookUp(tables, load32(src + 2 * i + 32));
        const __m256i us =
            _mm256_packus_epi16(_mm256_and_si256(first, evenBytes), _mm256_and_si256(second, evenBytes));
        const __m256i vs = _mm256_packus_epi16(_mm256_srli_epi16(first, 8), _mm256_srli_epi16(second, 8));
        store32(u + i, _mm256_permute4x64_epi64(us, _MM_SHUFFLE(3, 1, 2, 0)));
        store32(v + i, _mm256_permute4x64_epi64(vs, _MM_SHUFFLE(3, 1, 2, 0)));
    }
    kPlainRangeKernels.splitChroma(u + i, v + i, src + 2 * i, pairs - i);
}

constexpr RangeKernels kAvx2 = {.name = "avx2",
                                .convertLuma = convertLumaAvx2,
                                .convertChroma = convertChromaAvx2,
                                .splitChroma = splitChromaAvx2};

// AVX-512: 64 bytes at a time.

VIDORRA_AVX512 inline __m512i repeated64(const std::array<std::uint8_t, 16>& bytes) {
    return _mm512_broadcast_i32x4(_mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes.data())));
}

struct LookUp64 {
    __m512i highWhole;
    __m512i highRest;
    __m512i lowWhole;
    __m512i lowRest;
};

VIDORRA_AVX512 inline LookUp64 makeLookUp64(const Digits& digits) {
    return {repeated64(digits.highWhole), repeated64(digits.highRest), repeated64(digits.lowWhole),
            repeated64(digits.lowRest)};
}

VIDORRA_AVX512 inline __m512i lookUp(const LookUp64& tables, __m512i samples) {
    const __m512i digit = _mm512_set1_epi8(0x0f);
    const __m512i u = _mm512_subs_epu8(samples, _mm512_set1_epi8(16));
    const __m512i low = _mm512_and_si512(u, digit);
    const __m512i high = _mm512_and_si512(_mm512_srli_epi16(u, 4), digit);
    const __m512i mean =
        _mm512_avg_epu8(_mm512_shuffle_epi8(tables.highRest, high), _mm512_shuffle_epi8(tables.lowRest, low));
    const __mmask64 carry = _mm512_movepi8_mask(mean);
    const __m512i whole = _mm512_adds_epu8(_mm512_shuffle_epi8(tables.highWhole, high),
                                           _mm512_shuffle_epi8(tables.lowWhole, low));
    return _mm512_mask_adds_epu8(whole, carry, whole, _mm512_set1_epi8(1));
}

VIDORRA_AVX512 inline void convertRowAvx512(const Digits& digits, unsigned char* dst,
                                            const unsigned char* src, std::ptrdiff_t count) {
    const LookUp64 tables = makeLookUp64(digits);
    std::ptrdiff_t x = 0;
    for (; x + 64 <= count; x += 64) {
        fetchAhead(src + x);
        _mm512_storeu_si512(dst + x, lookUp(tables, _mm512_loadu_si512(src + x)));
    }
    if (x < count) {
        const __mmask64 rest = (__mmask64{1} << (count - x)) - 1;
        _mm512_mask_storeu_epi8(dst + x, rest, lookUp(tables, _mm512_maskz_loadu_epi8(rest, src + x)));
    }
}

VIDORRA_AVX512 void convertLumaAvx512(unsigned char* dst, const unsigned char* src, std::ptrdiff_t count) {
    convertRowAvx512(kLumaDigits, dst, src, count);
}

VIDORRA_AVX512 void convertChromaAvx512(unsigned char* dst, const unsigned char* src, std::ptrdiff_t count) {
    convertRowAvx512(kChromaDigits, dst, src, count);
}

VIDORRA_AVX512 void splitChromaAvx512(unsigned char* u, unsigned char* v, const unsigned char* src,
                                      std::ptrdiff_t pairs) {
    const LookUp64 tables = makeLookUp64(kChromaDigits);
    std::ptrdiff_t i = 0;
    for (; i + 32 <= pairs; i += 32) {
        fetchAhead(src + 2 * i);
        const __m512i both = lookUp(tables, _mm512_loadu_si512(src + 2 * i));
        store32(u + i, _mm512_cvtepi16_epi8(both));
        store32(v + i, _mm512_cvtepi16_epi8(_mm512_srli_epi16(both, 8)));
    }
    if (i < pairs) {
        const auto rest = static_cast<__mmask32>((std::uint64_t{1} << (pairs - i)) - 1);
        const __m512i both = lookUp(tables, _mm512_maskz_loadu_epi16(rest, src + 2 * i));
        _mm512_mask_cvtepi16_storeu_epi8(u + i, rest, both);
        _mm512_mask_cvtepi16_storeu_epi8(v + i, rest, _mm512_srli_epi16(both, 8));
    }
}

constexpr RangeKernels kAvx512 = {.name = "avx512",
                                  .convertLuma = convertLumaAvx512,
                                  .convertChroma = convertChromaAvx512,
                                  .splitChroma = splitChromaAvx512};

#elif defined(__aarch64__)

// NEON: 16 bytes at a time. The four look-ups cover a quarter of the table each; an index beyond a quarter
// leaves what the look-ups before have found.
struct LookUp16 {
    uint8x16x4_t quarters[4];

    explicit LookUp16(const std::array<std::uint8_t, 256>& table) {
        for (int i = 0; i < 4; ++i) {
            quarters[i] = vld1q_u8_x4(table.data() + 64 * i);
        }
    }
    [[nodiscard]] uint8x16_t operator()(uint8x16_t samples) const {
        uint8x16_t result = vqtbl4q_u8(quarters[0], samples);
        result = vqtbx4q_u8(result, quarters[1], vsubq_u8(samples, vdupq_n_u8(64)));
        result = vqtbx4q_u8(result, quarters[2], vsubq_u8(samples, vdupq_n_u8(128)));
        return vqtbx4q_u8(result, quarters[3], vsubq_u8(samples, vdupq_n_u8(192)));
    }
};

std::ptrdiff_t convertRowNeon(const std::array<std::uint8_t, 256>& table, unsigned char* dst,
                              const unsigned char* src, std::ptrdiff_t count) {
    const LookUp16 lookUp(table);
    std::ptrdiff_t x = 0;
    for (; x + 16 <= count; x += 16) {
        fetchAhead(src + x);
        vst1q_u8(dst + x, lookUp(vld1q_u8(src + x)));
    }
    return x;
}

void convertLumaNeon(unsigned char* dst, const unsigned char* src, std::ptrdiff_t count) {
    const std::ptrdiff_t x = convertRowNeon(kRangeLimitedToFullTable235, dst, src, count);
    kPlainRangeKernels.convertLuma(dst + x, src + x, count - x);
}

void convertChromaNeon(unsigned char* dst, const unsigned char* src, std::ptrdiff_t count) {
    const std::ptrdiff_t x = convertRowNeon(kRangeLimitedToFullTable240, dst, src, count);
    kPlainRangeKernels.convertChroma(dst + x, src + x, count - x);
}

void splitChromaNeon(unsigned char* u, unsigned char* v, const unsigned char* src, std::ptrdiff_t pairs) {
    const LookUp16 lookUp(kRangeLimitedToFullTable240);
    std::ptrdiff_t i = 0;
    for (; i + 16 <= pairs; i += 16) {
        fetchAhead(src + 2 * i);
        const uint8x16x2_t both = vld2q_u8(src + 2 * i);
        vst1q_u8(u + i, lookUp(both.val[0]));
        vst1q_u8(v + i, lookUp(both.val[1]));
    }
    kPlainRangeKernels.splitChroma(u + i, v + i, src + 2 * i, pairs - i);
}

constexpr RangeKernels kNeon = {.name = "neon",
                                .convertLuma = convertLumaNeon,
                                .convertChroma = convertChromaNeon,
                                .splitChroma = splitChromaNeon};

#endif

using Sets = cpu::KernelSets<RangeKernels, 3>;

Sets supportedSets() {
    Sets sets;
    sets.add(kPlainRangeKernels);
#if defined(__x86_64__)
    sets.addSupported(kAvx2, kAvx512);
#elif defined(__aarch64__)
    sets.add(kNeon);
#endif
    return sets;
}

}  // namespace

std::span<const RangeKernels* const> supportedRangeKernels() {
    static const Sets sets = supportedSets();
    return sets.all();
}

const RangeKernels& rangeKernels() {
    return *supportedRangeKernels().back();
}

}  // namespace vidorra
