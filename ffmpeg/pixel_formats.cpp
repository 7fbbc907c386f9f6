#include "ffmpeg/pixel_formats.h"

#include <climits>
#include <cstring>

extern "C" {
#include <libavutil/avutil.h>
#include <libavutil/frame.h>
#include <libavutil/imgutils.h>
#include <libavutil/pixdesc.h>
}

namespace vidorra::ffmpeg_ext {
namespace {

constexpr const char* kNva12Name = "nva12";

bool isOurNva12(AVPixelFormat format) {
    return format == kNva12 && !hasNva12();
}

constexpr AVPixFmtDescriptor makeNva12Descriptor() {
    AVPixFmtDescriptor descriptor{};
    descriptor.name = kNva12Name;
    descriptor.nb_components = 4;
    descriptor.log2_chroma_w = 1;
    descriptor.log2_chroma_h = 1;
    descriptor.flags = AV_PIX_FMT_FLAG_PLANAR | AV_PIX_FMT_FLAG_ALPHA;
    const auto component = [&descriptor](int index, int plane, int step, int offset) {
        AVComponentDescriptor& target = descriptor.comp[index];
        target.plane = plane;
        target.step = step;
        target.offset = offset;
        target.depth = 8;
    };
    component(0, 0, 1, 0);
    component(1, 1, 2, 0);
    component(2, 1, 2, 1);
    component(3, 3, 1, 0);
    return descriptor;
}

constexpr AVPixFmtDescriptor kNva12Descriptor = makeNva12Descriptor();

}  // namespace

bool hasNva12() {
    const char* name = av_get_pix_fmt_name(kNva12);
    return name != nullptr && std::strcmp(name, kNva12Name) == 0;
}

const AVPixFmtDescriptor* pixelFormatDescriptor(AVPixelFormat format) {
    return isOurNva12(format) ? &kNva12Descriptor : av_pix_fmt_desc_get(format);
}

const char* pixelFormatName(AVPixelFormat format) {
    return isOurNva12(format) ? kNva12Name : av_get_pix_fmt_name(format);
}

AVPixelFormat pixelFormatFromName(const char* name) {
    if (std::strcmp(name, kNva12Name) == 0) {
        return kNva12;
    }
    const AVPixelFormat format = av_get_pix_fmt(name);
    return format == kNva12 ? AV_PIX_FMT_NONE : format;
}

AVPixelFormat withoutImpliedRange(AVPixelFormat format) {
    switch (format) {
    case AV_PIX_FMT_YUVJ420P:
        return AV_PIX_FMT_YUV420P;
    case AV_PIX_FMT_YUVJ422P:
        return AV_PIX_FMT_YUV422P;
    case AV_PIX_FMT_YUVJ444P:
        return AV_PIX_FMT_YUV444P;
    case AV_PIX_FMT_YUVJ440P:
        return AV_PIX_FMT_YUV440P;
    case AV_PIX_FMT_YUVJ411P:
        return AV_PIX_FMT_YUV411P;
    default:
        return format;
    }
}

void fillMaxPixelSteps(int steps[4], AVPixelFormat format) {
    const AVPixFmtDescriptor* descriptor = pixelFormatDescriptor(format);
    if (descriptor == nullptr) {
        std::memset(steps, 0, 4 * sizeof(int));
        return;
    }
    av_image_fill_max_pixsteps(steps, nullptr, descriptor);
}

PixelGroup pixelGroup(AVPixelFormat format) {
    const AVPixFmtDescriptor* descriptor = pixelFormatDescriptor(format);
    if (descriptor == nullptr) {
        return {};
    }
    PixelGroup group = {descriptor->log2_chroma_w, descriptor->log2_chroma_h};
    if ((descriptor->flags & AV_PIX_FMT_FLAG_BITSTREAM) != 0) {
        // Steps are in bits here.
        while ((descriptor->comp[0].step << group.log2Width) % CHAR_BIT != 0) {
            ++group.log2Width;
        }
    }
    return group;
}

std::ptrdiff_t rowBytes(AVPixelFormat format, int plane, int pixels) {
    const AVPixFmtDescriptor* descriptor = pixelFormatDescriptor(format);
    if (descriptor == nullptr) {
        return 0;
    }
    int steps[4] = {};
    int components[4] = {};
    av_image_fill_max_pixsteps(steps, components, descriptor);
    // If luma and chroma share a plane, the distance between chroma samples determines its size: the
    // distance between luma samples is not a whole number in some formats.
    const bool isChroma = components[plane] == 1 || components[plane] == 2;
    const std::ptrdiff_t samples = -(-std::ptrdiff_t{pixels} >> (isChroma ? descriptor->log2_chroma_w : 0));
    const std::ptrdiff_t size = samples * steps[plane];
    return (descriptor->flags & AV_PIX_FMT_FLAG_BITSTREAM) != 0 ? (size + CHAR_BIT - 1) / CHAR_BIT : size;
}

int fillImageArrays(std::uint8_t* data[4], int linesize[4], const std::uint8_t* source, AVPixelFormat format,
                    int width, int height, int align) {
    if (align < 1) {
        // FFmpeg would return line sizes shorter than a row.
        return AVERROR(EINVAL);
    }
    if (isOurNva12(format)) {
        const int colour =
            av_image_fill_arrays(data, linesize, source, AV_PIX_FMT_NV12, width, height, align);
        if (colour < 0) {
            return colour;
        }
        const std::int64_t total = colour + std::int64_t{linesize[0]} * height;
        if (total > INT_MAX) {
            return AVERROR(EINVAL);
        }
        linesize[3] = linesize[0];
        data[3] = source != nullptr ? const_cast<std::uint8_t*>(source) + colour : nullptr;
        return static_cast<int>(total);
    }
    const int size = av_image_fill_arrays(data, linesize, source, format, width, height, align);
    const AVPixFmtDescriptor* descriptor = size < 0 ? nullptr : av_pix_fmt_desc_get(format);
    if (descriptor != nullptr && (descriptor->flags & AV_PIX_FMT_FLAG_PAL) == 0) {
        // Some versions give gray and other packed 8-bit formats a palette plane after the picture.
        bool used[4] = {true, false, false, false};
        for (int i = 0; i < descriptor->nb_components; ++i) {
            used[descriptor->comp[i].plane] = true;
        }
        for (int i = 1; i < 4; ++i) {
            if (!used[i]) {
                data[i] = nullptr;
                linesize[i] = 0;
            }
        }
    }
    return size;
}

int imageBufferSize(AVPixelFormat format, int width, int height, int align) {
    if (align < 1) {
        return AVERROR(EINVAL);
    }
    if (isOurNva12(format)) {
        std::uint8_t* data[4] = {};
        int linesize[4] = {};
        return fillImageArrays(data, linesize, nullptr, format, width, height, align);
    }
    return av_image_get_buffer_size(format, width, height, align);
}

void copyImage(std::uint8_t* const destination[4], const int destinationLinesize[4],
               const std::uint8_t* const source[4], const int sourceLinesize[4], AVPixelFormat format,
               int width, int height) {
    // FFmpeg versions differ in which of these arrays are const.
    std::uint8_t* to[4];
    const std::uint8_t* from[4];
    int toLinesize[4];
    int fromLinesize[4];
    for (int i = 0; i < 4; ++i) {
        to[i] = destination[i];
        from[i] = source[i];
        toLinesize[i] = destinationLinesize[i];
        fromLinesize[i] = sourceLinesize[i];
    }
    if (isOurNva12(format)) {
        av_image_copy(to, toLinesize, from, fromLinesize, AV_PIX_FMT_NV12, width, height);
        if (to[3] != nullptr && from[3] != nullptr) {
            av_image_copy_plane(to[3], toLinesize[3], from[3], fromLinesize[3], width, height);
        }
        return;
    }
    const AVPixFmtDescriptor* descriptor = av_pix_fmt_desc_get(format);
    if (descriptor == nullptr) {
        return;
    }
    if ((descriptor->flags & AV_PIX_FMT_FLAG_PAL) != 0 && (to[1] == nullptr || from[1] == nullptr)) {
        // FFmpeg copies a palette without checking its pointers.
        av_image_copy_plane(to[0], toLinesize[0], from[0], fromLinesize[0], width, height);
        return;
    }
    av_image_copy(to, toLinesize, from, fromLinesize, format, width, height);
}

bool isStockFormat(AVPixelFormat format) {
    return !isOurNva12(format) && av_pix_fmt_desc_get(format) != nullptr;
}

bool isForeignNva12(const AVFrame& frame) {
    return frame.format == kNva12 && frame.data[3] == nullptr && !hasNva12();
}

}  // namespace vidorra::ffmpeg_ext
