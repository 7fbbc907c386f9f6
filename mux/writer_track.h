#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <optional>
#include <string>

#include "vidorra/core/av_error.h"
#include "vidorra/core/timestamp.h"
#include "vidorra/demux/packet.h"
#include "vidorra/mux/media_file_writer.h"

struct AVStream;

namespace vidorra {

/// Thrown by a track that does not take a frame and stays as it was.
struct Refusal {
    std::exception_ptr reason;
};

/// Thrown by a track that cannot go on.
struct TrackFailure {
    AvError error;
    std::string step;
};

/// One track of a MediaFileWriter: makes packets of what is written to it.
class WriterTrack {
public:
    /// Gets the packets in the order of decoding, with durations, in timebase().
    using Take = std::function<void(Packet)>;

    /// `name` is what errors and log lines call it.
    WriterTrack(std::string name, Timebase timebase, Take take);
    WriterTrack(const WriterTrack&) = delete;
    WriterTrack& operator=(const WriterTrack&) = delete;
    virtual ~WriterTrack();

    /// Each kind of track takes one of these, and refuses the others with std::logic_error.
    virtual void write(const VideoFrame& frame);
    virtual void write(const AudioFrame& frame);
    virtual void write(const Packet& packet);

    /// Gives all packets that are left.
    virtual void end() = 0;

    /// Describes a stream that begins at `start`: codec, aspect, rate, timecode.
    virtual void describe(AVStream& stream, const Timestamp& start) const = 0;

    /// Whether other tracks wait for this one. Subtitles and data have long pauses.
    [[nodiscard]] virtual bool isWaitedFor() const { return true; }

    /// Whether files can be cut at its key frames.
    [[nodiscard]] virtual bool hasPictures() const { return false; }

    /// Whether the codec's tag is that of another container.
    [[nodiscard]] virtual bool hasForeignTag() const { return false; }

    [[nodiscard]] const std::string& name() const noexcept { return mName; }
    [[nodiscard]] Timebase timebase() const noexcept { return mTimebase; }
    [[nodiscard]] const WriterReport::Track& report() const noexcept { return mReport; }

protected:
    /// Counts a packet and passes it on. Its first `leadIn` units are not to be shown.
    void give(Packet packet, std::int64_t leadIn);

    template <class E>
    [[noreturn]] static void refuse(const E& exception) {
        throw Refusal{std::make_exception_ptr(exception)};
    }

    /// The count of a time in timebase(). Refuses one that is not set, or not above the latest.
    [[nodiscard]] std::int64_t requireRise(const Timestamp& time,
                                           const std::optional<std::int64_t>& latest) const;

    WriterReport::Track mReport;

private:
    std::string mName;
    Timebase mTimebase;
    Take mTake;
    // Whether the latest packet has the mark.
    bool mIsWithoutSignal = false;
};

}  // namespace vidorra
