#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "vidorra/core/timestamp.h"
#include "vidorra/demux/packet.h"

struct AVCodecParameters;
struct AVStream;

namespace vidorra {

/// Remembers the packets of a file that is being written, and compares them with what is read from it.
///
/// Containers may wrap a codec's data in their own way, such as start codes for lengths. What is compared is
/// the coded content, without the wrapping: it has to be the same, byte by byte. So does the number of
/// packets, except of PCM, which containers cut as they like, and their times, as far as the container stores
/// them, by one unit of its clock and from a common start.
class Verification {
public:
    /// A packet that goes into a stream, with times in its unit.
    void add(const AVStream& stream, const Packet& packet);

    /// Reads the file. `hasTimes` tells whether the container stores times. Throws std::runtime_error with
    /// the first difference.
    void compare(const std::string& path, bool hasTimes) const;

private:
    /// What is known of a stream.
    struct Content {
        std::uint64_t packets = 0;
        std::uint64_t bytes = 0;
        std::uint32_t sum = 0;
        std::vector<std::int64_t> times;

        void add(const AVCodecParameters& parameters, const AVPacket& packet);
    };

    struct Stream {
        Content content;
        Timebase timebase;
        bool isPcm = false;
    };

    static std::vector<Stream> read(const std::string& path);
    static void add(std::vector<Stream>& streams, const AVStream& stream, const AVPacket& packet);
    void compareTimes(const std::string& path, const std::vector<Stream>& found) const;

    std::vector<Stream> mStreams;
};

}  // namespace vidorra
