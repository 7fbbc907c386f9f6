#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "clip/play_buffer.h"
#include "vdr_utils/warning.h"
#include "vidorra/clip/clip_player.h"

namespace vidorra {

/// Reads clips into a buffer: what the thread of a player does. It belongs to the player and to the thread,
/// so that it outlives a player whose source does not return.
///
/// Threads: run() on one, the others from any.
class Playback {
public:
    /// Makes a reader of the source, which is called again for each connection.
    using MakeReader = std::function<std::unique_ptr<ClipReader>()>;

    /// `name` is that of the source, for warnings. Throws what `makeReader` throws.
    Playback(MakeReader makeReader, const std::string& name, const PlayOptions& options);
    Playback(const Playback&) = delete;
    Playback& operator=(const Playback&) = delete;

    /// Reads to the end, or until stop().
    void run() noexcept;

    /// Ends run() as soon as the source lets it.
    void stop() noexcept;

    [[nodiscard]] PlayBuffer& buffer() noexcept { return mBuffer; }

private:
    void play();
    void readAll(ClipReader& reader);
    void warnIfLate();
    [[nodiscard]] ClipReader& connect();
    [[nodiscard]] std::optional<PlayBuffer::Failure> tryToRead();

    const MakeReader mMakeReader;
    const bool mReconnect;
    const std::shared_ptr<vx::vdr::utils::WarningsStoreAsync> mWarnings;
    vx::vdr::utils::Warning mLate;
    // How it calls the source.
    const std::string mName;
    PlayBuffer mBuffer;
    // Whether a frame came since the source was opened, and whether it was opened before.
    bool mAnyFrame = false;
    bool mConnected = false;
    // Guards the pointer mReader, which only run() changes.
    std::mutex mMutex;
    std::unique_ptr<ClipReader> mReader;
};

}  // namespace vidorra
