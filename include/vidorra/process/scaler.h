#pragma once

#include <stdexcept>
#include <string>

#include "vidorra/core/export.h"
#include "vidorra/core/ffmpeg_fwd.h"
#include "vidorra/core/geometry.h"
#include "vidorra/picture/picture.h"
#include "vidorra/picture/picture_allocator.h"

struct SwsContext;

namespace vidorra {

/// A change of colour range that cannot be made at the same size.
class VIDORRA_API ScalerUnsupportedError : public std::runtime_error {
public:
    ScalerUnsupportedError(AVPixelFormat srcFormat, AVColorRange srcRange, AVPixelFormat dstFormat,
                           AVColorRange dstRange);
};

/// Converts pictures to another size, pixel format and colour range, with libswscale.
///
///     Scaler scaler;
///     scaler.setAlgorithm("bicubic");
///     const Picture small = scaler.scale(picture, Size{640, 360}, AV_PIX_FMT_NV12, AVCOL_RANGE_MPEG);
///     if (small.empty()) { ... }
///
/// A scaler keeps what it prepared for one pair of sizes and formats and is fast as long as they stay the
/// same: use one scaler for each stream of pictures. Formats with J in their name are prepared again each
/// time.
///
/// Owns: the context of libswscale, not the allocator. Threads: one at a time.
class VIDORRA_API Scaler {
public:
    enum class ScalingAlgorithm : int {
        FastBilinear = 1,
        Bilinear = 2,
        Bicubic = 4,
        X = 8,
        Point = 16,
        Area = 32,
        Bicublin = 64,
        Gauss = 128,
        Sinc = 256,
        Lanczos = 512,
        Spline = 1024,
    };

    /// Bilinear, with pictures from getDefaultPictureAllocator().
    Scaler();
    Scaler(Scaler&& other) noexcept;
    Scaler& operator=(Scaler&& other) noexcept;
    ~Scaler();

    /// Takes effect with the next picture. Values outside the enumeration are passed to libswscale.
    void setAlgorithm(ScalingAlgorithm algorithm);

    /// By name: "fast_bilinear", "bilinear", "bicubic", "x", "point", "area", "bicublin", "gauss", "sinc",
    /// "lanczos", "spline". Throws std::runtime_error for any other name; the algorithm is then unchanged.
    void setAlgorithm(const std::string& name);

    /// Sets where the next pictures come from; null means the default allocator. The allocator must outlive
    /// this object and the pictures.
    void setPictureAllocator(PictureAllocator* allocator);

    /// `src` in another size, format and range. The size is rounded down to whole chroma samples of both
    /// formats.
    ///
    /// When nothing changes, the result shares the pixels of `src`. Ranges count as the same when either is
    /// AVCOL_RANGE_UNSPECIFIED: if size and format stay too, the result has the range of `src`, otherwise
    /// `range`.
    ///
    /// The result is empty for an empty `src`, for a size of 0, and for sizes and formats that libswscale
    /// cannot convert, which include NVA12 unless the FFmpeg in use has it itself. It is also empty when
    /// libswscale finds no memory for its context, which it does not tell apart.
    ///
    /// Throws ScalerUnsupportedError when the size stays and neither ColorRangeConverter nor libswscale can
    /// change the range or convert to NVA12: YUV420P to NVA12, NV12 or YUV420P; NV12 to NV12 or YUV420P;
    /// NVA12 to NVA12 or YUV420P, except from limited NV12 or YUV420P to full YUV420P. Other formats of the
    /// same size are converted by libswscale; if only the range was to change, it may leave the pixels in
    /// their range, as in YUV444P. Also throws what the allocator throws.
    [[nodiscard]] Picture scale(const Picture& src, Size size, AVPixelFormat format, AVColorRange range);

    /// In the format and range of `src`, sharing its pixels when the size is the same.
    [[nodiscard]] Picture scale(const Picture& src, Size size);

    /// In the size of `src`.
    [[nodiscard]] Picture convertToColorspace(const Picture& src, AVPixelFormat format, AVColorRange range);

private:
    SwsContext* mContext = nullptr;
    int mAlgorithm = static_cast<int>(ScalingAlgorithm::Bilinear);
    PictureAllocator* mAllocator;
};

}  // namespace vidorra

/// Converts a picture of limited range to full range with vidorra::ColorRangeConverter. The result comes
/// from `allocator`, which must not be null. Empty when the converter does not support the conversion, and
/// for an empty picture. Throws what the allocator throws.
[[nodiscard]] VIDORRA_API vidorra::Picture tryConvertColorRange(vidorra::PictureAllocator* allocator,
                                                                const vidorra::Picture& src,
                                                                AVPixelFormat format, AVColorRange range);
