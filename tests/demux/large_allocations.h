#pragma once

#include <cstddef>

namespace vidorra::test {

/// Counts the whole program's allocations of at least some size during its lifetime. Only one may exist at a
/// time.
class LargeAllocations {
public:
    explicit LargeAllocations(std::size_t size);
    LargeAllocations(const LargeAllocations&) = delete;
    LargeAllocations& operator=(const LargeAllocations&) = delete;
    ~LargeAllocations();

    std::size_t count() const;
};

}  // namespace vidorra::test
