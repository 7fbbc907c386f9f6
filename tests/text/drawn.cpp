#include "text/drawn.h"

#include <cstring>

namespace vidorra::test {

Picture blackPicture(int width, int height) {
    Picture picture(Size{width, height}, AV_PIX_FMT_GRAY8, AVCOL_RANGE_JPEG, 32);
    std::memset(picture.data()[0], 0,
                static_cast<std::size_t>(picture.linesize()[0]) * static_cast<std::size_t>(height));
    return picture;
}

Drawn drawn(const Picture& picture, std::size_t plane) {
    Drawn result;
    const int shift = plane == 1 || plane == 2 ? 1 : 0;
    for (int y = 0; y < (picture.frameSize().height + shift) >> shift; ++y) {
        std::string row;
        for (int x = 0; x < (picture.frameSize().width + shift) >> shift; ++x) {
            const int value = picture.data()[plane][y * picture.linesize()[plane] + x];
            row += value == 0 ? '.' : value == 255 ? '#' : '+';
        }
        result.push_back(row);
    }
    return result;
}

}  // namespace vidorra::test
