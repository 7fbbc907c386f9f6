#include "recorder.h"

#include <iterator>
#include <ostream>
#include <stdexcept>

#include <objstream/json.h>

extern "C" {
#include <libavutil/samplefmt.h>
}

namespace demo {
namespace {

// When the signal is lost, and for how long, in seconds.
constexpr double kLossBegins = 2;
constexpr double kLossEnds = 3;

double seconds(const vidorra::Timestamp& time) {
    return static_cast<double>(time.value) * time.timebase.num / time.timebase.den;
}

// "00:00:01:12": the description without the time base after it.
std::string clockText(const vidorra::SMPTE12Timecode& timecode) {
    const std::string text = timecode.debugDescription();
    return text.substr(0, text.find(' '));
}

vidorra::AudioBuffer silenceLike(const vidorra::AudioBuffer& sound) {
    vidorra::AudioBuffer silence(sound.channelLayout(), sound.sampleFormat());
    silence.setSampleRate(sound.sampleRate());
    silence.resize(sound.numberOfSamples());
    av_samples_set_silence(silence.getPointersToPlanes().data(), 0, static_cast<int>(sound.numberOfSamples()),
                           sound.numberOfChannels(), sound.sampleFormat());
    return silence;
}

}  // namespace

Recorder::Recorder(const Options& options, bool withAudio)
    : mPath(options.output), mWriter(options.output), mTimecodes({1, 1}) {
    const objstream::object config = objstream::readJsonFile(options.config);
    addVideo(config["video"]);
    if (withAudio) {
        mAudio = mWriter.addAudio(config["audio"]);
    }
    if (options.accelerator) {
        mAccelerator = std::make_unique<Accelerator>(options.output);
    }
    mProgramme.emplace(vidorra::Size{mSize.width & ~1, mSize.height & ~1}, options.font, mAccelerator.get());
}

// Takes the first encoder of a list that FFmpeg has here.
void Recorder::addVideo(const objstream::object& configs) {
    std::string errors;
    for (std::size_t i = 0; i < configs.size(); ++i) {
        const objstream::object& config = configs.at(i);
        try {
            mVideo = mWriter.addVideo(config);
            mSize = {config["width"].getValue<int>(), config["height"].getValue<int>()};
            mTimecodes = vidorra::SMPTE12TimecodeProvider(
                {config["timebase_num"].getValue<int>(1), config["timebase_den"].getValue<int>(1)});
            return;
        } catch (const std::runtime_error& error) {
            fmt::format_to(std::back_inserter(errors), "\n  {}", error.what());
        }
    }
    throw std::runtime_error("none of the configured video encoders can be opened:" + errors);
}

bool Recorder::signalIsLost(const vidorra::Timestamp& time) {
    return seconds(time) >= kLossBegins && seconds(time) < kLossEnds;
}

void Recorder::takeVideo(const vidorra::VideoFrame& frame, const vidorra::Timestamp& time) {
    if (!frame.empty()) {
        mLatest = frame.picture();
    }
    const vidorra::SMPTE12Timecode timecode = mTimecodes.nextTimecode(time.rescale({}));
    mLastTimecode = timecode.debugDescription();
    if (mFrames == 0) {
        mFirstTimecode = mLastTimecode;
    }
    const bool lost = signalIsLost(time) || mLatest.empty();
    vidorra::Picture picture =
        lost ? mProgramme->black() : mProgramme->compose(mLatest, seconds(time), clockText(timecode));
    vidorra::VideoFrame out(std::move(picture), time,
                            lost ? vidorra::Frame::NoSignal : vidorra::Frame::NoFlags);
    out.addSideData(timecode);
    mWriter.write(mVideo, out);
    ++mFrames;
}

void Recorder::takeAudio(const vidorra::AudioFrame& frame, const vidorra::Timestamp& time) {
    if (!mAudio) {
        return;
    }
    const bool lost = signalIsLost(time);
    // Silence, as the picture is black.
    vidorra::AudioFrame out(lost ? silenceLike(frame.audioBuffer()) : frame.audioBuffer(), time);
    out.setFlags(lost ? vidorra::Frame::NoSignal : vidorra::Frame::NoFlags);
    mWriter.write(*mAudio, out);
}

void Recorder::finish() {
    mReport = mWriter.finish();
}

void Recorder::summarise(std::ostream& output) const {
    output << fmt::format("recorded {}: {} frames of {}x{}, timecodes from {} to {}\n", mPath, mFrames,
                          mSize.width, mSize.height, mFirstTimecode, mLastTimecode);
    for (std::size_t i = 0; i < mReport.tracks.size(); ++i) {
        const vidorra::WriterReport::Track& track = mReport.tracks[i];
        output << fmt::format("  {}: {}, {} packets, {} bytes\n", i == mVideo ? "video" : "audio",
                              track.codec, track.packets, track.bytes);
        for (const vidorra::WriterReport::Stretch& stretch : track.noSignal) {
            output << fmt::format("    {} of them marked as without signal: {:.3f} s to {:.3f} s\n",
                                  stretch.packets, seconds(stretch.begin), seconds(stretch.end));
        }
    }
}

}  // namespace demo
