#include "vidorra/demux/video_decoder.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "core/log.h"
#include "ffmpeg/pixel_formats.h"

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace vidorra {
namespace {

struct Option {
    const char* key = nullptr;
    const char* value = nullptr;
};

struct HardwareChoice {
    AVCodecID id;
    const char* name;
    std::array<Option, 2> options;
};

// The choices, in the order in which they are tried.
constexpr std::array<HardwareChoice, 5> kHardwareChoices = {{
    {AV_CODEC_ID_H264, "h264_qsv", {{{"async_depth", "1"}}}},
    {AV_CODEC_ID_H264, "h264_omx", {{{"bframes_disabled", "1"}}}},
    {AV_CODEC_ID_HEVC, "hevc_qsv", {{{"async_depth", "1"}, {"load_plugin", "none"}}}},
    {AV_CODEC_ID_HEVC, "hevc_omx", {{{"bframes_disabled", "1"}}}},
    {AV_CODEC_ID_MJPEG, "mjpeg_qsv", {{{"async_depth", "1"}}}},
}};

}  // namespace

VideoDecoder::~VideoDecoder() = default;

std::optional<DecoderBase::ChosenCodec> VideoDecoder::chooseCodec(const AVCodecParameters& parameters,
                                                                  Acceleration acceleration) {
    if (acceleration != Acceleration::Hardware) {
        return std::nullopt;
    }
    if (parameters.codec_type != AVMEDIA_TYPE_VIDEO) {
        throw FFmpegError(AvError::InvalidArgument, "VideoDecoder cannot be used for audio");
    }
    for (const HardwareChoice& choice : kHardwareChoices) {
        if (choice.id != parameters.codec_id) {
            continue;
        }
        ChosenCodec chosen;
        chosen.codec = avcodec_find_decoder_by_name(choice.name);
        if (chosen.codec == nullptr) {
            continue;
        }
        for (const Option& option : choice.options) {
            if (option.key != nullptr) {
                av_dict_set(chosen.options.address(), option.key, option.value, 0);
            }
        }
        return chosen;
    }
    return std::nullopt;
}

VideoDecoder::Acceleration VideoDecoder::fetchAcceleration() const {
    const AVCodec* codec = codecContext() != nullptr ? codecContext()->codec : nullptr;
    const bool hardware =
        codec != nullptr &&
        std::any_of(kHardwareChoices.begin(), kHardwareChoices.end(), [codec](const HardwareChoice& choice) {
            return std::string_view(codec->name) == choice.name;
        });
    return hardware ? Acceleration::Hardware : Acceleration::None;
}

tl::expected<AvPtr<AVFrame>, AvError> VideoDecoder::receiveAvFrame() const {
    tl::expected<AvPtr<AVFrame>, AvError> received = DecoderBase::receiveAvFrame();
    if (!received) {
        return received;
    }
    AVFrame& frame = **received;
    if (ffmpeg_ext::isForeignNva12(frame)) {
        logger::log(kLogWarning, prefix())
            << "Frame refused: FFmpeg gives its pixel format the number of " << to_string(NVA12);
        return tl::unexpected(AvError::InvalidData);
    }
    frame.format = ffmpeg_ext::withoutImpliedRange(static_cast<AVPixelFormat>(frame.format));
    if (frame.color_range == AVCOL_RANGE_UNSPECIFIED) {
        frame.color_range = codecContext()->color_range;
    }
    return received;
}

tl::expected<VideoFrame, AvError> VideoDecoder::receive() const {
    return receiveAvFrame().map([](const AvPtr<AVFrame>& frame) { return toVideoFrame(*frame); });
}

VideoFrame VideoDecoder::toVideoFrame(AVFrame& frame) {
    return {Picture(&frame), Timestamp(Timebase(), frame.best_effort_timestamp), Frame::NoFlags};
}

}  // namespace vidorra
