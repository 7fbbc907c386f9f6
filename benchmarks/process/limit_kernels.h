#pragma once

#include <cstddef>
#include <string_view>

namespace vidorra::bench {

/// The least that a kernel can do with its streams: read all of them and write an average, or only read. What
/// memory and vectors allow, which the real kernels are measured against.
struct LimitKernels {
    std::string_view name;
    void (*average2)(unsigned char* dst, const unsigned char* src, std::size_t size);
    void (*average3)(unsigned char* dst, const unsigned char* src, const unsigned char* alpha,
                     std::size_t size);
    /// All bytes ored.
    unsigned char (*any)(const unsigned char* src, std::size_t size);
};

/// With the vectors of the set of kernels of this name.
const LimitKernels& limitKernels(std::string_view name);

}  // namespace vidorra::bench
