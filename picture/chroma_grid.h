#pragma once

#include "ffmpeg/pixel_formats.h"
#include "vidorra/core/geometry.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

namespace vidorra {

/// Rounds positions and sizes down to whole chroma samples.
class ChromaGrid {
public:
    /// For planes whose width and height are halved so many times.
    ChromaGrid(int shiftX, int shiftY) : mMaskX(~((1 << shiftX) - 1)), mMaskY(~((1 << shiftY) - 1)) {}

    /// For a format. A value that is not a format counts as one without subsampled chroma.
    explicit ChromaGrid(AVPixelFormat format) {
        if (const AVPixFmtDescriptor* descriptor = ffmpeg_ext::pixelFormatDescriptor(format)) {
            *this = ChromaGrid(descriptor->log2_chroma_w, descriptor->log2_chroma_h);
        }
    }

    /// For two formats at once.
    ChromaGrid(AVPixelFormat first, AVPixelFormat second) : ChromaGrid(first) {
        const ChromaGrid other(second);
        mMaskX &= other.mMaskX;
        mMaskY &= other.mMaskY;
    }

    [[nodiscard]] Point down(Point point) const { return {point.x & mMaskX, point.y & mMaskY}; }
    [[nodiscard]] Size down(Size size) const { return {size.width & mMaskX, size.height & mMaskY}; }

    /// Rounds position and size separately.
    [[nodiscard]] Rect down(const Rect& rect) const {
        return {rect.x & mMaskX, rect.y & mMaskY, rect.width & mMaskX, rect.height & mMaskY};
    }

private:
    int mMaskX = -1;
    int mMaskY = -1;
};

}  // namespace vidorra
