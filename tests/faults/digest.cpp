#include "faults/digest.h"

#include "vidorra/core/enum_text.h"

#include <array>

extern "C" {
#include <libavutil/imgutils.h>
#include <libavutil/pixdesc.h>
}

namespace vidorra::test {
namespace {

// Rows of chroma, rounded up. NVA12, which FFmpeg does not know, is NV12 with an alpha plane.
int rowsOf(const Picture& picture, int plane, const AVPixFmtDescriptor& descriptor) {
    const int height = picture.frameSize().height;
    return plane == 1 || plane == 2 ? -(-height >> descriptor.log2_chroma_h) : height;
}

}  // namespace

void Digest::add(const Picture& picture) {
    add(picture.frameSize().width);
    add(picture.frameSize().height);
    add(static_cast<int>(picture.pixelFormat()));
    add(static_cast<int>(picture.colorRange()));
    if (picture.empty()) {
        return;
    }
    const bool isNva12 = picture.pixelFormat() == NVA12;
    const AVPixelFormat format = isNva12 ? AV_PIX_FMT_NV12 : picture.pixelFormat();
    std::array<int, 4> widths{};
    av_image_fill_linesizes(widths.data(), format, picture.frameSize().width);
    widths[3] = isNva12 ? picture.frameSize().width : widths[3];
    for (int plane = 0; plane < 4; ++plane) {
        const int rows = rowsOf(picture, plane, *av_pix_fmt_desc_get(format));
        for (int row = 0; widths[plane] > 0 && row < rows; ++row) {
            addBytes(picture.data()[plane] + static_cast<std::ptrdiff_t>(row) * picture.linesize()[plane],
                     static_cast<std::size_t>(widths[plane]));
        }
    }
}

void Digest::add(const AudioBuffer& buffer) {
    add(buffer.channelLayout());
    add(static_cast<int>(buffer.sampleFormat()));
    add(buffer.sampleRate());
    add(buffer.numberOfSamples());
    if (buffer.empty()) {
        return;
    }
    const std::size_t size = buffer.planeSize(buffer.numberOfSamples());
    for (const std::uint8_t* plane : buffer.getPointersToPlanes()) {
        if (plane != nullptr) {
            addBytes(plane, size);
        }
    }
}

void Digest::add(const VideoFrame& frame) {
    add(frame.timestamp().value);
    add(frame.picture());
}

void Digest::add(const AudioFrame& frame) {
    add(frame.timestamp().value);
    add(frame.audioBuffer());
}

void Digest::addBytes(const void* bytes, std::size_t count) {
    const auto* const begin = static_cast<const unsigned char*>(bytes);
    for (std::size_t i = 0; i < count; ++i) {
        mValue = (mValue ^ begin[i]) * 1099511628211U;
    }
}

}  // namespace vidorra::test
