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
/// are in microseconds from the file's own zero, and keep rising from loop to loop without a gap.
///
///     MediaFileReader reader("clip.mp4", MediaFileReader::PlaybackMode::Once, nullptr);
///     reader.open();
///     while (reader.getState() == MediaFileReader::State::Opened) {
///         const auto frame = reader.read();
///         if (const auto* video = std::get_if<VideoFrame>(&frame)) { ... }
///         else if (const auto* audio = std::get_if<AudioFrame>(&frame)) { ... }
///     }
///
/// An empty packet in the middle of a file gives nothing, and reading continues after it. Without a selected
/// track the state stays Opened: a file without sound and pictures never ends.
///
/// It shows three warnings in its store, each as long as its reason lasts: packets without a duration, a
/// file that is not interleaved, and decoding that falls more than 200 ms behind the clock.
///
/// Frames that a decoder holds back at the end of a file are not delivered; docs/LIMITS.md lists the codecs.
/// ClipReader delivers them: use it for every frame of a file, for loops without a gap, exact points and
/// seeks, timeouts, and bytes from memory. Use this class if a program relies on its warnings or on
/// FormatContext.
///
/// Threads: one at a time, except for interrupt(). The store is called on the reading thread.
class VIDORRA_API MediaFileReader : public FormatContext {
public:
    enum class PlaybackMode { Once, Loop };
    enum class State { Closed, Opened, Eof };

    /// Does not open the file yet. The store may be null; there are no warnings then.
    MediaFileReader(const std::string& url, PlaybackMode mode,
                    std::shared_ptr<vx::vdr::utils::WarningsStoreAsync> store);
    ~MediaFileReader();

    /// Opens the file and selects the first track of each type. Always returns true. Throws std::logic_error
    /// when already open, std::runtime_error for a file that cannot be opened or read.
    bool open();

    /// Releases the file and withdraws the warnings.
    void close();

    /// Selects tracks by their number among the tracks of their type, counted from 0; std::nullopt selects
    /// none. A number past the last track selects none, which is logged. The demuxer discards all other
    /// tracks. Throws std::logic_error when closed.
    void selectTracks(std::optional<unsigned> audio, std::optional<unsigned> video);

    /// The next frame of a selected track. Returns nothing
    /// - when closed, or without a selected track;
    /// - for an empty packet, after which the state is still Opened;
    /// - at the end of a file that is played once or cannot seek;
    /// - at the end of a loop: after a pass of the file that gave no packet, or two passes in a row that gave
    ///   no frame.
    ///
    /// Throws std::runtime_error when reading fails; the next call then tries again. Throws it also when a
    /// loop cannot seek back to the start; the reader is then at the end. Throws as decodeAudioPacket()
    /// does. What cannot be decoded is logged and skipped.
    [[nodiscard]] std::variant<std::monostate, AudioFrame, VideoFrame> read();

    /// Seeks back to the start; time stamps continue from the end of the last packet. Throws
    /// std::logic_error when closed, std::runtime_error for a source that cannot seek, and
    /// std::runtime_error with FFmpeg's text when seeking fails. In the last case the warnings are
    /// withdrawn, and the times do not change.
    void restart();

    [[nodiscard]] State getState() const noexcept;

    /// Withdraws the warnings and starts to watch again. The decoding clock starts with the next video
    /// frame.
    void clearWarningsCtx();

    /// Shows the warning about packets without a duration, or withdraws it, depending on this packet.
    void checkZeroDurationWarning(const Packet& packet);

    /// Shows the warning about a file that is not interleaved, when the first packet of the second track
    /// begins 350 ms or more before the end of what was read.
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

    // What the present pass over the file has given so far.
    struct Pass {
        bool gavePacket = false;
        bool gaveFrame = false;
        // Whether the pass before gave a frame. True for the first pass.
        bool followsFrame = true;
    };

    TrackCounts chooseTracks(std::optional<unsigned> audio, std::optional<unsigned> video);
    [[nodiscard]] bool isAudio(const Packet& packet) const noexcept;
    [[nodiscard]] bool isVideo(const Packet& packet) const noexcept;
    void watch(const Packet& packet);
    void callbackIfDecodingIsSlow(const VideoFrame& frame);

    std::optional<unsigned> mAudioTrack;
    std::optional<unsigned> mVideoTrack;
    // The latest end of all packets read.
    Timestamp mLastPts;
    PlaybackMode mPlaybackMode;
    std::shared_ptr<vx::vdr::utils::WarningsStoreAsync> mWarningsStore;
    WarningsContext mWarningsCtx;
    Pass mPass;
};

}  // namespace vidorra
