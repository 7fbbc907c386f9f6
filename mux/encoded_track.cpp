#include "mux/encoded_track.h"

#include <utility>

#include "vidorra/core/format.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/opt.h>
}

namespace vidorra {

namespace {

constexpr const char* kSceneChange = "sc_threshold";

// FFmpeg's own encoders of MPEG-1, 2 and 4, which share this option and its meaning.
bool isOfMpegVideo(const AVCodec& encoder) {
    const bool isMpeg = encoder.id == AV_CODEC_ID_MPEG1VIDEO || encoder.id == AV_CODEC_ID_MPEG2VIDEO ||
                        encoder.id == AV_CODEC_ID_MPEG4;
    const AVClass* options = encoder.priv_class;
    return isMpeg && options != nullptr &&
           av_opt_find(&options, kSceneChange, nullptr, 0, AV_OPT_SEARCH_FAKE_OBJ) != nullptr;
}

}  // namespace

objstream::object withNeeds(const objstream::object& config, const EncoderNeeds& needs) {
    objstream::object options;
    config["options"].for_each_kv([&](const std::string& key, const objstream::object& value) {
        options[key] = value;
        return true;
    });
    std::string flags = config["options"]["flags"].getValue<std::string>("");
    flags += needs.globalHeader ? "+global_header" : "";
    if (needs.closedGroups) {
        const AVCodec& encoder = *EncoderBase::encoderFromParams(config);
        const AVCodecDescriptor* descriptor = avcodec_descriptor_get(encoder.id);
        if (descriptor != nullptr && (descriptor->props & AV_CODEC_PROP_REORDER) != 0) {
            flags += "+cgop";
        }
        if (isOfMpegVideo(encoder) && !config["options"].hasKey(kSceneChange)) {
            // They refuse to close groups where they look for scene changes.
            options[kSceneChange] = std::string("1000000000");
        }
    }
    if (!flags.empty()) {
        options["flags"] = flags;
    }
    objstream::object adapted = config;
    adapted["options"] = options;
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
