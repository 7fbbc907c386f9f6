#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "vidorra/picture/picture.h"
#include "vidorra/picture/video_frame.h"

namespace vidorra::test {

/// A picture of noise, and the same bytes without padding between rows and planes.
struct Pattern {
    std::vector<std::uint8_t> bytes;
    Picture picture;

    /// MD5 of the bytes, in hexadecimal.
    [[nodiscard]] std::string hash() const;
};

Pattern pattern(Size size, AVPixelFormat format, unsigned seed, AVColorRange range = AVCOL_RANGE_JPEG);

/// A picture with the same value in all bytes of all planes.
Picture plainPicture(Size size, AVPixelFormat format, std::uint8_t value,
                     AVColorRange range = AVCOL_RANGE_JPEG);

/// A frame at a time in microseconds.
VideoFrame frameAt(const Picture& picture, std::int64_t micro, Frame::FrameFlags flags = Frame::NoFlags);

}  // namespace vidorra::test
