#include "inspect/settled_reading.h"

#include <cmath>
#include <exception>
#include <variant>

#include "core/wrapping.h"
#include "vidorra/reader/media_file_reader.h"

extern "C" {
#include <libavformat/avformat.h>
}

namespace vidorra::inspect {
namespace {

// As MediaFileReaderAsync has them.
constexpr std::uint64_t kAudioCapacity = 100;
constexpr std::uint64_t kVideoCapacity = 60;
constexpr std::int64_t kPreload = 250000;

// Whether frames would be served, while nobody asks for any.
class Readiness {
public:
    Readiness(bool audio, bool video)
        : mAudioAhead(audio ? 0 : kPreload), mVideoAhead(video ? 0 : kPreload) {}

    void addAudio(std::int64_t time, std::int64_t duration) {
        mAudioAhead = sinceFirst(time) - duration;
        update(++mAudioFrames >= kAudioCapacity);
    }

    void addVideo(std::int64_t time) {
        mVideoAhead = sinceFirst(time);
        update(++mVideoFrames >= kVideoCapacity);
    }

    [[nodiscard]] bool ready() const { return mReady; }

private:
    std::int64_t sinceFirst(std::int64_t time) {
        mFirst = mFirst.value_or(time);
        // A frame without a time has the smallest number.
        return wrappingSubtract(time, *mFirst);
    }

    void update(bool full) {
        mReady = mReady || full || (mAudioAhead >= kPreload && mVideoAhead >= kPreload);
    }

    std::optional<std::int64_t> mFirst;
    std::int64_t mAudioAhead;
    std::int64_t mVideoAhead;
    std::uint64_t mAudioFrames = 0;
    std::uint64_t mVideoFrames = 0;
    bool mReady = false;
};

// Says whether times rise, as the queues want them to.
bool rises(std::optional<std::int64_t>& last, std::int64_t time) {
    const bool rising = !last || time > *last;
    last = time;
    return rising;
}

void readOnce(const std::string& url, SettledReading& result) {
    MediaFileReader reader(url, MediaFileReader::PlaybackMode::Once, nullptr);
    try {
        reader.open();
    } catch (const std::exception& error) {
        result.error = error.what();
        return;
    }
    bool hasAudio = false;
    bool hasVideo = false;
    for (unsigned i = 0; i < reader.tracksNumber(); ++i) {
        const AVMediaType type = reader.trackAtIndex(i)->codecpar->codec_type;
        hasAudio = hasAudio || type == AVMEDIA_TYPE_AUDIO;
        hasVideo = hasVideo || type == AVMEDIA_TYPE_VIDEO;
    }
    Readiness readiness(hasAudio, hasVideo);
    std::optional<std::int64_t> lastAudio;
    std::optional<std::int64_t> lastVideo;
    bool rising = true;
    try {
        for (;;) {
            const auto frame = reader.read();
            if (const auto* audio = std::get_if<AudioFrame>(&frame)) {
                ++result.audioFrames;
                rising = rises(lastAudio, audio->timestamp().value) && rising;
                readiness.addAudio(audio->timestamp().value, audio->audioBuffer().duration().value);
            } else if (const auto* video = std::get_if<VideoFrame>(&frame)) {
                ++result.videoFrames;
                rising = rises(lastVideo, video->timestamp().value) && rising;
                readiness.addVideo(video->timestamp().value);
            } else {
                break;
            }
        }
    } catch (const std::exception& error) {
        result.endsProcess = error.what();
    }
    if (!rising) {
        result.endsProcess = "the times of its frames do not rise";
    }
    result.becomesReady = readiness.ready();
}

std::optional<std::int64_t> loopGap(const std::string& url, const SettledReading& once) {
    MediaFileReader reader(url, MediaFileReader::PlaybackMode::Loop, nullptr);
    reader.open();
    reader.selectTracks(0, once.videoFrames != 0 ? std::optional<unsigned>(0) : std::nullopt);
    std::int64_t end = 0;
    std::uint64_t frames = 0;
    for (std::uint64_t i = 0; i < 4 * (once.audioFrames + once.videoFrames) + 100; ++i) {
        const auto frame = reader.read();
        if (frame.index() == 0) {
            break;
        }
        const auto* audio = std::get_if<AudioFrame>(&frame);
        if (audio == nullptr) {
            continue;
        }
        const std::int64_t time = audio->timestamp().value;
        if (frames++ == once.audioFrames) {
            const double samples = static_cast<double>(time - end) * audio->audioBuffer().sampleRate() / 1e6;
            return std::llround(samples);
        }
        end = time + audio->audioBuffer().duration().value;
    }
    return std::nullopt;
}

}  // namespace

SettledReading readSettled(const std::string& url) {
    SettledReading result;
    readOnce(url, result);
    if (result.audioFrames > 0) {
        try {
            result.loopGap = loopGap(url, result);
        } catch (const std::exception&) {
            // Without a second pass there is no gap.
        }
    }
    return result;
}

}  // namespace vidorra::inspect
