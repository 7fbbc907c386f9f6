#pragma once

/// Instruction sets beyond those that the library is built for: functions are compiled for each, and the
/// best one for the processor is chosen at run time. Only for sources with vector kernels.

#include <array>
#include <cstddef>
#include <span>

#if defined(__x86_64__)
#pragma GCC diagnostic push
#if !defined(__clang__)
// False positives of GCC 12 about its own AVX-512 intrinsics, in any function that inlines them.
#pragma GCC diagnostic ignored "-Wuninitialized"
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#include <immintrin.h>
#pragma GCC diagnostic pop
// Marks a function that is compiled for the set.
#define VIDORRA_AVX2 __attribute__((target("avx2")))
#define VIDORRA_AVX512 __attribute__((target("avx512f,avx512bw,avx512vl")))
#endif

namespace vidorra::cpu {

#if defined(__x86_64__)
// Before main() the compiler's data about the processor may not be initialised yet.
inline bool hasAvx2() {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx2") != 0;
}

inline bool hasAvx512() {
    return hasAvx2() && __builtin_cpu_supports("avx512f") != 0 && __builtin_cpu_supports("avx512bw") != 0 &&
           __builtin_cpu_supports("avx512vl") != 0;
}
#endif

/// The kernels of one kind that this processor can run, the best one last.
template <class Kernels, std::size_t kMost>
class KernelSets {
public:
    void add(const Kernels& kernels) { mSets[mCount++] = &kernels; }

#if defined(__x86_64__)
    /// Adds those of the two that the processor has.
    void addSupported(const Kernels& avx2, const Kernels& avx512) {
        if (hasAvx2()) {
            add(avx2);
        }
        if (hasAvx512()) {
            add(avx512);
        }
    }
#endif

    [[nodiscard]] std::span<const Kernels* const> all() const {
        return {mSets.data(), mCount};
    }

private:
    std::array<const Kernels*, kMost> mSets{};
    std::size_t mCount = 0;
};

}  // namespace vidorra::cpu
