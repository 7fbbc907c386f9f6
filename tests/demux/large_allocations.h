#pragma once

#include <cstddef>

namespace vidorra::test {

/// Counts the allocations of at least some size of the whole program while it lives. One at a time.
class LargeAllocations {
public:
    explicit LargeAllocations(std::size_t size);
    LargeAllocations(const LargeAllocations&) = delete;
    LargeAllocations& operator=(const LargeAllocations&) = delete;
    ~LargeAllocations();

    std::size_t count() const;
};

}  // namespace vidorra::test
