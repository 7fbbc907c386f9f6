#include <cstdlib>
#include <cstring>
#include <new>

#include "udmabuf/udmabuf.h"

namespace {

constexpr std::size_t kSize = 1 << 20;
constexpr std::size_t kPage = 4096;

}  // namespace

UdmaBuf::UdmaBuf(std::string_view /*name*/, bool /*flag*/)
    : mData(static_cast<std::uint8_t*>(std::aligned_alloc(kPage, kSize))) {
    if (mData == nullptr) {
        throw std::bad_alloc();
    }
    std::memset(mData, 0, kSize);
}

UdmaBuf::~UdmaBuf() {
    std::free(mData);
}

std::uint8_t* UdmaBuf::get() {
    return mData;
}

std::size_t UdmaBuf::size() const {
    return kSize;
}

std::size_t UdmaBuf::pageSize() {
    return kPage;
}

void UdmaBuf::syncForDevice(const void* /*data*/, std::size_t /*size*/) const {}
