#include "vidorra/clip/clip_player.h"

#include <stdexcept>
#include <utility>

#include "clip/leavable_thread.h"
#include "clip/playback.h"
#include "core/shown_url.h"

namespace vidorra {
namespace {

void validate(const PlayOptions& options) {
    if (options.ahead.count() < 0 || options.standInAfter.count() < 0) {
        throw std::invalid_argument("ClipPlayer: a time is negative");
    }
}

}  // namespace

class ClipPlayer::Implementation {
public:
    Implementation(Playback::MakeReader makeReader, const std::string& name, const PlayOptions& options)
        : mPlayback(std::make_shared<Playback>(std::move(makeReader), name, options)),
          mThread([playback = mPlayback] { playback->run(); }) {}
    Implementation(const Implementation&) = delete;
    Implementation& operator=(const Implementation&) = delete;
    ~Implementation() { mPlayback->stop(); }

    [[nodiscard]] Playback& playback() const noexcept { return *mPlayback; }
    [[nodiscard]] PlayBuffer& buffer() const noexcept { return mPlayback->buffer(); }

private:
    const std::shared_ptr<Playback> mPlayback;
    LeavableThread mThread;
};

ClipPlayer::ClipPlayer(const std::string& url, const PlayOptions& options) {
    validate(options);
    const auto makeReader = [url, clip = options.clip] { return std::make_unique<ClipReader>(url, clip); };
    mImplementation = std::make_unique<Implementation>(makeReader, shownUrl(url), options);
}

ClipPlayer::ClipPlayer(const std::shared_ptr<ByteSource>& source, const PlayOptions& options) {
    validate(options);
    if (options.reconnect) {
        throw std::invalid_argument("ClipPlayer: a byte source cannot be opened again");
    }
    const auto makeReader = [source, clip = options.clip] {
        return std::make_unique<ClipReader>(source, clip);
    };
    mImplementation = std::make_unique<Implementation>(makeReader, source ? source->name() : "", options);
}

ClipPlayer::~ClipPlayer() = default;

VideoFrame ClipPlayer::getVideoFrame(const Timestamp& time, std::chrono::microseconds timeout) {
    return mImplementation->buffer().picture(time, timeout);
}

AudioFrame ClipPlayer::getAudioFrame(const Timestamp& time, std::chrono::microseconds timeout) {
    return mImplementation->buffer().sound(time, timeout);
}

PlayStatus ClipPlayer::status() const {
    return mImplementation->buffer().status();
}

bool ClipPlayer::waitUntil(PlayStatus::State state, std::chrono::microseconds timeout) const {
    return mImplementation->buffer().waitUntil(state, timeout);
}

void ClipPlayer::stop() noexcept {
    mImplementation->playback().stop();
}

std::size_t ClipPlayer::unfinishedThreads() noexcept {
    return LeavableThread::left();
}

}  // namespace vidorra
