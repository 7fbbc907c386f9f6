#pragma once

#include <memory>
#include <set>
#include <string>

#include "clip/ticks.h"
#include "vidorra/core/av_ptr.h"
#include "vidorra/core/dictionary.h"

struct AVIOContext;

namespace vidorra {

class ByteSource;
class ByteStream;
class Interruption;
struct ClipOptions;

/// What a clip is read from: a URL, or a source in its place.
struct ClipOrigin {
    std::string url;
    std::shared_ptr<ByteSource> source;

    /// For messages.
    [[nodiscard]] std::string name() const;
};

/// A source that was opened once, and is read from its start: what FFmpeg's demuxer gives, without decoding.
///
/// Owns: FFmpeg's objects for it. The interruption has to outlive it.
/// Threads: one at a time.
/// Errors: FFmpegError with the name of the source, and what a byte source throws.
class ClipInput {
public:
    /// Opens the source, which a byte source begins again for, and finds out about its streams. Throws
    /// std::invalid_argument for an unknown format.
    ClipInput(const ClipOrigin& origin, const ClipOptions& options, Interruption& interruption);
    ClipInput(const ClipInput&) = delete;
    ClipInput& operator=(const ClipInput&) = delete;
    ~ClipInput();

    [[nodiscard]] AVFormatContext& context() const noexcept { return *mContext; }

    /// Whether it can be opened again for the same bytes.
    [[nodiscard]] bool canSeek() const noexcept;

    /// The time at which its tracks start, which counts as 0.
    [[nodiscard]] Ticks start() const noexcept { return mStart; }

    /// Reads only the packets of these streams.
    void select(const std::set<int>& streams);

    /// Puts the next packet of a selected stream into an empty one. False at the end.
    [[nodiscard]] bool read(AVPacket& packet);

    /// Goes to a key frame at or before a time from start(). False when FFmpeg cannot.
    [[nodiscard]] bool seek(Ticks to);

    /// Names of options that neither the protocol nor the demuxer knew.
    [[nodiscard]] const std::set<std::string>& unknownOptions() const noexcept { return mUnknown; }

private:
    void openBytes(const ClipOrigin& origin, Dictionary& options, bool noFile);
    void chooseProtocols(const ClipOrigin& origin, Dictionary& options) const;
    void openFormat(const ClipOrigin& origin, Dictionary& options);
    [[noreturn]] void fail(int code, const char* what) const;

    const ClipOptions& mOptions;
    Interruption& mInterruption;
    std::string mName;
    // FFmpeg reads from one of these, or opens what it wants by itself.
    std::unique_ptr<ByteStream> mStream;
    AvPtr<AVIOContext> mBytes;
    AvPtr<AVFormatContext> mContext;
    std::set<int> mSelected;
    std::set<std::string> mUnknown;
    Ticks mStart = 0;
};

}  // namespace vidorra
