#include "vidorra/process/chroma_keying.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <optional>
#include <stdexcept>

#include "process/chroma.h"
#include "vidorra/process/color_space_converter.h"

namespace vidorra {
namespace {

constexpr std::array<unsigned char, 4> kMarker = {254, 237, 11, 173};

void clearAndMark(unsigned char* alpha, int linesize, int height) {
    const std::ptrdiff_t size = static_cast<std::ptrdiff_t>(linesize) * height;
    if (size > 0) {
        std::memset(alpha, 0, static_cast<std::size_t>(size));
    } else if (height > 0) {
        // The first row of a bottom-up picture is the last one in memory.
        std::memset(alpha + size - linesize, 0, static_cast<std::size_t>(-size));
    }
    // Deliberate: even on a plane of less than four bytes, after which pictures of this library have room.
    std::memcpy(alpha, kMarker.data(), kMarker.size());
}

// Whether the memory of the alpha plane ends before its last whole row, which the kernel clears: the memory
// of a view can end with its last pixel.
bool endsBeforeItsLastRow(const Picture& picture) {
    const std::ptrdiff_t linesize = picture.linesize()[3];
    const std::ptrdiff_t rows = linesize > 0 ? linesize * picture.frameSize().height : -linesize;
    const std::optional<std::size_t> available = picture.bytesInBuffer(3);
    return available && *available < std::max(static_cast<std::size_t>(rows), kMarker.size());
}

// The same without the bytes between the rows.
void clearAndMarkPixels(const Picture& picture) {
    const Size size = picture.frameSize();
    unsigned char* const alpha = picture.data()[3];
    for (std::ptrdiff_t y = 0; y < size.height; ++y) {
        std::memset(alpha + y * picture.linesize()[3], 0, static_cast<std::size_t>(size.width));
    }
    std::memcpy(alpha, kMarker.data(), std::min(picture.bytesInBuffer(3).value_or(0), kMarker.size()));
}

std::array<unsigned char, 2> keyBytes(const Color& key) {
    const Chroma chroma = toUV(key);
    return {chroma.u, chroma.v};
}

}  // namespace

// Deliberate: neither kernel keys. Callers rely on the transparent plane with its marker.

void chromakey_yuva420p(const unsigned char* const* /*srcData*/, const int* /*srcLinesize*/,
                        unsigned char* dstAlpha, int dstLinesize, int /*width*/, int height,
                        const unsigned char* /*key*/, float /*first*/, float /*second*/) {
    clearAndMark(dstAlpha, dstLinesize, height);
}

void chromakey_yuva420p_inplace(unsigned char** data, const int* linesize, int /*width*/, int height,
                                const unsigned char* /*key*/, float /*first*/, float /*second*/) {
    clearAndMark(data[3], linesize[3], height);
}

void chromaKeyingInPlace(Picture& picture, const Color& key, float first, float second) {
    if (!picture.editable()) {
        throw std::runtime_error("chromaKeyingInPlace: Picture must be editable");
    }
    if (picture.pixelFormat() != AV_PIX_FMT_YUVA420P) {
        throw std::runtime_error("chromaKeyingInPlace: Unsupported pixel format");
    }
    const Size size = picture.frameSize();
    if (size.width < 1 || size.height < 1) {
        return;
    }
    if (endsBeforeItsLastRow(picture)) {
        clearAndMarkPixels(picture);
        return;
    }
    Picture::Planes planes = picture.data();
    chromakey_yuva420p_inplace(planes.data(), picture.linesize().data(), size.width, size.height,
                               keyBytes(key).data(), first, second);
}

Picture chromaKeying(const Picture& picture, const Color& key, float first, float second) {
    if (picture.pixelFormat() != AV_PIX_FMT_YUV420P && picture.pixelFormat() != AV_PIX_FMT_YUVA420P) {
        Picture converted =
            ColorSpaceConverter::convertTo(picture, AV_PIX_FMT_YUVA420P, picture.colorRange());
        chromaKeyingInPlace(converted, key, first, second);
        return converted;
    }
    const Size size = picture.frameSize();
    const Picture alpha(size, AV_PIX_FMT_GRAY8, picture.colorRange(), 1);
    if (picture.empty() || alpha.empty()) {
        throw std::runtime_error("chromaKeyingInPlace: Picture must be editable");
    }
    chromakey_yuva420p(picture.data().data(), picture.linesize().data(), alpha.data()[0], alpha.linesize()[0],
                       size.width, size.height, keyBytes(key).data(), first, second);
    return Picture(picture, alpha);
}

}  // namespace vidorra
