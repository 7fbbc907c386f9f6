#include "demux/h264_key_packet.h"

#include <cstring>

namespace vidorra {
namespace {

// Sixteen bytes, which GCC and clang keep in a vector register if there is one.
using Bytes = std::uint8_t __attribute__((vector_size(16)));

constexpr std::size_t kBlock = 128;

Bytes load(const std::uint8_t* from) {
    Bytes bytes;
    std::memcpy(&bytes, from, sizeof(bytes));
    return bytes;
}

// Whether two consecutive zero bytes begin within the kBlock bytes from `block` on. Reads one byte more.
bool hasTwoZeros(const std::uint8_t* block) {
    // All ones in the lanes that begin a pair.
    decltype(Bytes() == Bytes()) found{};
    for (std::size_t i = 0; i < kBlock; i += sizeof(Bytes)) {
        found |= (load(block + i) | load(block + i + 1)) == 0;
    }
    std::uint64_t halves[2];
    static_assert(sizeof(halves) == sizeof(found));
    std::memcpy(halves, &found, sizeof(found));
    return (halves[0] | halves[1]) != 0;
}

// The address of the next start code 0, 0, 1 in [position, end), null without one. Two consecutive zero
// bytes are rare in coded data, so nearly all of a packet is skipped in blocks. Checking each byte can take
// longer than reading the packet from its file, and a search for a single byte stops at every 256th.
const std::uint8_t* findStartCode(const std::uint8_t* position, const std::uint8_t* end) {
    while (end - position >= 3) {
        const std::uint8_t* stop = end - 2;
        if (end - position >= static_cast<std::ptrdiff_t>(kBlock + 2)) {
            stop = position + kBlock;
            if (!hasTwoZeros(position)) {
                position = stop;
                continue;
            }
        }
        for (; position != stop; ++position) {
            if (position[0] == 0 && position[1] == 0 && position[2] == 1) {
                return position;
            }
        }
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
    // The byte after a start code must be inside the packet too.
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
