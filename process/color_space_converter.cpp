#include "vidorra/process/color_space_converter.h"

#include "vidorra/picture/default_picture_allocator.h"

namespace vidorra {

ColorSpaceConverter::ColorSpaceConverter(AVPixelFormat format, AVColorRange range)
    : mFormat(format), mRange(range) {}

Picture ColorSpaceConverter::convert(const Picture& src) {
    return mScaler.scale(src, src.frameSize(), mFormat, mRange);
}

Picture ColorSpaceConverter::convertTo(PictureAllocator* allocator, const Picture& src, AVPixelFormat format,
                                       AVColorRange range) {
    Scaler scaler;
    scaler.setPictureAllocator(allocator);
    return scaler.scale(src, src.frameSize(), format, range);
}

Picture ColorSpaceConverter::convertTo(const Picture& src, AVPixelFormat format, AVColorRange range) {
    return convertTo(getDefaultPictureAllocator(), src, format, range);
}

Picture ColorSpaceConverter::convertTo(PictureAllocator* allocator, const Picture& src,
                                       AVPixelFormat formatWithoutAlpha, AVPixelFormat formatWithAlpha,
                                       AVColorRange range) {
    return convertTo(allocator, src, src.hasAlpha() ? formatWithAlpha : formatWithoutAlpha, range);
}

Picture ColorSpaceConverter::convertTo(const Picture& src, AVPixelFormat formatWithoutAlpha,
                                       AVPixelFormat formatWithAlpha, AVColorRange range) {
    return convertTo(getDefaultPictureAllocator(), src, formatWithoutAlpha, formatWithAlpha, range);
}

}  // namespace vidorra
