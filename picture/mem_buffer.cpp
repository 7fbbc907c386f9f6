#include "vidorra/picture/mem_buffer.h"

#include <functional>
#include <new>
#include <stdexcept>
#include <utility>

#include "ffmpeg/buffers.h"

extern "C" {
#include <libavutil/buffer.h>
}

namespace vidorra {
namespace {

AVBufferRef* newReference(const AVBufferRef* ref) {
    // In the oldest versions the parameter is not const.
    AVBufferRef* created = av_buffer_ref(const_cast<AVBufferRef*>(ref));
    if (created == nullptr) {
        throw std::bad_alloc();
    }
    return created;
}

}  // namespace

MemBuffer::MemBuffer(int size, bool zero) : mRef(zero ? av_buffer_allocz(size) : av_buffer_alloc(size)) {
    if (mRef == nullptr) {
        throw std::bad_alloc();
    }
}

MemBuffer::MemBuffer(AVBufferRef* ref) : mRef(ref != nullptr ? newReference(ref) : nullptr) {}

MemBuffer::MemBuffer(AVBufferRef** ref) noexcept : mRef(std::exchange(*ref, nullptr)) {}

MemBuffer::MemBuffer(const MemBuffer& other) : mRef(other.createBufferRef()) {}

MemBuffer& MemBuffer::operator=(const MemBuffer& other) {
    if (this != &other) {
        reset(other.createBufferRef());
    }
    return *this;
}

MemBuffer::MemBuffer(MemBuffer&& other) noexcept : mRef(std::exchange(other.mRef, nullptr)) {}

MemBuffer& MemBuffer::operator=(MemBuffer&& other) noexcept {
    if (this != &other) {
        reset(std::exchange(other.mRef, nullptr));
    }
    return *this;
}

MemBuffer::~MemBuffer() {
    reset(nullptr);
}

void MemBuffer::reset(AVBufferRef* ref) noexcept {
    av_buffer_unref(&mRef);
    mRef = ref;
}

AVBufferRef* MemBuffer::createBufferRef() const {
    return mRef != nullptr ? newReference(mRef) : nullptr;
}

long MemBuffer::useCount() const noexcept {
    return mRef != nullptr ? av_buffer_get_ref_count(mRef) : 0;
}

bool MemBuffer::writeable() const noexcept {
    return mRef != nullptr && av_buffer_is_writable(mRef) != 0;
}

bool MemBuffer::isDMA() const noexcept {
    return mRef != nullptr && ffmpeg_ext::av_buffer_is_dma(mRef) != 0;
}

bool MemBuffer::isExternal() const noexcept {
    return mRef != nullptr && ffmpeg_ext::av_buffer_is_external(mRef) != 0;
}

void MemBuffer::flush() const noexcept {
    if (mRef != nullptr) {
        ffmpeg_ext::av_buffer_flush(mRef);
    }
}

void MemBuffer::markModified() {
    if (!writeable()) {
        throw std::logic_error("Cannot mark non-writeable buffer as modified");
    }
    ffmpeg_ext::av_buffer_set_modified(mRef);
}

void MemBuffer::makeWriteable() {
    if (mRef == nullptr) {
        throw std::logic_error("Empty buffer cannot be writeable");
    }
    if (av_buffer_make_writable(&mRef) < 0) {
        throw std::bad_alloc();
    }
}

void MemBuffer::resize(int size) {
    if (av_buffer_realloc(&mRef, size) < 0) {
        throw std::bad_alloc();
    }
}

void MemBuffer::shrink(std::size_t newSize) {
    if (newSize > size()) {
        throw std::invalid_argument("MemBuffer::shrink: The buffer has fewer bytes");
    }
    if (mRef != nullptr) {
        mRef->size = static_cast<decltype(mRef->size)>(newSize);
    }
}

std::uint8_t* MemBuffer::data() const noexcept {
    return mRef != nullptr ? mRef->data : nullptr;
}

std::size_t MemBuffer::size() const noexcept {
    return mRef != nullptr ? static_cast<std::size_t>(mRef->size) : 0;
}

bool operator<(const MemBuffer& a, const MemBuffer& b) noexcept {
    return b.empty() || (!a.empty() && std::less<>()(a.data(), b.data()));
}

}  // namespace vidorra
