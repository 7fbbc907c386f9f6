#include <array>
#include <stdexcept>
#include <string>
#include <utility>
#include <variant>

#include "mux/encoded_track.h"
#include "mux/packet_durations.h"
#include "mux/tracks.h"
#include "vidorra/core/ffmpeg_error.h"
#include "vidorra/core/format.h"
#include "vidorra/encode/video_encoder.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/mathematics.h>
#include <libavutil/timecode.h>
}

namespace vidorra {
namespace {

// The frame rate that a first picture's duration tells, if it is a usual one: whole, or as 30000/1001. Others
// are those of a variable rate.
AVRational usualRate(std::int64_t duration, AVRational timebase) {
    AVRational rate{0, 1};
    constexpr int kHighest = 1000 * 1001;
    if (duration > 0) {
        av_reduce(&rate.num, &rate.den, timebase.den, timebase.num * duration, kHighest);
    }
    return rate.den == 1 || rate.den == 1001 ? rate : AVRational{0, 1};
}

// "10:00:00:00", with a semicolon before the frames where numbers are dropped.
std::string clockText(const SMPTE12Timecode& timecode) {
    return fmt::format("{:02}:{:02}:{:02}{}{:02}", timecode.hours(), timecode.minutes(), timecode.seconds(),
                       timecode.dropped() ? ';' : ':', timecode.frames());
}

/// Pictures.
class VideoTrack final : public EncodedTrack {
public:
    using WriterTrack::write;

    VideoTrack(std::unique_ptr<VideoEncoder> encoder, std::size_t number, Take take)
        : EncodedTrack(number, *encoder, std::move(take)), mEncoder(std::move(encoder)), mDurations(1) {}

    void write(const VideoFrame& frame) override {
        if (frame.empty()) {
            refuse(std::invalid_argument(name() + ": the frame is empty"));
        }
        const std::int64_t time = requireRise(frame.timestamp(), mLatest);
        if (mHasEnded) {
            return;
        }
        const AvRes sent = send(frame);
        mLatest = time;
        ++mReport.frames;
        noteTimecode(frame, time);
        // A filter that ends by itself has ended the encoder as well.
        mHasEnded = sent.error == AvError::Eof && !sent.ok;
        for (bool more = wasSent(sent) || mHasEnded; more; more = wasSent(mEncoder->sendFiltered())) {
            receive();
        }
    }

    void end() override {
        if (!mHasEnded) {
            endEncoder(*mEncoder);
        }
        mDurations.end([this](Packet packet) { give(std::move(packet), 0); });
    }

    // Colours, aspect and rotation are those that the encoder says. What frames say of them belongs here.
    void describe(AVStream& stream, const Timestamp& start) const override {
        EncodedTrack::describe(stream, start);
        stream.avg_frame_rate = usualRate(mFirstDuration, timebase());
        if (mTimecode) {
            stream.avg_frame_rate = av_inv_q(mTimecode->timebase());
            av_dict_set(&stream.metadata, "timecode", timecodeAt(start).c_str(), 0);
        }
    }

    [[nodiscard]] bool hasPictures() const override { return true; }

private:
    AvRes send(const VideoFrame& frame) {
        AvRes sent = 0;
        try {
            sent = mEncoder->sendFrame(frame);
        } catch (...) {
            throw Refusal{std::current_exception()};
        }
        if (!sent.ok && sent.error == AvError::InvalidArgument) {
            refuse(FFmpegError(sent.error, name() + " does not take the frame"));
        }
        return sent;
    }

    void received(Packet packet) override {
        mDurations.add(std::move(packet), [this](Packet ready) {
            mFirstDuration = mFirstDuration != 0 ? mFirstDuration : ready.duration;
            give(std::move(ready), 0);
        });
    }

    void noteTimecode(const VideoFrame& frame, std::int64_t time) {
        if (mTimecode || frame.sideData().empty()) {
            return;
        }
        mTimecode = std::get<SMPTE12Timecode>(frame.sideData().front());
        mTimecodeTime = time;
    }

    [[nodiscard]] std::string timecodeAt(const Timestamp& start) const {
        std::string first = clockText(*mTimecode);
        const std::int64_t later = start.rescale(timebase()).value - mTimecodeTime;
        AVTimecode timecode{};
        if (later <= 0 || av_timecode_init_from_string(&timecode, av_inv_q(mTimecode->timebase()),
                                                       first.c_str(), nullptr) < 0) {
            return first;
        }
        std::array<char, AV_TIMECODE_STR_SIZE> text{};
        const std::int64_t frames = av_rescale_q(later, timebase(), mTimecode->timebase());
        return av_timecode_make_string(&timecode, text.data(), static_cast<int>(frames));
    }

    std::unique_ptr<VideoEncoder> mEncoder;
    PacketDurations mDurations;
    std::int64_t mFirstDuration = 0;
    std::optional<std::int64_t> mLatest;
    bool mHasEnded = false;
    // The first one, and when.
    std::optional<SMPTE12Timecode> mTimecode;
    std::int64_t mTimecodeTime = 0;
};

}  // namespace

std::unique_ptr<WriterTrack> makeVideoTrack(const objstream::object& config, const EncoderNeeds& needs,
                                            std::size_t number, WriterTrack::Take take) {
    return std::make_unique<VideoTrack>(std::make_unique<VideoEncoder>(withNeeds(config, needs)), number,
                                        std::move(take));
}

}  // namespace vidorra
