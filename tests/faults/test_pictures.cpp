#include "faults/test_pictures.h"

#include <cstddef>
#include <cstdint>

extern "C" {
#include <libavutil/channel_layout.h>
}

namespace vidorra::test {

Picture testPicture(Size size, AVPixelFormat format) {
    Picture picture(size, format, AVCOL_RANGE_MPEG, 32);
    for (std::size_t plane = 0; plane < 4; ++plane) {
        const std::size_t bytes = picture.bytesInBuffer(plane).value_or(0);
        for (std::size_t i = 0; i < bytes; ++i) {
            picture.data()[plane][i] = static_cast<std::uint8_t>(16 + (i * 7 + plane * 50) % 200);
        }
    }
    return picture;
}

AudioBuffer testSamples(unsigned long count, AVSampleFormat format, int rate) {
    AudioBuffer buffer(AV_CH_LAYOUT_STEREO, format);
    buffer.setSampleRate(rate);
    buffer.resize(count);
    const std::size_t size = buffer.planeSize(count);
    for (std::uint8_t* plane : buffer.getPointersToPlanes()) {
        for (std::size_t i = 0; i < size; ++i) {
            // As floats these are small numbers.
            plane[i] = static_cast<std::uint8_t>(i % 4 == 3 ? 61 : i * 31);
        }
    }
    return buffer;
}

}  // namespace vidorra::test
