#include "mux/encoded_track.h"

#include <utility>

#include "vidorra/core/format.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace vidorra {

objstream::object withNeeds(const objstream::object& config, const EncoderNeeds& needs) {
    objstream::object adapted = config;
    if (adapted["options"].kind() != objstream::object::Kind::Map) {
        adapted["options"] = objstream::object::map();
    }
    std::string flags = config["options"]["flags"].getValue<std::string>("");
    flags += needs.globalHeader ? "+global_header" : "";
    flags += needs.closedGroups ? "+cgop" : "";
    if (!flags.empty()) {
        adapted["options"]["flags"] = flags;
    }
    return adapted;
}

EncodedTrack::EncodedTrack(std::size_t number, EncoderBase& encoder, Take take)
    : WriterTrack(fmt::format("track {} ({})", number, encoder.codecContext()->codec->name),
                  encoder.codecContext()->time_base, std::move(take)),
      mEncoder(encoder) {
    mReport.codec = avcodec_get_name(encoder.codecContext()->codec_id);
}

void EncodedTrack::describe(AVStream& stream, const Timestamp& /*start*/) const {
    mEncoder.fillCodecParameters(*stream.codecpar).throwIfError("cannot describe {}", name());
    stream.codecpar->codec_tag = 0;
    stream.time_base = timebase();
    stream.sample_aspect_ratio = stream.codecpar->sample_aspect_ratio;
}

bool EncodedTrack::wasSent(const AvRes& res) const {
    if (!res.ok && res.error != AvError::Again && res.error != AvError::Eof) {
        throw TrackFailure{res.error, name() + " cannot be encoded"};
    }
    return res.ok;
}

void EncodedTrack::receive() {
    auto packet = mEncoder.receivePacket();
    for (; packet; packet = mEncoder.receivePacket()) {
        received(std::move(*packet));
    }
    static_cast<void>(wasSent(packet.error()));
}

}  // namespace vidorra
