#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>
#include <variant>
#include <vector>

#include "vidorra/core/av_ptr.h"
#include "vidorra/core/export.h"
#include "vidorra/core/ffmpeg_fwd.h"
#include "vidorra/core/metadata.h"
#include "vidorra/core/smpte12_timecode.h"
#include "vidorra/core/timestamp.h"

namespace vidorra {

/// What decoders, queues and encoders pass on: a presentation time, flags, strings, side data, and the
/// picture or samples that a derived class adds. Copies share pixels and samples.
///
///     frame.setTimestamp(Timestamp(Timebase(1, 25), 0));
///     const bool noSignal = (frame.flags() & Frame::NoSignal) != Frame::NoFlags;
///
/// Threads: one at a time for each object; pass frames between threads by value.
class VIDORRA_API Frame {
public:
    /// A bit set; combine values with |. Bit 1 is free.
    enum FrameFlags : std::uint32_t {
        NoFlags = 0,
        /// The last frame of its stream.
        LastFrame = 2,
        /// Stands in for an input that has no signal.
        NoSignal = 4,
    };

    /// What an encoder may write into its stream in addition to the picture.
    using SideData = std::variant<SMPTE12Timecode>;

    /// No flags, no metadata, no side data.
    explicit Frame(const Timestamp& timestamp);
    virtual ~Frame();

    /// Makes an AVFrame share or copy the content. Its pts becomes the count of the time stamp, in the
    /// stamp's own base. The AVFrame must be new or reset. Throws std::runtime_error when empty,
    /// std::bad_alloc when there is no memory.
    virtual void fillAVFrame(AVFrame* frame) const = 0;

    /// Whether there is no picture or no audio buffer. A buffer with a layout but no samples yet counts as
    /// one.
    [[nodiscard]] virtual bool empty() const = 0;

    /// One line about the frame, for logs.
    [[nodiscard]] virtual std::string debugDescription() const = 0;

    [[nodiscard]] virtual bool isAudio() const = 0;
    [[nodiscard]] virtual bool isVideo() const = 0;

    [[nodiscard]] const Timestamp& timestamp() const noexcept { return mTimestamp; }
    void setTimestamp(const Timestamp& timestamp) noexcept { mTimestamp = timestamp; }

    [[nodiscard]] FrameFlags flags() const noexcept { return mFlags; }
    void setFlags(FrameFlags flags) noexcept { mFlags = flags; }

    [[nodiscard]] const Metadata& metadata() const noexcept { return mMetadata; }
    [[nodiscard]] Metadata& metadata() noexcept { return mMetadata; }

    /// At most one of each kind.
    [[nodiscard]] const std::vector<SideData>& sideData() const noexcept { return mSideData; }

    /// Adds side data and replaces an existing entry of its kind.
    void addSideData(const SideData& sideData);

    /// A new AVFrame, filled by fillAVFrame(). A timecode becomes side data of type
    /// AV_FRAME_DATA_S12M_TIMECODE. Throws std::runtime_error when empty, std::bad_alloc when there is no
    /// memory.
    [[nodiscard]] AvPtr<AVFrame> toAvFrame() const;

protected:
    Frame(const Frame& other) = default;
    Frame(Frame&& other) = default;
    Frame& operator=(const Frame& other) = default;
    Frame& operator=(Frame&& other) = default;

private:
    FrameFlags mFlags = NoFlags;
    Timestamp mTimestamp;
    Metadata mMetadata;
    std::vector<SideData> mSideData;
};

[[nodiscard]] constexpr Frame::FrameFlags operator|(Frame::FrameFlags a, Frame::FrameFlags b) noexcept {
    return static_cast<Frame::FrameFlags>(static_cast<std::uint32_t>(a) | static_cast<std::uint32_t>(b));
}

[[nodiscard]] constexpr Frame::FrameFlags operator&(Frame::FrameFlags a, Frame::FrameFlags b) noexcept {
    return static_cast<Frame::FrameFlags>(static_cast<std::uint32_t>(a) & static_cast<std::uint32_t>(b));
}

/// Writes debugDescription().
VIDORRA_API std::ostream& operator<<(std::ostream& stream, const Frame& frame);

}  // namespace vidorra
