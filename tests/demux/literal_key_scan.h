#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace vidorra::test {

/// The simplest detection of H.264 key packets: `size` - 3 steps, each of which moves on by one byte, or by
/// four after a start code. It may read past the data, so it runs over a copy with zeroes after it.
inline bool literalKeyScan(const std::uint8_t* data, std::size_t size) {
    if (size <= 3) {
        return false;
    }
    std::vector<std::uint8_t> padded(4 * size + 64, 0);
    std::memcpy(padded.data(), data, size);
    bool sequenceSet = false;
    bool pictureSet = false;
    bool idrSlice = false;
    std::size_t position = 0;
    for (std::size_t look = 0; look < size - 3; ++look) {
        if (padded[position] != 0 || padded[position + 1] != 0 || padded[position + 2] != 1) {
            position += 1;
            continue;
        }
        switch (padded[position + 3] % 32) {
        case 7:
            sequenceSet = true;
            break;
        case 8:
            if (sequenceSet && !pictureSet && !idrSlice) {
                pictureSet = true;
            }
            break;
        case 5:
            if (pictureSet) {
                idrSlice = true;
            }
            break;
        default:
            break;
        }
        if (sequenceSet && pictureSet && idrSlice) {
            return true;
        }
        position += 4;
    }
    return false;
}

}  // namespace vidorra::test
