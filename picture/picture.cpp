#include "vidorra/picture/picture.h"

#include <algorithm>
#include <climits>
#include <new>
#include <ostream>
#include <stdexcept>
#include <utility>

#include "ffmpeg/pixel_formats.h"
#include "picture/plane_in_buffer.h"
#include "vidorra/core/av_res.h"

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/pixdesc.h>
}

namespace vidorra {
namespace {

// Bytes after the last plane that belong to no plane.
constexpr int kSpareBytes = 32;

}  // namespace

Picture::Picture(Size size, AVPixelFormat format, AVColorRange range, int alignment)
    : mSize(size), mFormat(format), mRange(range) {
    allocBuffer(alignment);
}

Picture::Picture(Size size, const std::uint8_t* const* data, const int* linesize, AVPixelFormat format,
                 AVColorRange range, int alignment)
    : Picture(size, format, range, alignment) {
    copyFrom(data, linesize);
}

Picture::Picture(MemBuffer buffer, Size size, std::uint8_t* const* data, const int* linesize,
                 AVPixelFormat format, AVColorRange range)
    : mSize(size), mFormat(format), mRange(range) {
    mBuffers[0] = std::move(buffer);
    std::copy_n(data, mData.size(), mData.begin());
    std::copy_n(linesize, mLinesize.size(), mLinesize.begin());
}

Picture::Picture(AVFrame* frame)
    : mSize{frame->width, frame->height},
      mFormat(static_cast<AVPixelFormat>(frame->format)),
      mRange(frame->color_range) {
    if (ffmpeg_ext::isForeignNva12(*frame)) {
        throw FFmpegError(AvError::InvalidArgument,
                          "Picture: the pixel format of the frame is not supported");
    }
    if (frame->buf[0] == nullptr) {
        allocBuffer(1);
        copyFrom(frame->data, frame->linesize);
        return;
    }
    for (std::size_t i = 0; i < mBuffers.size(); ++i) {
        mData[i] = frame->data[i];
        mLinesize[i] = frame->linesize[i];
        MemBuffer buffer(frame->buf[i]);
        const bool used =
            std::any_of(std::begin(frame->data), std::end(frame->data),
                        [&buffer](const std::uint8_t* plane) { return isInBuffer(plane, buffer); });
        if (used) {
            mBuffers[i] = std::move(buffer);
        }
    }
    removeUnusedBuffers();
}

bool Picture::editable() const noexcept {
    return !empty() && std::all_of(mBuffers.begin(), mBuffers.end(), [](const MemBuffer& buffer) {
        return buffer.empty() || buffer.writeable();
    });
}

bool Picture::isBufferDMA() const noexcept {
    return !empty() && std::all_of(mBuffers.begin(), mBuffers.end(),
                                   [](const MemBuffer& buffer) { return buffer.empty() || buffer.isDMA(); });
}

bool Picture::isBufferExternal() const noexcept {
    return std::any_of(mBuffers.begin(), mBuffers.end(),
                       [](const MemBuffer& buffer) { return buffer.isExternal(); });
}

void Picture::markModified() {
    for (MemBuffer& buffer : mBuffers) {
        if (!buffer.empty()) {
            buffer.markModified();
        }
    }
}

void Picture::flush() const noexcept {
    for (const MemBuffer& buffer : mBuffers) {
        buffer.flush();
    }
}

bool Picture::hasAlpha() const noexcept {
    if (mFormat == AV_PIX_FMT_PAL8) {
        return true;
    }
    const AVPixFmtDescriptor* descriptor = ffmpeg_ext::pixelFormatDescriptor(mFormat);
    return descriptor != nullptr && (descriptor->flags & AV_PIX_FMT_FLAG_ALPHA) != 0;
}

std::optional<std::size_t> Picture::bytesInBuffer(std::size_t plane) const noexcept {
    const std::uint8_t* data = mData[plane];
    std::optional<std::size_t> bytes;
    for (const MemBuffer& buffer : mBuffers) {
        if (isInBuffer(data, buffer)) {
            return static_cast<std::size_t>(buffer.data() + buffer.size() - data);
        }
        if (data != nullptr && !buffer.empty() && data == buffer.data() + buffer.size()) {
            bytes = 0;
        }
    }
    return bytes;
}

void Picture::allocBuffer(int alignment) {
    if (mSize.width < 1 || mSize.height < 1) {
        return;
    }
    Planes planes{};
    Linesizes linesizes{};
    const int size = ffmpeg_ext::fillImageArrays(planes.data(), linesizes.data(), nullptr, mFormat,
                                                 mSize.width, mSize.height, alignment);
    AvRes(size).throwIfError("Failed to get size of image: ");
    if (size > INT_MAX - kSpareBytes) {
        throw std::bad_alloc();
    }
    mBuffers[0].resize(size + kSpareBytes);
    const AvRes res = ffmpeg_ext::fillImageArrays(mData.data(), mLinesize.data(), mBuffers[0].data(), mFormat,
                                                  mSize.width, mSize.height, alignment);
    res.throwIfError("Failed to fill image arrays: ");
}

void Picture::removeUnusedBuffers() {
    for (MemBuffer& buffer : mBuffers) {
        if (!holdsAPlane(buffer)) {
            buffer.reset(nullptr);
        }
    }
    const auto end = std::partition(mBuffers.begin(), mBuffers.end(),
                                    [](const MemBuffer& buffer) { return !buffer.empty(); });
    std::sort(mBuffers.begin(), end);
}

void Picture::fillAVFrame(AVFrame* frame) const {
    for (AVBufferRef*& ref : frame->buf) {
        if (ref == nullptr) {
            break;
        }
        MemBuffer(&ref).reset(nullptr);
    }
    for (std::size_t i = 0; i < mBuffers.size(); ++i) {
        frame->buf[i] = mBuffers[i].createBufferRef();
    }
    // A moved-from picture still has its plane pointers, but no longer the memory.
    const Planes planes = empty() ? Planes{} : mData;
    std::copy(planes.begin(), planes.end(), frame->data);
    std::copy(mLinesize.begin(), mLinesize.end(), frame->linesize);
    frame->width = mSize.width;
    frame->height = mSize.height;
    frame->format = mFormat;
    frame->color_range = mRange;
}

std::string Picture::debugDescription() const {
    if (empty()) {
        return "(empty picture)";
    }
    const char* rangeName = av_color_range_name(mRange);
    if (rangeName == nullptr) {
        throw std::logic_error("basic_string: construction from null is not valid");
    }
    std::string attributes = rangeName;
    if (editable()) {
        attributes += ",editable";
    }
    if (isBufferExternal()) {
        attributes += ",external";
    }
    if (isBufferDMA()) {
        attributes += ",dma";
    }
    const AVPixFmtDescriptor* descriptor = ffmpeg_ext::pixelFormatDescriptor(mFormat);
    const char* name = descriptor != nullptr ? descriptor->name : "(unknown)";
    return fmt::format("{}x{}, {} ({})", mSize.width, mSize.height, name, attributes);
}

bool Picture::holdsAPlane(const MemBuffer& buffer) const noexcept {
    return std::any_of(mData.begin(), mData.end(),
                       [&buffer](const std::uint8_t* plane) { return isInBuffer(plane, buffer); });
}

std::ostream& operator<<(std::ostream& stream, const Picture& picture) {
    return stream << picture.debugDescription();
}

}  // namespace vidorra
