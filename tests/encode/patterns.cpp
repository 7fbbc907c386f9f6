#include "encode/patterns.h"

#include <array>
#include <cstdio>
#include <random>
#include <stdexcept>

extern "C" {
#include <libavutil/imgutils.h>
#include <libavutil/md5.h>
}

namespace vidorra::test {
namespace {

Picture pictureOf(const std::vector<std::uint8_t>& bytes, Size size, AVPixelFormat format,
                  AVColorRange range) {
    std::uint8_t* planes[4] = {};
    int linesizes[4] = {};
    if (av_image_fill_arrays(planes, linesizes, bytes.data(), format, size.width, size.height, 1) < 0) {
        throw std::runtime_error("no such picture");
    }
    return Picture(size, planes, linesizes, format, range, 32);
}

std::vector<std::uint8_t> bytesFor(Size size, AVPixelFormat format) {
    const int count = av_image_get_buffer_size(format, size.width, size.height, 1);
    return std::vector<std::uint8_t>(static_cast<std::size_t>(count));
}

}  // namespace

std::string Pattern::hash() const {
    std::array<std::uint8_t, 16> sum{};
    av_md5_sum(sum.data(), bytes.data(), static_cast<int>(bytes.size()));
    std::string text;
    for (const std::uint8_t byte : sum) {
        std::array<char, 3> digits{};
        std::snprintf(digits.data(), digits.size(), "%02x", byte);
        text += digits.data();
    }
    return text;
}

Pattern pattern(Size size, AVPixelFormat format, unsigned seed, AVColorRange range) {
    std::minstd_rand random(seed + 1);
    Pattern result;
    result.bytes = bytesFor(size, format);
    for (std::uint8_t& byte : result.bytes) {
        byte = static_cast<std::uint8_t>(random() >> 8U);
    }
    result.picture = pictureOf(result.bytes, size, format, range);
    return result;
}

Picture plainPicture(Size size, AVPixelFormat format, std::uint8_t value, AVColorRange range) {
    std::vector<std::uint8_t> bytes = bytesFor(size, format);
    std::fill(bytes.begin(), bytes.end(), value);
    return pictureOf(bytes, size, format, range);
}

VideoFrame frameAt(const Picture& picture, std::int64_t micro, Frame::FrameFlags flags) {
    return VideoFrame(picture, Timestamp(Timebase(), micro), flags);
}

}  // namespace vidorra::test
