#include "vidorra/picture/video_frame.h"

#include <array>
#include <stdexcept>
#include <utility>

#include "vidorra/core/format.h"

extern "C" {
#include <libavutil/frame.h>
}

namespace vidorra {

VideoFrame::VideoFrame() : Frame(Timestamp()) {}

VideoFrame::VideoFrame(const Picture& picture, const Timestamp& timestamp, FrameFlags flags)
    : Frame(timestamp), mPicture(picture) {
    setFlags(flags);
}

VideoFrame::VideoFrame(Picture&& picture, const Timestamp& timestamp, FrameFlags flags)
    : Frame(timestamp), mPicture(std::move(picture)) {
    setFlags(flags);
}

VideoFrame::~VideoFrame() = default;

void VideoFrame::fillAVFrame(AVFrame* frame) const {
    if (mPicture.empty()) {
        throw std::runtime_error("Can not fill AVFrame from empty frame");
    }
    mPicture.fillAVFrame(frame);
    frame->pts = timestamp().value;
}

bool VideoFrame::empty() const {
    return mPicture.empty();
}

std::string VideoFrame::debugDescription() const {
    const std::string time = timestamp().debugDescription();
    const std::string flagsText = debugDescriptionOfFlags();
    return mPicture.empty() ? fmt::format("empty video frame, pts {}, flags {}", time, flagsText)
                            : fmt::format("video frame {}, pts {}, flags {}", mPicture.debugDescription(),
                                          time, flagsText);
}

bool VideoFrame::isAudio() const {
    return false;
}

bool VideoFrame::isVideo() const {
    return true;
}

std::string VideoFrame::debugDescriptionOfFlags() const {
    struct Row {
        std::uint32_t mask;
        const char* name;
    };
    constexpr std::array<Row, 2> kNamed = {{{LastFrame, "LastFrame"}, {NoSignal, "NoSignal"}}};

    std::uint32_t rest = flags();
    std::string text;
    const auto append = [&text](const std::string& word) {
        if (!text.empty()) {
            text += "+";
        }
        text += word;
    };
    for (const Row& row : kNamed) {
        if ((rest & row.mask) != 0) {
            append(row.name);
            rest &= ~row.mask;
        }
    }
    if (rest != 0) {
        append(fmt::format("{0:x}", rest));
    }
    return text.empty() ? "none" : text;
}

}  // namespace vidorra
