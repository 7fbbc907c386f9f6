#pragma once

#include <memory>
#include <string>

#include "vidorra/core/av_ptr.h"
#include "vidorra/core/av_res.h"
#include "vidorra/core/export.h"
#include "vidorra/core/ffmpeg_fwd.h"

#include <tl/expected.hpp>

extern "C" {
#include <libavcodec/packet.h>
}

namespace vidorra {

/// An AVPacket by value, which can be passed to FFmpeg as one. A packet of size 0 marks the end of the data.
/// Times are in microseconds in packets that the library read, and in the codec's time base in packets that
/// it encoded.
///
///     Packet packet = source.readPacket();
///     av_packet_rescale_ts(&packet, Timebase(), stream->time_base);
///
/// Owns: the reference to its data.
/// Threads: one at a time.
/// Errors: copying throws FFmpegError when FFmpeg cannot make a reference.
class VIDORRA_API Packet : public AVPacket {
public:
    enum class KeyFrame { Yes, No };
    /// Whether the packet was made while the input had no signal: bit 0x1000 of the flags, which FFmpeg does
    /// not use.
    enum class NoSignal { Yes, No };

    /// Empty.
    Packet() noexcept;

    /// A new reference to the same data. A packet that owns no data is copied.
    explicit Packet(const AVPacket& packet);
    /// The same from a handle; a null handle gives an empty packet.
    explicit Packet(const AvPtr<AVPacket>& packet);

    Packet(const Packet& other);
    Packet& operator=(const Packet& other);
    /// The moved-from packet is empty.
    Packet(Packet&& other) noexcept;
    Packet& operator=(Packet&& other) noexcept;
    ~Packet();

    /// A new reference as a handle, or FFmpeg's error.
    [[nodiscard]] tl::expected<AvPtr<AVPacket>, AvError> makeReference() const;

    void setFlag(KeyFrame flag) noexcept;
    void setFlag(NoSignal flag) noexcept;

    [[nodiscard]] bool isKeyFrame() const noexcept;
    [[nodiscard]] bool isNoSignal() const noexcept;

    /// Attaches a chapter as side data: two numbers whose meaning is the caller's, and a title. If the
    /// FFmpeg build has a function for that, its result is returned. Otherwise the chapter is stored in side
    /// data of type AV_PKT_DATA_STRINGS_METADATA as "chapter-first", "chapter-second" and "chapter-title".
    AvRes setChapter(long first, unsigned long second, const std::string& title);
};

}  // namespace vidorra
