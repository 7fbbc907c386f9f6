#include <new>
#include <stdexcept>
#include <utility>

#include "mux/packet_durations.h"
#include "mux/tracks.h"
#include "vidorra/core/av_res.h"
#include "vidorra/core/format.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace vidorra {
namespace {

/// Packets as they are.
class PacketTrack final : public WriterTrack {
public:
    using WriterTrack::write;

    PacketTrack(const AVCodecParameters& parameters, Timebase timebase, std::size_t number, Take take)
        : WriterTrack(fmt::format("track {} ({})", number, avcodec_get_name(parameters.codec_id)), timebase,
                      std::move(take)),
          mParameters(avcodec_parameters_alloc(), [](AVCodecParameters* p) { avcodec_parameters_free(&p); }),
          mDurations(1) {
        if (mParameters == nullptr) {
            throw std::bad_alloc();
        }
        AvRes(avcodec_parameters_copy(mParameters.get(), &parameters)).throwIfError("{}", name());
        mReport.codec = avcodec_get_name(parameters.codec_id);
    }

    void write(const Packet& packet) override {
        if (packet.data == nullptr || packet.size == 0) {
            refuse(std::invalid_argument(name() + ": the packet is empty"));
        }
        Packet own(packet);
        if (own.pts == AV_NOPTS_VALUE) {
            own.pts = own.dts;
        } else if (own.dts == AV_NOPTS_VALUE) {
            own.dts = own.pts;
        }
        const Timestamp time(timebase(), own.dts, own.dts == AV_NOPTS_VALUE);
        // Two subtitles may begin at once.
        const std::optional<std::int64_t> latest =
            isWaitedFor() || !mLatest ? mLatest : std::optional<std::int64_t>(*mLatest - 1);
        mLatest = requireRise(time, latest);
        if (hasPictures()) {
            mDurations.add(std::move(own), [this](Packet ready) { give(std::move(ready), 0); });
        } else {
            give(std::move(own), 0);
        }
    }

    void end() override {
        mDurations.end([this](Packet packet) { give(std::move(packet), 0); });
    }

    void describe(AVStream& stream, const Timestamp& /*start*/) const override {
        AvRes(avcodec_parameters_copy(stream.codecpar, mParameters.get()))
            .throwIfError("cannot describe {}", name());
        stream.time_base = timebase();
        stream.sample_aspect_ratio = mParameters->sample_aspect_ratio;
    }

    [[nodiscard]] bool isWaitedFor() const override {
        return hasPictures() || mParameters->codec_type == AVMEDIA_TYPE_AUDIO;
    }

    [[nodiscard]] bool hasForeignTag() const override { return true; }

    [[nodiscard]] bool hasPictures() const override { return mParameters->codec_type == AVMEDIA_TYPE_VIDEO; }

private:
    std::unique_ptr<AVCodecParameters, void (*)(AVCodecParameters*)> mParameters;
    PacketDurations mDurations;
    std::optional<std::int64_t> mLatest;
};

}  // namespace

std::unique_ptr<WriterTrack> makePacketTrack(const AVCodecParameters& parameters, Timebase timebase,
                                             std::size_t number, WriterTrack::Take take) {
    if (parameters.codec_id == AV_CODEC_ID_NONE || timebase.num <= 0 || timebase.den <= 0) {
        throw std::invalid_argument("a track of packets needs a codec and a time base above 0");
    }
    return std::make_unique<PacketTrack>(parameters, timebase, number, std::move(take));
}

}  // namespace vidorra
