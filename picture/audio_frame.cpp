#include "vidorra/picture/audio_frame.h"

#include <stdexcept>
#include <utility>

#include "vidorra/core/format.h"

extern "C" {
#include <libavutil/frame.h>
}

namespace vidorra {

AudioFrame::AudioFrame() : Frame(Timestamp()) {}

AudioFrame::AudioFrame(AudioBuffer buffer, const Timestamp& timestamp)
    : Frame(timestamp), mAudioBuffer(std::move(buffer)) {}

AudioFrame::~AudioFrame() = default;

void AudioFrame::fillAVFrame(AVFrame* frame) const {
    if (mAudioBuffer.empty()) {
        throw std::runtime_error("Can not fill AVFrame from empty audio frame");
    }
    mAudioBuffer.fillAVFrame(frame);
    frame->pts = timestamp().value;
}

bool AudioFrame::empty() const {
    return mAudioBuffer.empty();
}

std::string AudioFrame::debugDescription() const {
    const std::string time = timestamp().debugDescription();
    return mAudioBuffer.empty()
               ? "empty audio frame, pts " + time
               : fmt::format("audio frame {}, pts {}", mAudioBuffer.debugDescription(), time);
}

bool AudioFrame::isAudio() const {
    return true;
}

bool AudioFrame::isVideo() const {
    return false;
}

}  // namespace vidorra
