// Compares the detection of H.264 key packets with a plain one that reads byte by byte.
#include <array>

#include "demux/h264_key_packet.h"
#include "support/target.h"

namespace {

// The definition. It counts its steps, not the bytes that it has passed, so it can read the zeros that
// FFmpeg keeps after the data of a packet; `padded` has enough of them.
bool isKeyPacketByDefinition(const std::vector<std::uint8_t>& padded, std::size_t size) {
    if (size <= 3) {
        return false;
    }
    std::array<bool, 3> seen{};
    std::size_t position = 0;
    for (std::size_t step = 0; step < size - 3; ++step) {
        if (padded[position] != 0 || padded[position + 1] != 0 || padded[position + 2] != 1) {
            ++position;
            continue;
        }
        switch (padded[position + 3] % 32) {
        case 7:
            seen[0] = true;
            break;
        case 8:
            if (seen[0] && !seen[1] && !seen[2]) {
                seen[1] = true;
            }
            break;
        case 5:
            if (seen[1]) {
                seen[2] = true;
            }
            break;
        default:
            break;
        }
        if (seen[0] && seen[1] && seen[2]) {
            return true;
        }
        position += 4;
    }
    return false;
}

}  // namespace

std::vector<std::string> vidorra::fuzz::seeds() {
    const std::string start("\0\0\1", 3);
    const std::string filler(150, '\x42');
    const std::string sets = start + "\x67" + filler + start + "\x68" + filler;
    return {
        sets + start + "\x65" + filler,
        sets + start + "\x41" + filler,
        filler + sets + start + "\x65",
        start + "\x68" + start + "\x67" + start + "\x65",
        start + "\x67" + start + "\x68" + start + "\x65",
        std::string(300, '\0') + "\1\x67" + start + "\x68" + start,
    };
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::vector<std::uint8_t> padded(data, data + size);
    padded.resize(4 * size + 8);
    // The fuzzer's data ends with its memory, so a read past the end is detected.
    vidorra::fuzz::expect(vidorra::isH264KeyPacket(data, size) == isKeyPacketByDefinition(padded, size),
                          "the scan for key packets finds what the definition says");
    return 0;
}
