// The operations of Picture that change its pixels or its memory.

#include <algorithm>
#include <optional>
#include <stdexcept>
#include <string>

#include "ffmpeg/pixel_formats.h"
#include "picture/picture_view.h"
#include "picture/plane_in_buffer.h"
#include "vidorra/core/enum_text.h"
#include "vidorra/picture/picture.h"

namespace vidorra {
namespace {

std::optional<AVPixelFormat> formatWithAlpha(AVPixelFormat format) {
    switch (format) {
    case AV_PIX_FMT_YUV420P:
    case AV_PIX_FMT_YUVA420P:
        return AV_PIX_FMT_YUVA420P;
    case AV_PIX_FMT_NV12:
    case NVA12:
        return NVA12;
    default:
        return std::nullopt;
    }
}

}  // namespace

Picture::Picture(const Picture& picture, const Picture& alpha) : Picture(picture) {
    constexpr const char* kName = "Picture(const Picture& picture, const Picture& alpha): ";
    const std::optional<AVPixelFormat> format = formatWithAlpha(picture.mFormat);
    if (!format) {
        throw std::logic_error(std::string(kName) + "Unsupported pixel format for picture: " +
                               std::to_string(static_cast<int>(picture.mFormat)));
    }
    mFormat = *format;
    if (alpha.mFormat != AV_PIX_FMT_GRAY8) {
        throw std::logic_error(std::string(kName) + "Unsupported pixel format for alpha: " +
                               std::to_string(static_cast<int>(alpha.mFormat)));
    }
    if (picture.mSize != alpha.mSize) {
        throw std::logic_error("Images picture and alpha have different frameSize() value");
    }
    mData[3] = nullptr;
    removeUnusedBuffers();
    const auto slot = std::find_if(mBuffers.begin(), mBuffers.end(),
                                   [](const MemBuffer& buffer) { return buffer.empty(); });
    if (slot == mBuffers.end()) {
        throw std::logic_error("No free slot for alpha buffer was found.");
    }
    const auto source =
        std::find_if(alpha.mBuffers.begin(), alpha.mBuffers.end(),
                     [&alpha](const MemBuffer& buffer) { return isInBuffer(alpha.mData[0], buffer); });
    if (source == alpha.mBuffers.end()) {
        throw std::logic_error("Buffer for alpha alpha wasn't  found.");
    }
    if (picture.empty()) {
        throw std::logic_error(std::string(kName) + "The picture has no pixels");
    }
    *slot = *source;
    mData[3] = alpha.mData[0];
    mLinesize[3] = alpha.mLinesize[0];
}

void Picture::makeEditable() {
    for (MemBuffer& buffer : mBuffers) {
        if (buffer.empty()) {
            break;
        }
        if (buffer.writeable()) {
            continue;
        }
        const std::uint8_t* oldData = buffer.data();
        const std::size_t size = buffer.size();
        buffer.makeWriteable();
        for (std::uint8_t*& plane : mData) {
            if (isInBuffer(plane, oldData, size)) {
                plane = buffer.data() + (plane - oldData);
            }
        }
    }
}

void Picture::copyFrom(const Picture& other) {
    if (empty() && other.empty()) {
        return;
    }
    if (!editable()) {
        throw std::runtime_error("copyFrom: picture is not editable");
    }
    if (other.empty() || mSize != other.mSize || mFormat != other.mFormat) {
        throw std::runtime_error("copyFrom: mismath picture size / pixel format");
    }
    copyFrom(other.mData.data(), other.mLinesize.data());
}

void Picture::copyFrom(const std::uint8_t* const* data, const int* linesize) {
    if (empty()) {
        return;
    }
    if (!editable()) {
        throw std::runtime_error("copyFrom: picture is not editable");
    }
    ffmpeg_ext::copyImage(mData.data(), mLinesize.data(), data, linesize, mFormat, mSize.width, mSize.height);
    markModified();
}

Picture Picture::crop(Rect rect) const {
    const PictureView view = viewOf(*this, rect);
    Picture result = *this;
    result.mData = view.data;
    result.mSize = view.size;
    return result;
}

}  // namespace vidorra
