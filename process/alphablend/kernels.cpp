#include "process/alphablend/kernels.h"

#include "process/alphablend/vector_kernels.h"
#include "process/instructions.h"

namespace vidorra::alphablend {
namespace {

constexpr Kernels kVector16 = {.name = "vector16",
                               .fade = vector16::fade,
                               .blendNva12 = vector16::blendNva12,
                               .fadeNva12 = vector16::fadeNva12,
                               .blend32 = vector16::blend32,
                               .blend24 = vector16::blend24};

#if defined(__x86_64__)
constexpr Kernels kAvx2 = {.name = "avx2",
                           .fade = avx2::fade,
                           .blendNva12 = avx2::blendNva12,
                           .fadeNva12 = avx2::fadeNva12,
                           .blend32 = avx2::blend32,
                           .blend24 = avx2::blend24};

constexpr Kernels kAvx512 = {.name = "avx512",
                             .fade = avx512::fade,
                             .blendNva12 = avx512::blendNva12,
                             .fadeNva12 = avx512::fadeNva12,
                             .blend32 = avx512::blend32,
                             .blend24 = avx512::blend24};

#endif

using Sets = cpu::KernelSets<Kernels, 4>;

Sets supportedSets() {
    Sets sets;
    sets.add(kPlainKernels);
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

}  // namespace vidorra::alphablend
