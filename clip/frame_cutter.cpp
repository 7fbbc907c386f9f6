#include "clip/frame_cutter.h"

#include <algorithm>
#include <utility>

#include "ffmpeg/channels.h"

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/samplefmt.h>
}

namespace vidorra {
namespace {

// Leaves out the first `count` samples, of which there are more.
void dropSamples(PlacedFrame& sound, std::int64_t count) {
    AVFrame& frame = *sound.frame;
    const auto format = static_cast<AVSampleFormat>(frame.format);
    const int channels = ffmpeg_ext::channelCount(frame);
    const bool planar = av_sample_fmt_is_planar(format) != 0;
    const std::int64_t bytes = count * av_get_bytes_per_sample(format) * (planar ? 1 : channels);
    for (int i = 0; i < (planar ? channels : 1); ++i) {
        frame.extended_data[i] += bytes;
        // With many channels the first planes stand in two arrays.
        if (frame.extended_data != frame.data && i < AV_NUM_DATA_POINTERS) {
            frame.data[i] += bytes;
        }
    }
    frame.nb_samples -= static_cast<int>(count);
    const Ticks dropped = ticksOfSamples(count, frame.sample_rate);
    sound.time += dropped;
    sound.duration -= dropped;
}

// Leaves the samples between two times; false when there is none.
bool cutSound(PlacedFrame& sound, Ticks from, Ticks to) {
    AVFrame& frame = *sound.frame;
    const std::int64_t first = samplesIn(from - sound.time, frame.sample_rate);
    const std::int64_t end =
        std::min<std::int64_t>(samplesIn(to - sound.time, frame.sample_rate), frame.nb_samples);
    if (end <= std::max<std::int64_t>(first, 0)) {
        return false;
    }
    if (end < frame.nb_samples) {
        frame.nb_samples = static_cast<int>(end);
        sound.duration = ticksOfSamples(end, frame.sample_rate);
    }
    if (first > 0) {
        dropSamples(sound, first);
        // A point between two samples is taken for the time of the nearer one.
        sound.time = from;
    }
    return true;
}

}  // namespace

void FrameCutter::add(PlacedFrame frame) {
    if (frame.picture) {
        addPicture(std::move(frame));
    } else {
        addSound(std::move(frame));
    }
    releaseSound();
}

void FrameCutter::addPicture(PlacedFrame frame) {
    if (mRange.approach) {
        if (frame.time <= mRange.from + kHalfMicrosecond) {
            mFirst = std::move(frame);
            return;
        }
        giveFirst(frame.time);
    }
    if (frame.time >= mRange.to - kHalfMicrosecond) {
        mPicturesPast = true;
        return;
    }
    givePicture(std::move(frame));
}

// The picture that shows at the first point, until the next one.
void FrameCutter::giveFirst(Ticks until) {
    mRange.approach = false;
    if (!mFirst) {
        return;
    }
    PlacedFrame frame = std::move(*mFirst);
    mFirst.reset();
    frame.time = std::max(frame.time, mRange.from);
    frame.duration = until - frame.time;
    givePicture(std::move(frame));
}

void FrameCutter::givePicture(PlacedFrame frame) {
    frame.duration = std::min(frame.duration, mRange.to - frame.time);
    mPicturesEnd = frame.time + frame.duration;
    mReady.push_back(std::move(frame));
}

void FrameCutter::addSound(PlacedFrame frame) {
    mSoundPast = mSoundPast || frame.time >= mRange.to - kHalfMicrosecond;
    if (!cutSound(frame, mRange.from, mRange.to)) {
        return;
    }
    mSoundAhead.push_back(std::move(frame));
}

// Gives the sound that is not cut any more, which at the end is all.
void FrameCutter::releaseSound() {
    const std::size_t kept = mRange.cutPadding && !mFinished ? 1 : 0;
    while (mSoundAhead.size() > kept) {
        PlacedFrame& sound = mSoundAhead.front();
        const bool withPictures =
            !mRange.endWithPictures || (mPicturesEnd && sound.time + sound.duration <= *mPicturesEnd);
        if (!withPictures && !mFinished) {
            return;
        }
        // Without any picture there is nothing to end with.
        const Ticks end = withPictures || !mPicturesEnd ? mRange.to : *mPicturesEnd;
        if (cutSound(sound, sound.time, end)) {
            mReady.push_back(std::move(sound));
        }
        mSoundAhead.pop_front();
    }
}

void FrameCutter::finish(std::optional<Ticks> soundEnd) {
    mFinished = true;
    if (mFirst) {
        // The last picture of all: it shows until its own end.
        const Ticks end = mFirst->time + mFirst->duration;
        if (end > mRange.from + kHalfMicrosecond) {
            giveFirst(end);
        }
        mFirst.reset();
    }
    // Of one packet at most: more than that is no padding.
    if (mRange.cutPadding && soundEnd && !mSoundAhead.empty() &&
        !cutSound(mSoundAhead.back(), mSoundAhead.back().time, *soundEnd)) {
        mSoundAhead.pop_back();
    }
    releaseSound();
}

std::optional<PlacedFrame> FrameCutter::next() {
    if (mReady.empty()) {
        return std::nullopt;
    }
    PlacedFrame frame = std::move(mReady.front());
    mReady.pop_front();
    return frame;
}

}  // namespace vidorra
