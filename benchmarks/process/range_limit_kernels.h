#pragma once

#include <cstddef>
#include <string_view>

namespace vidorra::bench {

/// Range conversion without the conversion: the same bytes copied, and pairs taken apart. What memory and
/// vectors allow, which the real kernels are measured against.
struct RangeLimitKernels {
    std::string_view name;
    void (*copy)(unsigned char* dst, const unsigned char* src, std::ptrdiff_t count);
    void (*split)(unsigned char* u, unsigned char* v, const unsigned char* src, std::ptrdiff_t pairs);
};

/// With the vectors of the set of kernels of this name. Counts are multiples of 64, pairs of 32.
const RangeLimitKernels& rangeLimitKernels(std::string_view name);

}  // namespace vidorra::bench
