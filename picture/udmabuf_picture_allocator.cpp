#include "vidorra/picture/udmabuf_picture_allocator.h"

#include <cstddef>

#include "picture/line_alignment.h"

namespace vidorra {

UdmaBufPictureAllocator::Allocator::Allocator(UdmaBuf& buffer)
    : BestFitPictureAllocator(buffer.get(), buffer.size(), kLineAlignment, UdmaBuf::pageSize(), true),
      mBuffer(buffer) {}

UdmaBufPictureAllocator::Allocator::~Allocator() = default;

void UdmaBufPictureAllocator::Allocator::flush(std::uint8_t* data, int size) {
    mBuffer.syncForDevice(data, static_cast<std::size_t>(static_cast<std::int64_t>(size)));
}

UdmaBufPictureAllocator::UdmaBufPictureAllocator(std::string_view device)
    : mBuffer(device, false), mAllocator(mBuffer) {}

UdmaBufPictureAllocator::~UdmaBufPictureAllocator() = default;

Picture UdmaBufPictureAllocator::allocate(Size size, AVPixelFormat format, AVColorRange range) {
    return mAllocator.allocate(size, format, range);
}

}  // namespace vidorra
