#include "vidorra/clip/clip_reader.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <stdexcept>
#include <utility>

#include "clip/clip_counts.h"
#include "clip/clip_input.h"
#include "clip/clip_pass.h"
#include "clip/interruption.h"
#include "clip/thread_budget.h"
#include "clip/ticks.h"
#include "core/log.h"
#include "demux/default_channels.h"
#include "vidorra/core/ffmpeg_error.h"
#include "vidorra/demux/audio_decoder.h"
#include "vidorra/demux/video_decoder.h"

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/frame.h>
}

namespace vidorra {
namespace {

Ticks ticksOf(const Timestamp& time) {
    const std::optional<Ticks> ticks = time.isNull ? 0 : ticksOf(time.value, time.timebase);
    if (!ticks) {
        throw std::invalid_argument("ClipReader: a time is out of range");
    }
    return *ticks;
}

bool isNegative(const ClipTrackChoice& choice) {
    return choice.by == TrackChoice::Number && choice.number < 0;
}

void validate(const ClipOptions& options) {
    if (ticksOf(options.in) < 0 || (!options.out.isNull && ticksOf(options.out) <= ticksOf(options.in))) {
        throw std::invalid_argument("ClipReader: the out point is not after the in point");
    }
    if (isNegative(options.audio) || isNegative(options.video)) {
        throw std::invalid_argument("ClipReader: the number of a track is negative");
    }
    if (options.audio.by == TrackChoice::None && options.video.by == TrackChoice::None) {
        throw std::invalid_argument("ClipReader: neither audio nor video is to be read");
    }
    if (options.threads < 0) {
        throw std::invalid_argument("ClipReader: the number of threads is negative");
    }
    if (options.openTimeout.count() < 0 || options.readTimeout.count() < 0) {
        throw std::invalid_argument("ClipReader: a timeout is negative");
    }
}

// A buffer of samples has a mask of channels; sound for which there is no usual one gets as many bits.
void completeChannels(AVFrame& frame) {
    constexpr int kMostBits = 63;
    const int channels = ffmpeg_ext::channelCount(frame);
    if (!setDefaultChannelMask(frame) && channels <= kMostBits) {
        ffmpeg_ext::setChannelMask(frame, (std::uint64_t{1} << channels) - 1);
    }
}

ClipFrame toClipFrame(PlacedFrame& placed) {
    ClipFrame frame;
    if (placed.picture) {
        frame.content = VideoDecoder::toVideoFrame(*placed.frame);
    } else {
        completeChannels(*placed.frame);
        frame.content = AudioDecoder::toAudioFrame(*placed.frame);
    }
    return frame;
}

void setTimestamp(ClipFrame& frame, const Timestamp& time) {
    if (VideoFrame* picture = frame.video()) {
        picture->setTimestamp(time);
    } else if (AudioFrame* sound = frame.audio()) {
        sound->setTimestamp(time);
    }
}

}  // namespace

class ClipReader::Implementation {
public:
    Implementation(ClipOrigin source, ClipOptions given)
        : mOrigin(std::move(source)), mOptions(std::move(given)) {
        validate(mOptions);
        mIn = ticksOf(mOptions.in);
    }
    Implementation(const Implementation&) = delete;
    Implementation& operator=(const Implementation&) = delete;
    // Closing a source may wait for the network too.
    ~Implementation() { mInterruption.stop(); }

    void open() {
        if (mInterruption.stopped()) {
            throw FFmpegError(mInterruption.reasonFor(0), "cannot open " + mOrigin.name());
        }
        if (mPass == nullptr) {
            openPass();
            mTracks = mPass->tracks();
            mUnused = mPass->unusedOptions();
        }
    }

    ClipFrame read();
    void seek(const Timestamp& to, SeekTo mode);
    Timestamp duration();

    Interruption& interruption() noexcept { return mInterruption; }
    [[nodiscard]] const ClipCounts& counts() const noexcept { return mCounts; }
    [[nodiscard]] const std::vector<ClipTrack>& tracks() const noexcept { return mTracks; }
    [[nodiscard]] const std::vector<std::string>& unusedOptions() const noexcept { return mUnused; }
    [[nodiscard]] std::int64_t position() const noexcept { return mPosition.load(); }

private:
    ClipFrame nextFrame();
    // The time in the source that stamps count from.
    [[nodiscard]] Ticks zero() const noexcept { return mIn == 0 ? mPass->lead() : mIn; }
    bool convert(PlacedFrame& placed, ClipFrame& frame);
    [[nodiscard]] bool isFollowed() const noexcept {
        return mOptions.passes == 0 || mNumber + 1 < mOptions.passes;
    }
    void openPass() {
        mPass = std::make_unique<ClipPass>(mOrigin, mOptions, mInterruption, mCounts, isFollowed());
    }
    void beginNextPass();

    const ClipOrigin mOrigin;
    const ClipOptions mOptions;
    Ticks mIn = 0;
    Interruption mInterruption;
    ClipCounts mCounts;
    std::unique_ptr<ClipPass> mPass;
    std::vector<ClipTrack> mTracks;
    std::vector<std::string> mUnused;

    // Where the pass began, as stamps count.
    Ticks mBase = 0;
    std::uint64_t mNumber = 0;
    // The greatest end of the frames of the pass, from the in point; nothing before its first.
    std::optional<Ticks> mEnd;
    bool mEnded = false;
    std::atomic<std::int64_t> mPosition{0};
};

ClipFrame ClipReader::Implementation::read() {
    if (mInterruption.stopped()) {
        return {};
    }
    try {
        if (!mEnded) {
            open();
        }
        return nextFrame();
    } catch (...) {
        // Another call tries again to open the source for the first time.
        mEnded = mPass != nullptr || mNumber != 0;
        if (mPass != nullptr && !mPass->isOpen()) {
            mPass.reset();
        }
        if (mInterruption.stopped()) {
            return {};
        }
        throw;
    }
}

ClipFrame ClipReader::Implementation::nextFrame() {
    while (!mEnded && !mInterruption.stopped()) {
        std::optional<PlacedFrame> placed = mPass->next();
        ClipFrame frame;
        if (!placed) {
            if (!mInterruption.stopped()) {
                beginNextPass();
            }
        } else if (convert(*placed, frame)) {
            return frame;
        }
    }
    return {};
}

bool ClipReader::Implementation::convert(PlacedFrame& placed, ClipFrame& frame) {
    try {
        frame = toClipFrame(placed);
    } catch (const std::runtime_error& error) {
        ++mCounts.droppedFrames;
        logFormatted(kLogWarning, {}, "{}: a frame is left out: {}", mOrigin.name(), error.what());
        return false;
    }
    const Ticks begin = placed.time - zero();
    const Ticks end = begin + placed.duration;
    mEnd = std::max(mEnd.value_or(end), end);
    const Timestamp time = timestampOf(mBase + begin);
    setTimestamp(frame, time);
    frame.duration = timestampOf(mBase + end) - time;
    frame.sourceTime = timestampOf(placed.time);
    frame.pass = mNumber;
    mPosition.store(timestampOf(mBase + *mEnd).value);
    return true;
}

void ClipReader::Implementation::beginNextPass() {
    // A pass without frames would be followed by more of them, and stamps end with the time that is counted.
    if (!isFollowed() || !mEnd || *mEnd > kMostTicks - mBase || !mPass->input().canSeek()) {
        mEnded = true;
        return;
    }
    mBase += *mEnd;
    mEnd.reset();
    ++mNumber;
    // First, so that there is one decoder at a time.
    mPass.reset();
    openPass();
}

void ClipReader::Implementation::seek(const Timestamp& to, SeekTo mode) {
    if (to.isNull) {
        throw std::invalid_argument("ClipReader::seek(): the time is null");
    }
    open();
    const Ticks first = zero();
    Ticks target = first + std::max<Ticks>(ticksOf(to), 0);
    if (!mPass->canReach(target)) {
        throw FFmpegError(AvError(AVERROR(ESPIPE)), "cannot seek in " + mOrigin.name());
    }
    // Where the rest fails, the place is lost: the reader is at its end until another call of seek().
    mEnded = true;
    std::unique_ptr<ClipPass> pass = std::move(mPass);
    if (mode == SeekTo::KeyFrame) {
        target = std::max(first, pass->keyPictureBefore(target));
    }
    // To where everything begins, which may be before the first frame.
    target = target == first ? mIn : target;
    mBase = 0;
    mNumber = 0;
    mEnd.reset();
    pass->seek(target, isFollowed());
    mPass = std::move(pass);
    mEnded = false;
    mPosition.store(timestampOf(target - zero()).value);
}

Timestamp ClipReader::Implementation::duration() {
    open();
    const std::int64_t whole = mPass->input().context().duration;
    if (whole == AV_NOPTS_VALUE || whole <= 0) {
        return {};
    }
    const Ticks end = ticksOf(Timestamp(Timebase(), whole));
    return timestampOf(
        std::max<Ticks>(mOptions.out.isNull ? end : std::min(end, ticksOf(mOptions.out)), mIn) - mIn);
}

ClipReader::ClipReader(std::string url, ClipOptions options)
    : mImplementation(
          std::make_unique<Implementation>(ClipOrigin{std::move(url), nullptr}, std::move(options))) {}

ClipReader::ClipReader(std::shared_ptr<ByteSource> source, ClipOptions options) {
    if (source == nullptr) {
        throw std::invalid_argument("ClipReader: the byte source is null");
    }
    mImplementation = std::make_unique<Implementation>(ClipOrigin{"", std::move(source)}, std::move(options));
}

ClipReader::ClipReader(ClipReader&& other) noexcept = default;
ClipReader& ClipReader::operator=(ClipReader&& other) noexcept = default;
ClipReader::~ClipReader() = default;

void ClipReader::open() {
    mImplementation->open();
}

ClipFrame ClipReader::read() {
    return mImplementation->read();
}

void ClipReader::seek(const Timestamp& to, SeekTo mode) {
    mImplementation->seek(to, mode);
}

void ClipReader::stop() noexcept {
    mImplementation->interruption().stop();
}

bool ClipReader::stopped() const noexcept {
    return mImplementation->interruption().stopped();
}

Timestamp ClipReader::position() const noexcept {
    return {Timebase(), mImplementation->position()};
}

Timestamp ClipReader::duration() {
    return mImplementation->duration();
}

const std::vector<ClipTrack>& ClipReader::tracks() {
    mImplementation->open();
    return mImplementation->tracks();
}

std::vector<std::string> ClipReader::unusedOptions() {
    mImplementation->open();
    return mImplementation->unusedOptions();
}

ClipCounters ClipReader::counters() const noexcept {
    const ClipCounts& counts = mImplementation->counts();
    return {counts.repairedTimes, counts.droppedFrames, counts.damagedPackets};
}

void ClipReader::setThreadBudget(int threads) {
    if (threads < 0) {
        throw std::invalid_argument("ClipReader::setThreadBudget(): a number of threads is not negative");
    }
    ThreadShare::setBudget(threads);
}

}  // namespace vidorra
