#include "process/alphablend/kernels.h"

namespace vidorra::alphablend {

std::span<const Kernels* const> supportedKernels() {
    static const Kernels* const all[] = {&kPlainKernels};
    return all;
}

const Kernels& kernels() {
    return kPlainKernels;
}

}  // namespace vidorra::alphablend
