#include "clip/playback.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <filesystem>
#include <utility>
#include <vector>

#include "core/log.h"
#include "vdr_utils/warnings_store_async.h"
#include "vidorra/core/ffmpeg_error.h"
#include "vidorra/core/format.h"

namespace vidorra {
namespace {

using namespace std::chrono_literals;

constexpr std::chrono::microseconds kFirstPause = 100ms;
constexpr std::chrono::microseconds kLongestPause = 5s;

}  // namespace

Playback::Playback(MakeReader makeReader, const std::string& name, const PlayOptions& options)
    : mMakeReader(std::move(makeReader)),
      mReconnect(options.reconnect),
      mWarnings(options.clip.warnings),
      mName(fmt::format("{}", std::filesystem::path(name).filename())),
      mBuffer(options),
      mReader(mMakeReader()) {}

void Playback::stop() noexcept {
    mBuffer.stop();
    const std::lock_guard lock(mMutex);
    if (mReader) {
        mReader->stop();
    }
}

void Playback::run() noexcept {
    try {
        play();
    } catch (const std::exception& error) {
        // Only memory can be missing here.
        logger::print(kLogError, "ClipPlayer: reading ends: %s", error.what());
        mBuffer.finish(PlayBuffer::Failure{AvError::OutOfMemory, {}});
    }
    // Here, since closing a source may take its time.
    mLate = {};
    std::unique_ptr<ClipReader> last;
    const std::lock_guard lock(mMutex);
    last.swap(mReader);
}

void Playback::play() {
    std::chrono::microseconds pause = kFirstPause;
    for (;;) {
        const std::optional<PlayBuffer::Failure> failure = tryToRead();
        if (mBuffer.stopped()) {
            return;
        }
        if (failure) {
            logFormatted(kLogWarning, {}, "ClipPlayer: {}", failure->message);
        }
        if (!mReconnect) {
            mBuffer.finish(failure);
            return;
        }
        pause = mAnyFrame ? kFirstPause : pause;
        if (!mBuffer.lose(failure, pause)) {
            return;
        }
        pause = std::min(2 * pause, kLongestPause);
    }
}

std::optional<PlayBuffer::Failure> Playback::tryToRead() {
    mAnyFrame = false;
    try {
        readAll(connect());
        return std::nullopt;
    } catch (const FFmpegError& error) {
        return PlayBuffer::Failure{error.error(), error.what()};
    } catch (const std::exception& error) {
        return PlayBuffer::Failure{AvError::Unknown, error.what()};
    } catch (...) {
        return PlayBuffer::Failure{AvError::Unknown, "unknown exception"};
    }
}

ClipReader& Playback::connect() {
    // The one before is closed after the lock.
    std::unique_ptr<ClipReader> reader = mConnected ? mMakeReader() : nullptr;
    mConnected = true;
    const std::lock_guard lock(mMutex);
    if (reader) {
        mReader.swap(reader);
    }
    if (mBuffer.stopped()) {
        mReader->stop();
    }
    return *mReader;
}

void Playback::readAll(ClipReader& reader) {
    const auto isSelected = [&reader](ClipTrack::Kind kind) {
        const std::vector<ClipTrack>& tracks = reader.tracks();
        return std::any_of(tracks.begin(), tracks.end(),
                           [kind](const ClipTrack& track) { return track.selected && track.kind == kind; });
    };
    const bool audio = isSelected(ClipTrack::Kind::Audio);
    mBuffer.begin(audio, isSelected(ClipTrack::Kind::Video), reader.duration());
    while (ClipFrame frame = reader.read()) {
        mAnyFrame = true;
        if (!mBuffer.push(std::move(frame), reader.counters())) {
            break;
        }
        warnIfLate();
    }
}

void Playback::warnIfLate() {
    if (!mWarnings || mBuffer.isLate() != mLate.text().empty()) {
        return;
    }
    mLate = mLate.text().empty()
                ? mWarnings->add(fmt::format("Not enough decoding resources to process the media file {}. "
                                             "This could lead to partial or full audio/video frames loss.",
                                             mName))
                : vx::vdr::utils::Warning();
}

}  // namespace vidorra
