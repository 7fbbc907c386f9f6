#include "recorder.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <ostream>
#include <stdexcept>

#include <objstream/json.h>

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace demo {
namespace {

// When the signal is lost, and for how long, in seconds.
constexpr double kLossBegins = 2;
constexpr double kLossEnds = 3;

double seconds(const vidorra::Timestamp& time) {
    return static_cast<double>(time.value) * time.timebase.num / time.timebase.den;
}

// The first encoder in a list that this FFmpeg has.
std::unique_ptr<vidorra::VideoEncoder> openVideo(const objstream::object& configs) {
    std::string errors;
    for (std::size_t i = 0; i < configs.size(); ++i) {
        try {
            return std::make_unique<vidorra::VideoEncoder>(configs.at(i));
        } catch (const std::runtime_error& error) {
            fmt::format_to(std::back_inserter(errors), "\n  {}", error.what());
        }
    }
    throw std::runtime_error("none of the configured video encoders can be opened:" + errors);
}

// "00:00:01:12": the description without the time base after it.
std::string clockText(const vidorra::SMPTE12Timecode& timecode) {
    const std::string text = timecode.debugDescription();
    return text.substr(0, text.find(' '));
}

}  // namespace

Recorder::Recorder(const Options& options, bool withAudio)
    : mPath(options.output), mWriter(options.output), mTimecodes({1, 1}) {
    const objstream::object config = objstream::readJsonFile(options.config);
    mVideo = openVideo(config["video"]);
    const AVCodecContext& video = *mVideo->codecContext();
    if (options.accelerator) {
        mAccelerator = std::make_unique<Accelerator>(options.output);
    }
    mProgramme.emplace(vidorra::Size{video.width & ~1, video.height & ~1}, options.font, mAccelerator.get());
    mTimecodes = vidorra::SMPTE12TimecodeProvider(video.time_base);
    mVideoStream = mWriter.addStream(*mVideo);
    if (withAudio) {
        mAudio = std::make_unique<vidorra::AudioEncoder>(config["audio"]);
        mBlocks.emplace(*mAudio->codecContext());
        mAudioStream = mWriter.addStream(*mAudio);
    }
    mWriter.begin();
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
    mVideo->sendFrame(out).throwIfError("the video encoder does not take a frame");
    write(*mVideo, mVideoStream, mVideoTally);
    ++mFrames;
}

void Recorder::takeAudio(const vidorra::AudioFrame& frame, const vidorra::Timestamp& time) {
    if (!mAudio) {
        return;
    }
    vidorra::AudioFrame out(mResampler.resample(frame.audioBuffer(), mBlocks->sampleRate(),
                                                mBlocks->channelLayout(), mBlocks->sampleFormat()),
                            time);
    if (signalIsLost(time)) {
        // Silence, as the picture is black.
        for (std::uint8_t* plane : out.audioBuffer().getPointersToPlanes()) {
            const auto channels = av_sample_fmt_is_planar(mBlocks->sampleFormat()) != 0 ? 1 : 2;
            std::fill_n(
                plane,
                out.audioBuffer().numberOfSamples() *
                    static_cast<unsigned long>(channels * av_get_bytes_per_sample(mBlocks->sampleFormat())),
                std::uint8_t{0});
        }
        out.setFlags(vidorra::Frame::NoSignal);
    }
    mBlocks->push(out);
    while (const auto block = mBlocks->pop()) {
        encodeAudio(*block);
    }
}

void Recorder::encodeAudio(const vidorra::AudioFrame& frame) {
    mAudio->sendFrame(frame).throwIfError("the audio encoder does not take a frame");
    write(*mAudio, mAudioStream, mAudioTally);
}

void Recorder::write(vidorra::EncoderBase& encoder, int stream, Tally& tally) {
    for (auto packet = encoder.receivePacket(); packet; packet = encoder.receivePacket()) {
        ++tally.packets;
        tally.bytes += static_cast<std::uint64_t>(packet->size);
        if (packet->isNoSignal()) {
            const double time = seconds({encoder.codecContext()->time_base, packet->pts});
            if (!tally.inStretch) {
                tally.stretches.emplace_back(time, time);
            }
            tally.stretches.back().first = std::min(tally.stretches.back().first, time);
            tally.stretches.back().second = std::max(tally.stretches.back().second, time);
            ++tally.noSignal;
        }
        tally.inStretch = packet->isNoSignal();
        mWriter.write(*packet, stream);
    }
}

void Recorder::finish() {
    mVideo->sendEndOfStream().throwIfError("the video encoder does not end");
    write(*mVideo, mVideoStream, mVideoTally);
    if (mAudio) {
        if (const auto rest = mBlocks->popRest()) {
            encodeAudio(*rest);
        }
        mAudio->sendEndOfStream().throwIfError("the audio encoder does not end");
        write(*mAudio, mAudioStream, mAudioTally);
    }
    mWriter.end();
}

void Recorder::summarise(std::ostream& output, const char* what, const vidorra::EncoderBase& encoder,
                         const Tally& tally) {
    output << fmt::format("  {}: {}, {} packets, {} bytes\n", what, encoder.codecContext()->codec->name,
                          tally.packets, tally.bytes);
    if (tally.noSignal > 0) {
        // A codec's lead-in comes before the first frame with a signal, so it is marked too.
        std::string stretches;
        for (const auto& [first, last] : tally.stretches) {
            fmt::format_to(std::back_inserter(stretches), "{}{:.3f} s to {:.3f} s",
                           stretches.empty() ? "" : ", ", first, last);
        }
        output << fmt::format("    {} of them marked as without signal: {}\n", tally.noSignal, stretches);
    }
}

void Recorder::summarise(std::ostream& output) const {
    output << fmt::format("recorded {}: {} frames of {}x{}, timecodes from {} to {}\n", mPath, mFrames,
                          mVideo->codecContext()->width, mVideo->codecContext()->height, mFirstTimecode,
                          mLastTimecode);
    summarise(output, "video", *mVideo, mVideoTally);
    if (mAudio) {
        summarise(output, "audio", *mAudio, mAudioTally);
    }
}

}  // namespace demo
