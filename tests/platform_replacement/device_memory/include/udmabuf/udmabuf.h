#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

/// Other DMA memory, with only the operations that the library calls. It is a page-aligned part of the heap.
class UdmaBuf {
public:
    UdmaBuf(std::string_view name, bool flag);
    UdmaBuf(const UdmaBuf&) = delete;
    UdmaBuf& operator=(const UdmaBuf&) = delete;
    ~UdmaBuf();

    std::uint8_t* get();
    std::size_t size() const;
    static std::size_t pageSize();
    void syncForDevice(const void* data, std::size_t size) const;

private:
    std::uint8_t* mData;
};
