#include "picture_probe.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <new>
#include <random>

#include "vidorra/core/av_error.h"
#include "vidorra/core/enum_text.h"

extern "C" {
#include <libavutil/imgutils.h>
#include <libavutil/mem.h>
#include <libavutil/pixdesc.h>
}

namespace vidorra::test {
namespace {

int halfUp(int value, int shift) {
    return -((-value) >> shift);
}

}  // namespace

std::array<Slot, 4> slotsOf(const Picture& picture) {
    const FramePtr frame = makeAvPtr<AVFrame>();
    picture.fillAVFrame(frame.get());
    std::array<Slot, 4> slots;
    for (std::size_t i = 0; i < slots.size(); ++i) {
        const AVBufferRef* ref = frame->buf[i];
        if (ref == nullptr) {
            continue;
        }
        int own = 0;
        for (const AVBufferRef* other : frame->buf) {
            own += other != nullptr && other->buffer == ref->buffer ? 1 : 0;
        }
        slots[i] = {ref->data, static_cast<std::size_t>(ref->size), av_buffer_get_ref_count(ref) - own};
    }
    return slots;
}

int bufferCount(const Picture& picture) {
    int count = 0;
    for (const Slot& slot : slotsOf(picture)) {
        count += slot.references > 0 ? 1 : 0;
    }
    return count;
}

std::array<PlaneShape, 4> planeShapes(AVPixelFormat format, Size size) {
    const int w = size.width;
    const int h = size.height;
    if (format == NVA12) {
        return {{{w, h}, {halfUp(w, 1) * 2, halfUp(h, 1)}, {}, {w, h}}};
    }
    const AVPixFmtDescriptor* descriptor = av_pix_fmt_desc_get(format);
    std::array<PlaneShape, 4> shapes;
    for (int plane = 0; plane < av_pix_fmt_count_planes(format); ++plane) {
        const bool chroma = plane == 1 || plane == 2;
        shapes[plane] = {av_image_get_linesize(format, w, plane),
                         chroma ? halfUp(h, descriptor->log2_chroma_h) : h};
    }
    if ((descriptor->flags & AV_PIX_FMT_FLAG_PAL) != 0) {
        shapes[1] = {1024, 1};
    }
    return shapes;
}

void fillWithNoise(Picture& picture, unsigned seed) {
    std::minstd_rand random(seed);
    const auto shapes = planeShapes(picture.pixelFormat(), picture.frameSize());
    for (std::size_t plane = 0; plane < shapes.size(); ++plane) {
        for (int row = 0; row < shapes[plane].rows; ++row) {
            std::uint8_t* bytes =
                picture.data()[plane] + static_cast<std::ptrdiff_t>(row) * picture.linesize()[plane];
            for (int i = 0; i < shapes[plane].bytes; ++i) {
                bytes[i] = static_cast<std::uint8_t>(random() >> 8);
            }
        }
    }
    picture.markModified();
}

std::vector<std::uint8_t> pixelsOf(const Picture& picture) {
    std::vector<std::uint8_t> pixels;
    const auto shapes = planeShapes(picture.pixelFormat(), picture.frameSize());
    for (std::size_t plane = 0; plane < shapes.size(); ++plane) {
        for (int row = 0; row < shapes[plane].rows; ++row) {
            const std::uint8_t* bytes =
                picture.data()[plane] + static_cast<std::ptrdiff_t>(row) * picture.linesize()[plane];
            pixels.insert(pixels.end(), bytes, bytes + shapes[plane].bytes);
        }
    }
    return pixels;
}

Picture noisePicture(Size size, AVPixelFormat format, unsigned seed, int alignment) {
    Picture picture(size, format, AVCOL_RANGE_MPEG, alignment);
    fillWithNoise(picture, seed);
    return picture;
}

Picture pictureInSeparateBuffers(Size size, AVPixelFormat format, unsigned seed) {
    FramePtr frame = newFrame(size, format, AVCOL_RANGE_MPEG);
    const auto shapes = planeShapes(format, size);
    int buffers = 0;
    for (std::size_t plane = 0; plane < shapes.size(); ++plane) {
        if (shapes[plane].rows == 0) {
            continue;
        }
        AVBufferRef* ref = av_buffer_alloc(shapes[plane].bytes * shapes[plane].rows);
        if (ref == nullptr) {
            throw std::bad_alloc();
        }
        frame->buf[buffers++] = ref;
        frame->data[plane] = ref->data;
        frame->linesize[plane] = shapes[plane].bytes;
    }
    Picture picture(frame.get());
    frame.reset();
    fillWithNoise(picture, seed);
    return picture;
}

FramePtr newFrame(Size size, AVPixelFormat format, AVColorRange range) {
    FramePtr frame = makeAvPtr<AVFrame>();
    frame->width = size.width;
    frame->height = size.height;
    frame->format = format;
    frame->color_range = range;
    return frame;
}

Arena::~Arena() {
    EXPECT_EQ(mFreed, mMade) << "buffers that were never freed, or freed twice";
}

BufferPtr Arena::buffer(std::size_t offset, std::size_t size, int flags) {
    const auto release = [](void* opaque, std::uint8_t*) { ++static_cast<Arena*>(opaque)->mFreed; };
    // The type of the size differs between FFmpeg versions.
    AVBufferRef* ref = av_buffer_create(at(offset), static_cast<int>(size), release, this, flags);
    if (ref == nullptr) {
        throw std::bad_alloc();
    }
    ++mMade;
    return makeAvPtr<AVBufferRef>(ref);
}

AllocationLimit::AllocationLimit(std::size_t bytes) {
    // The oldest FFmpeg versions reserve 32 bytes of the limit.
    av_max_alloc(bytes + 32);
    if (void* tooMuch = av_malloc(bytes + 1)) {
        av_free(tooMuch);
        av_max_alloc(bytes);
    }
}

AllocationLimit::~AllocationLimit() {
    av_max_alloc(INT_MAX);
}

std::string ffmpegErrorText(const std::string& message, int code) {
    return message + " FFmpeg AV_ERROR: " + AvError(code).toString();
}

}  // namespace vidorra::test
