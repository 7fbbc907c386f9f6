#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <new>

namespace vidorra::test {

/// Memory for an allocator, which starts on a page.
class Region {
public:
    explicit Region(std::size_t size)
        : mSize(size),
          mData(static_cast<std::uint8_t*>(std::aligned_alloc(kPage, (size + kPage) / kPage * kPage))) {
        if (mData == nullptr) {
            throw std::bad_alloc();
        }
    }
    Region(const Region&) = delete;
    Region& operator=(const Region&) = delete;
    ~Region() { std::free(mData); }

    [[nodiscard]] std::uint8_t* data() const { return mData; }
    [[nodiscard]] std::size_t size() const { return mSize; }

private:
    static constexpr std::size_t kPage = 4096;

    std::size_t mSize;
    std::uint8_t* mData;
};

}  // namespace vidorra::test
