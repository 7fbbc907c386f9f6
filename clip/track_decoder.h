#pragma once

#include <memory>
#include <set>
#include <string>

#include "clip/thread_budget.h"
#include "vidorra/core/av_ptr.h"
#include "vidorra/demux/decoder_base.h"

namespace vidorra {

struct ClipCounts;
struct ClipOptions;

/// Decodes one track: every frame of every packet, and at the end those that the decoder holds back.
///
///     decoder.send(packet);
///     while (const AvPtr<AVFrame> frame = decoder.receive()) { ... }
///
/// Owns: FFmpeg's decoder, and its share of the threads.
/// Threads: one at a time.
class TrackDecoder {
public:
    /// Opens the decoder of a stream, which must outlive it. Throws std::invalid_argument for the name of an
    /// unknown decoder, FFmpegError when the decoder cannot be opened.
    TrackDecoder(const AVStream& stream, const ClipOptions& options, ClipCounts& counts);
    TrackDecoder(const TrackDecoder&) = delete;
    TrackDecoder& operator=(const TrackDecoder&) = delete;
    ~TrackDecoder();

    [[nodiscard]] bool isVideo() const noexcept;

    /// Hands over a packet after receive() gave nothing, or null for the end of the track. A packet that the
    /// decoder refuses is counted.
    void send(const AVPacket* packet);

    /// The next frame of what was sent; null when there is none.
    [[nodiscard]] AvPtr<AVFrame> receive();

    /// Forgets what was sent, for packets from somewhere else.
    void restart();

    /// Names of options that the decoder did not know.
    [[nodiscard]] const std::set<std::string>& unknownOptions() const noexcept { return mUnknown; }

private:
    [[nodiscard]] std::unique_ptr<DecoderBase> make();
    [[nodiscard]] int threadsFor(const AVCodec& codec);
    void countDamage(AvError error);

    const AVStream& mStream;
    const ClipOptions& mOptions;
    ClipCounts& mCounts;
    ThreadShare mThreads;
    std::set<std::string> mUnknown;
    int mErrorsInARow = 0;
    bool mLogged = false;
    // The last: make() uses the others.
    std::unique_ptr<DecoderBase> mDecoder;
};

}  // namespace vidorra
