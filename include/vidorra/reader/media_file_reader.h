#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <variant>

#include "vdr_utils/warning.h"
#include "vdr_utils/warnings_store_async.h"
#include "vidorra/core/export.h"
#include "vidorra/core/timestamp.h"
#include "vidorra/demux/format_context.h"
#include "vidorra/picture/audio_frame.h"
#include "vidorra/picture/video_frame.h"

namespace vidorra {

/// Reads a media file frame by frame: at most one audio and one video track, once or in a loop. Time stamps
/// are in microseconds from the file's own zero, and go on rising over the loops without a gap.
///
///     MediaFileReader reader("clip.mp4", MediaFileReader::PlaybackMode::Once, nullptr);
///     reader.open();
///     while (reader.getState() == MediaFileReader::State::Opened) {
///         const auto frame = reader.read();
///         if (const auto* video = std::get_if<VideoFrame>(&frame)) { ... }
///         else if (const auto* audio = std::get_if<AudioFrame>(&frame)) { ... }
///     }
///
/// An empty packet in the middle of a file gives nothing, and the file goes on after it. Without a selected
/// track the state stays Opened: a file without sound and pictures never ends.
///
/// It shows three warnings in the store that it is given, each as long as its reason lasts: packets without a
/// duration, a file that is not interleaved, and decoding that falls more than 200 ms behind the clock.
///
/// Frames that a decoder holds back at the end of a file are not delivered; docs/LIMITS.md tells of which
/// codecs. ClipReader delivers them: take it for every frame of a file, for loops without a gap, exact points
/// and seeks, timeouts, and bytes from memory. Take this class where a program relies on its queues and
/// warnings, or on FormatContext.
///
/// Threads: one at a time, but for interrupt(). The store is called from the reading thread.
class VIDORRA_API MediaFileReader : public FormatContext {
public:
    enum class PlaybackMode { Once, Loop };
    enum class State { Closed, Opened, Eof };

    /// Opens nothing yet. The store may be null, for no warnings.
    MediaFileReader(const std::string& url, PlaybackMode mode,
                    std::shared_ptr<vx::vdr::utils::WarningsStoreAsync> store);
    ~MediaFileReader();

    /// Opens the file and selects the first track of each type. Gives true. Throws std::logic_error when
    /// already open, std::runtime_error for a file that cannot be opened or read.
    bool open();

    /// Releases the file and withdraws the warnings.
    void close();

    /// Selects tracks by their number among the tracks of their type, from 0; nothing for no track of the
    /// type. A number beyond the last one selects none, which is logged. All other tracks are left out by the
    /// demuxer. Throws std::logic_error when closed.
    void selectTracks(std::optional<unsigned> audio, std::optional<unsigned> video);

    /// The next frame of a selected track. Nothing
    /// - when closed, or without a selected track;
    /// - for an empty packet, after which the state is still Opened;
    /// - at the end of a file that is played once or cannot seek;
    /// - at the end of a loop: after a pass of the file that gave no packet, or two passes in a row that gave
    ///   no frame.
    ///
    /// Throws std::runtime_error when reading fails, and another call then tries again; when a loop cannot go
    /// back to its beginning, and the reader is then at the end; and as decodeAudioPacket() does. What cannot
    /// be decoded is logged and passed over.
    [[nodiscard]] std::variant<std::monostate, AudioFrame, VideoFrame> read();

    /// Goes back to the beginning; time stamps continue from the end of the last packet. Throws
    /// std::logic_error when closed, std::runtime_error for a source that cannot seek, and with FFmpeg's text
    /// when seeking fails. The warnings are withdrawn then, and the times do not change.
    void restart();

    [[nodiscard]] State getState() const noexcept;

    /// Withdraws the warnings and begins a new cycle of watching. The clock of decoding starts with the first
    /// video frame of the cycle.
    void clearWarningsCtx();

    /// Shows the warning about packets without a duration, or withdraws it, as a packet gives reason.
    void checkZeroDurationWarning(const Packet& packet);

    /// Shows the warning about a file that is not interleaved, when a packet of the second track first turns
    /// up 350 ms or more before the end of what was read.
    void checkNonInterleavedWarning(const Packet& packet);

protected:
    /// The stream indices of the selected tracks.
    [[nodiscard]] std::optional<unsigned> selectedAudioTrack() const noexcept { return mAudioTrack; }
    [[nodiscard]] std::optional<unsigned> selectedVideoTrack() const noexcept { return mVideoTrack; }

private:
    struct WarningsContext {
        struct DecodingMonitor {
            std::once_flag once;
            std::chrono::steady_clock::time_point start = std::chrono::steady_clock::time_point::max();
        };

        vx::vdr::utils::Warning zeroDuration;
        vx::vdr::utils::Warning nonInterleaved;
        std::uint32_t audioPackets = 0;
        std::uint32_t videoPackets = 0;
        vx::vdr::utils::Warning decoding;
        DecodingMonitor monitor;
    };

    struct TrackCounts {
        unsigned audio = 0;
        unsigned video = 0;
    };

    // What the present pass of the file has given so far.
    struct Pass {
        bool gavePacket = false;
        bool gaveFrame = false;
        // Whether the pass before it gave a frame. The first one counts as if it followed one that did.
        bool followsFrame = true;
    };

    TrackCounts chooseTracks(std::optional<unsigned> audio, std::optional<unsigned> video);
    [[nodiscard]] bool isAudio(const Packet& packet) const noexcept;
    [[nodiscard]] bool isVideo(const Packet& packet) const noexcept;
    void watch(const Packet& packet);
    void callbackIfDecodingIsSlow(const VideoFrame& frame);

    std::optional<unsigned> mAudioTrack;
    std::optional<unsigned> mVideoTrack;
    // The greatest end of any packet read.
    Timestamp mLastPts;
    PlaybackMode mPlaybackMode;
    std::shared_ptr<vx::vdr::utils::WarningsStoreAsync> mWarningsStore;
    WarningsContext mWarningsCtx;
    Pass mPass;
};

}  // namespace vidorra
