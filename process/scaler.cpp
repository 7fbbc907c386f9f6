#include "vidorra/process/scaler.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "ffmpeg/scaling.h"
#include "picture/chroma_grid.h"
#include "vidorra/core/format.h"
#include "vidorra/picture/default_picture_allocator.h"
#include "vidorra/process/color_range_converter.h"

extern "C" {
#include <libswscale/swscale.h>
}

namespace vidorra {
namespace {

struct NamedAlgorithm {
    std::string_view name;
    Scaler::ScalingAlgorithm algorithm;
};

constexpr std::array<NamedAlgorithm, 11> kAlgorithms = {{
    {"fast_bilinear", Scaler::ScalingAlgorithm::FastBilinear},
    {"bilinear", Scaler::ScalingAlgorithm::Bilinear},
    {"bicubic", Scaler::ScalingAlgorithm::Bicubic},
    {"x", Scaler::ScalingAlgorithm::X},
    {"point", Scaler::ScalingAlgorithm::Point},
    {"area", Scaler::ScalingAlgorithm::Area},
    {"bicublin", Scaler::ScalingAlgorithm::Bicublin},
    {"gauss", Scaler::ScalingAlgorithm::Gauss},
    {"sinc", Scaler::ScalingAlgorithm::Sinc},
    {"lanczos", Scaler::ScalingAlgorithm::Lanczos},
    {"spline", Scaler::ScalingAlgorithm::Spline},
}};

bool agree(AVColorRange first, AVColorRange second) {
    return first == AVCOL_RANGE_UNSPECIFIED || second == AVCOL_RANGE_UNSPECIFIED || first == second;
}

// Conversions at the same size that libswscale does not know, or in which it would leave the pixels in their
// range. Deliberate: the table applies even if the FFmpeg in use can do more.
bool isRefused(AVPixelFormat from, AVPixelFormat to, bool rangeChanges) {
    switch (from) {
    case AV_PIX_FMT_YUVJ420P:
        return to == NVA12;
    case AV_PIX_FMT_YUV420P:
        return to == NVA12 || (rangeChanges && (to == AV_PIX_FMT_YUV420P || to == AV_PIX_FMT_NV12));
    default:
        return (from == AV_PIX_FMT_NV12 || from == NVA12) &&
               (to == from || (rangeChanges && to == AV_PIX_FMT_YUV420P));
    }
}

// Tells libswscale the ranges that are known; for the others it uses its own.
void setRanges(SwsContext* context, AVColorRange src, AVColorRange dst) {
    int* inverseTable = nullptr;
    int* table = nullptr;
    int srcFull = 0;
    int dstFull = 0;
    int brightness = 0;
    int contrast = 0;
    int saturation = 0;
    if ((src == AVCOL_RANGE_UNSPECIFIED && dst == AVCOL_RANGE_UNSPECIFIED) ||
        sws_getColorspaceDetails(context, &inverseTable, &srcFull, &table, &dstFull, &brightness, &contrast,
                                 &saturation) < 0) {
        return;
    }
    const auto wanted = [](AVColorRange range, int present) {
        return range == AVCOL_RANGE_UNSPECIFIED ? present : static_cast<int>(range == AVCOL_RANGE_JPEG);
    };
    const int wantedSrc = wanted(src, srcFull);
    const int wantedDst = wanted(dst, dstFull);
    if (wantedSrc != srcFull || wantedDst != dstFull) {
        sws_setColorspaceDetails(context, inverseTable, wantedSrc, table, wantedDst, brightness, contrast,
                                 saturation);
    }
}

}  // namespace

ScalerUnsupportedError::ScalerUnsupportedError(AVPixelFormat srcFormat, AVColorRange srcRange,
                                               AVPixelFormat dstFormat, AVColorRange dstRange)
    : std::runtime_error(fmt::format("Unsupported PixelFormat/ColorRange conversion from {}:{} to {}:{}",
                                     srcFormat, srcRange, dstFormat, dstRange)) {}

Scaler::Scaler() : mAllocator(getDefaultPictureAllocator()) {}

Scaler::Scaler(Scaler&& other) noexcept
    : mContext(std::exchange(other.mContext, nullptr)),
      mAlgorithm(other.mAlgorithm),
      mAllocator(other.mAllocator) {}

Scaler& Scaler::operator=(Scaler&& other) noexcept {
    std::swap(mContext, other.mContext);
    mAlgorithm = other.mAlgorithm;
    mAllocator = other.mAllocator;
    return *this;
}

Scaler::~Scaler() {
    sws_freeContext(mContext);
}

void Scaler::setAlgorithm(ScalingAlgorithm algorithm) {
    mAlgorithm = static_cast<int>(algorithm);
}

void Scaler::setAlgorithm(const std::string& name) {
    const auto found = std::find_if(kAlgorithms.begin(), kAlgorithms.end(),
                                    [&name](const NamedAlgorithm& row) { return row.name == name; });
    if (found == kAlgorithms.end()) {
        throw std::runtime_error(fmt::format("Unknown scaling algorithm \"{}\"", name));
    }
    setAlgorithm(found->algorithm);
}

void Scaler::setPictureAllocator(PictureAllocator* allocator) {
    mAllocator = allocator != nullptr ? allocator : getDefaultPictureAllocator();
}

Picture Scaler::scale(const Picture& src, Size size, AVPixelFormat format, AVColorRange range) {
    const Size target = ChromaGrid(src.pixelFormat(), format).down(size);
    const bool rangesAgree = agree(src.colorRange(), range);
    const bool sameSize = target == src.frameSize();
    if (rangesAgree && format == src.pixelFormat() && sameSize) {
        return src;
    }
    if (src.empty() || target.width == 0 || target.height == 0) {
        return {};
    }
    mContext =
        ffmpeg_ext::cachedScaler(mContext, {src.frameSize().width, src.frameSize().height, src.pixelFormat(),
                                            target.width, target.height, format, mAlgorithm});
    // NVA12 continues: an FFmpeg that does not know it gives no context, but some of its conversions must
    // still be refused.
    if (mContext == nullptr && src.pixelFormat() != NVA12 && format != NVA12) {
        return {};
    }
    if (sameSize) {
        Picture converted = tryConvertColorRange(mAllocator, src, format, range);
        if (!converted.empty()) {
            return converted;
        }
        if (isRefused(src.pixelFormat(), format, !rangesAgree)) {
            throw ScalerUnsupportedError(src.pixelFormat(), src.colorRange(), format, range);
        }
    }
    if (mContext == nullptr) {
        return {};
    }
    setRanges(mContext, src.colorRange(), range);
    Picture result = mAllocator->allocate(target, format, range);
    sws_scale(mContext, src.data().data(), src.linesize().data(), 0, src.frameSize().height,
              result.data().data(), result.linesize().data());
    result.markModified();
    return result;
}

Picture Scaler::scale(const Picture& src, Size size) {
    if (size == src.frameSize()) {
        return src;
    }
    return scale(src, size, src.pixelFormat(), src.colorRange());
}

Picture Scaler::convertToColorspace(const Picture& src, AVPixelFormat format, AVColorRange range) {
    return scale(src, src.frameSize(), format, range);
}

}  // namespace vidorra

vidorra::Picture tryConvertColorRange(vidorra::PictureAllocator* allocator, const vidorra::Picture& src,
                                      AVPixelFormat format, AVColorRange range) {
    using vidorra::ColorRangeConverter;
    if (src.empty() || !ColorRangeConverter::isSupported(src.pixelFormat(), src.colorRange(), format, range,
                                                         ColorRangeConverter::Type::Any)) {
        return {};
    }
    vidorra::Picture result = allocator->allocate(src.frameSize(), format, range);
    ColorRangeConverter::convert(src.frameSize().width, src.frameSize().height, src.pixelFormat(),
                                 src.colorRange(), src.data().data(), src.linesize().data(),
                                 result.pixelFormat(), result.colorRange(), result.data().data(),
                                 result.linesize().data(), ColorRangeConverter::Type::Any);
    result.markModified();
    return result;
}
