#include "scripted_source.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <utility>

#include "support/media.h"

extern "C" {
#include <libavcodec/packet.h>
#include <libavutil/avutil.h>
#include <libavutil/error.h>
#include <libavutil/mathematics.h>
}

namespace vidorra::test {
namespace {

// 16x16 pixels of three bytes.
constexpr int kPictureBytes = 768;
constexpr AVRational kMicroseconds = {1, 1000000};
constexpr AVRational kSamples = {1, 48000};

}  // namespace

std::string scriptedFile() {
    return mediaFile("scripted.mov", {"-f",
                                      "lavfi",
                                      "-i",
                                      "testsrc2=size=16x16:rate=25:duration=0.2",
                                      "-f",
                                      "lavfi",
                                      "-i",
                                      "sine=sample_rate=48000:duration=0.2",
                                      "-map",
                                      "0",
                                      "-map",
                                      "1",
                                      "-map",
                                      "1",
                                      "-c:v",
                                      "rawvideo",
                                      "-pix_fmt",
                                      "rgb24",
                                      "-video_track_timescale",
                                      "1000000",
                                      "-c:a",
                                      "pcm_s16le"});
}

Step video(std::int64_t pts, std::int64_t duration) {
    return {Step::Kind::Packet, kScriptedVideo, pts, duration};
}

Step audio(std::int64_t pts, std::int64_t duration, int stream) {
    return {Step::Kind::Packet, stream, pts, duration};
}

std::vector<Step> videos(int count, std::int64_t interval, std::int64_t first) {
    std::vector<Step> result;
    for (int i = 0; i < count; ++i) {
        result.push_back(video(first + i * interval, interval));
    }
    return result;
}

std::vector<Step> audios(int count, std::int64_t duration, std::int64_t first) {
    std::vector<Step> result;
    for (int i = 0; i < count; ++i) {
        result.push_back(audio(first + i * duration, duration));
    }
    return result;
}

std::vector<Step> operator+(std::vector<Step> a, const std::vector<Step>& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

Script::Script(std::vector<Step> steps)
    : mSteps(std::move(steps)),
      mReplaced(calls().avReadFrame, [this](void*, void* packet) { return read(packet); }) {}

bool Script::readerIsGone() const {
    return mReader != 0 && !std::filesystem::exists("/proc/self/task/" + std::to_string(mReader));
}

int Script::read(void* target) {
    mReader = gettid();
    const std::size_t index = mReads++;
    const Step step = index < mSteps.size() ? mSteps[index] : kEnd;
    if (step.kind == Step::Kind::End) {
        return AVERROR_EOF;
    }
    if (step.kind == Step::Kind::Error) {
        return AVERROR(EIO);
    }
    auto& packet = *static_cast<AVPacket*>(target);
    const bool picture = step.stream == kScriptedVideo;
    const std::int64_t samples = av_rescale_q(step.duration, kMicroseconds, kSamples);
    int size = 0;
    if (step.kind == Step::Kind::Packet) {
        size = picture ? kPictureBytes : static_cast<int>(std::max<std::int64_t>(samples, 1) * 2);
    }
    if (av_new_packet(&packet, size) < 0) {
        return AVERROR(ENOMEM);
    }
    if (size > 0) {
        std::memset(packet.data, 0, static_cast<std::size_t>(size));
    }
    packet.stream_index = step.stream;
    if (step.pts != kNoStamp) {
        packet.pts = picture ? step.pts : av_rescale_q(step.pts, kMicroseconds, kSamples);
        packet.dts = packet.pts;
    }
    packet.duration = picture ? step.duration : samples;
    return 0;
}

}  // namespace vidorra::test
