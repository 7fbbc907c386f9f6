#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>

#include <vidorra/vidorra.h>

namespace demo {

/// A report about one stream.
class StreamReport {
public:
    /// Opens the stream's decoder, to name it.
    StreamReport(vidorra::FormatContext& source, unsigned index);

    void count(const vidorra::Packet& packet);
    void count(const vidorra::VideoFrame& frame);

    [[nodiscard]] bool isVideo() const { return mIsVideo; }
    [[nodiscard]] std::uint64_t packets() const { return mPackets; }
    [[nodiscard]] std::uint64_t frames() const { return mFrames; }

    /// One line about the stream itself.
    [[nodiscard]] std::string description() const;

    /// One line about what was counted.
    friend std::ostream& operator<<(std::ostream& stream, const StreamReport& report);

private:
    void note(const vidorra::Timestamp& time);

    unsigned mIndex;
    bool mIsVideo = false;
    std::string mCodec;
    std::uint64_t mPackets = 0;
    std::uint64_t mKeyPackets = 0;
    std::uint64_t mBytes = 0;
    std::uint64_t mFrames = 0;
    // The times of the frames if there are any, otherwise of the packets.
    vidorra::Timestamp mFirst;
    vidorra::Timestamp mLast;
};

}  // namespace demo
