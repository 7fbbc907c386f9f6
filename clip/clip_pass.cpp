#include "clip/clip_pass.h"

#include <algorithm>
#include <cerrno>
#include <limits>
#include <new>
#include <set>
#include <utility>

#include "clip/clip_counts.h"
#include "clip/interruption.h"
#include "clip/track_list.h"
#include "core/log.h"
#include "ffmpeg/frame_duration.h"
#include "vidorra/core/ffmpeg_error.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace vidorra {
namespace {

// A time that is not further from the start is reached by reading everything before it: stamps of many
// containers are rounded, so only a count from the start gives the place of each sample.
constexpr Ticks kNear = 10 * kSecond;

// How far before a time to look for a key picture first, and how much further each time that was not far
// enough. Sound needs some packets before its first too.
constexpr Ticks kFirstBack = kSecond;
constexpr Ticks kFurther = 4;
constexpr Ticks kWithoutLeavingOut = std::numeric_limits<Ticks>::max();

// How far past the out point the packets of one track may be before nothing is expected of the others any
// more.
constexpr Ticks kPastEnd = 10 * kSecond;

Ticks outOf(const ClipOptions& options) {
    return options.out.isNull ? std::numeric_limits<Ticks>::max() / 2
                              : ticksOf(options.out.value, options.out.timebase).value_or(0);
}

Ticks pictureDuration(AVFormatContext& context, AVStream& stream) {
    const AVRational rate = av_guess_frame_rate(&context, &stream, nullptr);
    return rate.num > 0 && rate.den > 0 ? av_rescale_q(1, {rate.den, rate.num}, kTickBase) : kSecond / 25;
}

}  // namespace

struct ClipPass::Track {
    Track(AVFormatContext& context, AVStream& ofStream, const ClipOptions& options, ClipCounts& counts)
        : stream(ofStream),
          decoder(ofStream, options, counts),
          usualDuration(decoder.isVideo() ? pictureDuration(context, ofStream) : 0) {}

    AVStream& stream;
    TrackDecoder decoder;
    Ticks usualDuration;
    TrackClock clock{0, true};
};

ClipPass::ClipPass(const ClipOrigin& origin, const ClipOptions& options, Interruption& interruption,
                   ClipCounts& counts, bool isFollowed)
    : mOrigin(origin),
      mOptions(options),
      mInterruption(interruption),
      mCounts(counts),
      mIsFollowed(isFollowed),
      mCutter(FrameCutter::Range{}) {
    open();
    const Timestamp& in = options.in;
    goTo(in.isNull ? 0 : ticksOf(in.value, in.timebase).value_or(0), kFirstBack);
}

ClipPass::~ClipPass() = default;

void ClipPass::open() {
    mCurrent = nullptr;
    mVideo = nullptr;
    mSelected.clear();
    mInput.reset();
    mInput = std::make_unique<ClipInput>(mOrigin, mOptions, mInterruption);
    mFresh = true;
    AVFormatContext& context = mInput->context();
    const std::string name = mOrigin.name();
    std::vector<int> streams;
    mTracks = listTracks(context, streams);
    const auto video =
        chooseTrack(context, mTracks, streams, ClipTrack::Kind::Video, mOptions.video, -1, name);
    const auto audio = chooseTrack(context, mTracks, streams, ClipTrack::Kind::Audio, mOptions.audio,
                                   video ? streams[*video] : -1, name);
    // The other one is enough, unless a track was asked for.
    const std::size_t chosen = (video ? 1U : 0U) + (audio ? 1U : 0U);
    std::exception_ptr failure;
    for (const auto& [track, choice] :
         {std::pair(video, &mOptions.video), std::pair(audio, &mOptions.audio)}) {
        if (!track) {
            continue;
        }
        try {
            mSelected.push_back(
                std::make_unique<Track>(context, *context.streams[streams[*track]], mOptions, mCounts));
            mTracks[*track].selected = true;
        } catch (const FFmpegError& error) {
            if (choice->by != TrackChoice::Best || chosen == 1) {
                throw;
            }
            logFormatted(kLogWarning, {}, "{}: a track is left out: {}", name, error.what());
            failure = std::current_exception();
        }
    }
    if (mSelected.empty()) {
        if (failure) {
            std::rethrow_exception(failure);
        }
        throw FFmpegError(AvError(AVERROR_STREAM_NOT_FOUND), fmt::format("{} has no track to decode", name));
    }
    std::set<int> indices;
    for (const auto& track : mSelected) {
        indices.insert(track->stream.index);
        mVideo = track->decoder.isVideo() ? track.get() : mVideo;
    }
    mInput->select(indices);
    mWarnings.emplace(mOptions.warnings, name, mSelected.size() > 1);
}

std::vector<std::string> ClipPass::unusedOptions() const {
    std::vector<std::string> unused;
    for (const std::string& name : mInput->unknownOptions()) {
        const bool known = std::any_of(mSelected.begin(), mSelected.end(), [&name](const auto& track) {
            return track->decoder.unknownOptions().count(name) == 0;
        });
        if (!known) {
            unused.push_back(name);
        }
    }
    return unused;
}

// Begins at a place from which the frames at `to` can be decoded: `back` before it, or else at the start.
void ClipPass::goTo(Ticks to, Ticks back) {
    const bool far = back != kWithoutLeavingOut && to - back > kNear && mInput->canSeek();
    bool fed = !mFresh;
    mFromStart = !far || !mInput->seek(to - back);
    if (mFromStart && (!mFresh || far)) {
        open();
        fed = false;
    }
    mFresh = mFromStart;
    for (const auto& track : mSelected) {
        if (fed) {
            track->decoder.restart();
        }
        const Ticks precision = ticksOf(1, track->stream.time_base).value_or(0);
        track->clock = TrackClock(precision, mFromStart);
    }
    mFrom = to;
    mBack = back;
    mCutter = FrameCutter(rangeFrom(to));
    // What is left out by mistake has to be read again.
    const bool mayLeaveOut = mVideo != nullptr && to > 0 && back != kWithoutLeavingOut && mInput->canSeek();
    mGate = mayLeaveOut ? PacketGate(to + mInput->start()) : PacketGate();
    mCurrent = nullptr;
    mSoundEnd.reset();
    mDrained = 0;
    mEnding = false;
    mDone = false;
    mError = nullptr;
    mAhead.clear();
    if (to == 0) {
        findLead();
    }
}

FrameCutter::Range ClipPass::rangeFrom(Ticks from) const {
    return {from, outOf(mOptions), from > 0, mOptions.endWithPictures && mVideo != nullptr, mIsFollowed};
}

void ClipPass::findLead() {
    constexpr Ticks kEnough = kSecond / 2;
    mLead = 0;
    bool pictures = mVideo == nullptr;
    bool sound = mVideo != nullptr && mSelected.size() == 1;
    while (!pictures || !sound) {
        std::optional<PlacedFrame> frame = nextCut();
        if (!frame) {
            break;
        }
        (frame->picture ? pictures : sound) = true;
        mLead = mAhead.empty() ? frame->time : std::min(mLead, frame->time);
        const bool far = frame->time > mLead + kEnough;
        mAhead.push_back(std::move(*frame));
        if (far) {
            break;
        }
    }
}

bool ClipPass::canReach(Ticks time) const {
    return mInput->canSeek() || std::all_of(mSelected.begin(), mSelected.end(), [time](const auto& track) {
               return track->clock.end().value_or(0) <= time;
           });
}

void ClipPass::seek(Ticks to, bool isFollowed) {
    mIsFollowed = isFollowed;
    if (mInput->canSeek()) {
        goTo(to, kFirstBack);
    } else {
        skipTo(to);
    }
}

// Reads on up to a time.
void ClipPass::skipTo(Ticks to) {
    mFrom = to;
    FrameCutter cutter(rangeFrom(to));
    // One that was read already may be what shows then.
    while (!mAhead.empty()) {
        cutter.add(std::move(mAhead.front()));
        mAhead.pop_front();
    }
    while (std::optional<PlacedFrame> frame = mCutter.next()) {
        cutter.add(std::move(*frame));
    }
    mCutter = std::move(cutter);
}

Ticks ClipPass::keyPictureBefore(Ticks time) {
    if (mVideo == nullptr || !mInput->canSeek()) {
        return time;
    }
    mFresh = false;
    if (!mInput->seek(time)) {
        return time;
    }
    std::optional<Ticks> key;
    for (;;) {
        const AvPtr<AVPacket> packet = makeAvPtr<AVPacket>();
        if (!packet) {
            throw std::bad_alloc();
        }
        if (!mInput->read(*packet)) {
            return key.value_or(time);
        }
        if (packet->stream_index != mVideo->stream.index) {
            continue;
        }
        const std::optional<Ticks> shown = sourceTime(packet->pts, *mVideo);
        const std::optional<Ticks> decoded =
            packet->dts != AV_NOPTS_VALUE ? sourceTime(packet->dts, *mVideo) : shown;
        if (!shown || !decoded || *decoded > time) {
            return key.value_or(time);
        }
        if ((packet->flags & AV_PKT_FLAG_KEY) != 0 && *shown <= time + kHalfMicrosecond) {
            key = std::max<Ticks>(*shown, 0);
        }
    }
}

std::optional<PlacedFrame> ClipPass::next() {
    std::optional<PlacedFrame> frame;
    if (mAhead.empty()) {
        frame = nextCut();
    } else {
        frame = std::move(mAhead.front());
        mAhead.pop_front();
    }
    if (!frame && mError && !mInterruption.stopped()) {
        std::rethrow_exception(std::exchange(mError, nullptr));
    }
    return frame;
}

// The next frame; nothing at the end, after a failure, and when interrupted.
std::optional<PlacedFrame> ClipPass::nextCut() {
    while (!mInterruption.stopped()) {
        if (std::optional<PlacedFrame> frame = mCutter.next()) {
            return frame;
        }
        if (mDone) {
            break;
        }
        advance();
    }
    return std::nullopt;
}

// One step: a frame, a packet, or the end.
void ClipPass::advance() {
    if (mCurrent != nullptr) {
        AvPtr<AVFrame> frame = mCurrent->decoder.receive();
        if (frame) {
            place(std::move(frame));
        } else {
            mCurrent = nullptr;
        }
        return;
    }
    if (const AvPtr<AVPacket> packet = mGate.next()) {
        mVideo->decoder.send(packet.get());
        mCurrent = mVideo;
        return;
    }
    const bool past = std::all_of(mSelected.begin(), mSelected.end(), [this](const auto& track) {
        return mCutter.pastEnd(track->decoder.isVideo());
    });
    if (mEnding || past) {
        drainNext();
    } else {
        readPacket();
    }
}

void ClipPass::readPacket() {
    AvPtr<AVPacket> packet = makeAvPtr<AVPacket>();
    if (!packet) {
        throw std::bad_alloc();
    }
    mFresh = false;
    bool got = false;
    try {
        got = mInput->read(*packet);
    } catch (...) {
        // First come the frames that were read.
        mError = std::current_exception();
    }
    Track* track = got ? trackOf(packet->stream_index) : nullptr;
    if (track != nullptr) {
        mWarnings->check(*packet, track->stream, mInput->start());
        got = sourceTime(packet->dts, *track).value_or(0) < outOf(mOptions) + kPastEnd;
    }
    if (!got) {
        mEnding = true;
        mGate.open();
        return;
    }
    if (track == nullptr || mCutter.pastEnd(track->decoder.isVideo())) {
        return;
    }
    if (track == mVideo) {
        mGate.add(std::move(packet), track->stream.time_base);
    } else {
        const AVRational base = track->stream.time_base;
        const std::optional<Ticks> begin = sourceTime(packet->pts, *track);
        const bool countsSamples = base.num == 1 && base.den == track->stream.codecpar->sample_rate;
        mSoundEnd.reset();
        if (begin && countsSamples && packet->duration > 0) {
            mSoundEnd = *begin + ticksOfSamples(packet->duration, base.den);
        }
        track->decoder.send(packet.get());
        mCurrent = track;
    }
}

void ClipPass::drainNext() {
    if (mDrained == mSelected.size()) {
        mCutter.finish(mSoundEnd);
        mDone = true;
        return;
    }
    Track& track = *mSelected[mDrained++];
    if (!mCutter.pastEnd(track.decoder.isVideo())) {
        track.decoder.send(nullptr);
        mCurrent = &track;
    }
}

void ClipPass::place(AvPtr<AVFrame> frame) {
    Track& track = *mCurrent;
    PlacedFrame placed{std::move(frame), track.decoder.isVideo(), 0, 0};
    const std::optional<Ticks> stamp = sourceTime(placed.frame->best_effort_timestamp, track);
    TrackClock::Place at;
    if (placed.picture) {
        const Ticks duration =
            ticksOf(ffmpeg_ext::frameDuration(*placed.frame), track.stream.time_base).value_or(0);
        placed.duration = duration > 0 ? duration : track.usualDuration;
        at = track.clock.placePicture(stamp, placed.duration);
        const bool tooLate = !mCutter.hasFirstPicture() && at.time > mFrom + kHalfMicrosecond;
        if (tooLate && (!mFromStart || mGate.hasDropped())) {
            // What shows at that time needs an earlier key picture.
            goTo(mFrom, mFromStart ? kWithoutLeavingOut : std::min(mBack * kFurther, mFrom));
            return;
        }
    } else {
        const int samples = placed.frame->nb_samples;
        const int rate = placed.frame->sample_rate;
        if (samples <= 0 || rate <= 0) {
            ++mCounts.droppedFrames;
            return;
        }
        at = track.clock.placeSound(stamp, samples, rate);
        placed.duration = ticksOfSamples(samples, rate);
    }
    mCounts.repairedTimes += at.repaired ? 1 : 0;
    placed.time = at.time;
    mCutter.add(std::move(placed));
}

ClipPass::Track* ClipPass::trackOf(int stream) const noexcept {
    for (const auto& track : mSelected) {
        if (track->stream.index == stream) {
            return track.get();
        }
    }
    return nullptr;
}

std::optional<Ticks> ClipPass::sourceTime(std::int64_t stamp, const Track& track) const {
    const std::optional<Ticks> ticks = ticksOf(stamp, track.stream.time_base);
    return ticks ? std::optional(*ticks - mInput->start()) : std::nullopt;
}

}  // namespace vidorra
