#include "demux/h264_key_packet.h"

#include <cstring>

namespace vidorra {
namespace {

// The address of the next start code 0, 0, 1 in [position, end), null without one. The byte 1 is rare in
// coded data, so the search for it, which the C library does with vectors, runs far faster than a look at
// each byte.
const std::uint8_t* findStartCode(const std::uint8_t* position, const std::uint8_t* end) {
    while (end - position >= 3) {
        const void* found = std::memchr(position + 2, 1, static_cast<std::size_t>(end - position - 2));
        if (found == nullptr) {
            return nullptr;
        }
        const auto* one = static_cast<const std::uint8_t*>(found);
        if (one[-1] == 0 && one[-2] == 0) {
            return one - 2;
        }
        position = one - 1;
    }
    return nullptr;
}

}  // namespace

bool isH264KeyPacket(const std::uint8_t* data, std::size_t size) {
    constexpr unsigned kSequenceSet = 1;
    constexpr unsigned kPictureSet = 2;
    if (size <= 3) {
        return false;
    }
    unsigned seen = 0;
    // A start code must have the byte behind it inside the packet too.
    const std::uint8_t* end = data + size - 1;
    for (const std::uint8_t* code = findStartCode(data, end); code != nullptr;
         code = findStartCode(code + 4, end)) {
        const unsigned type = code[3] & 0x1fU;
        if (type == 7) {
            seen |= kSequenceSet;
        } else if (type == 8 && seen == kSequenceSet) {
            seen |= kPictureSet;
        } else if (type == 5 && (seen & kPictureSet) != 0) {
            return true;
        }
    }
    return false;
}

}  // namespace vidorra
