#include "vidorra/encode/video_encoder.h"

#include <new>
#include <stdexcept>
#include <string>

#include "core/log.h"
#include "encode/accepted_frames.h"
#include "encode/best_pixel_format.h"
#include "encode/config_keys.h"
#include "vidorra/core/enum_text.h"
#include "vidorra/core/ffmpeg_error.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/frame.h>
#include <libavutil/hwcontext.h>
}

namespace vidorra {
namespace {

constexpr const char* kName = "video-encoder";

void requireVideo(const AVCodecContext& context) {
    if (context.codec_type == AVMEDIA_TYPE_AUDIO) {
        throw std::runtime_error(fmt::format(
            "VideoEncoder: Trying to use audio codec \"{}\" by video encoder.", context.codec->id));
    }
    if (context.codec_type != AVMEDIA_TYPE_VIDEO) {
        throw std::runtime_error(fmt::format(
            "VideoEncoder: Unsupported media type \"{}\". Expected AVMediaType::AVMEDIA_TYPE_VIDEO.",
            static_cast<int>(context.codec->type)));
    }
}

// Deliberate: the name in the configuration decides, even if the codec was chosen by its id.
bool namesOmxEncoder(const objstream::object& config) {
    if (!config.hasKey("codec")) {
        return false;
    }
    const auto name = config["codec"].getValue<std::string>();
    return name == "h264_omx" || name == "hevc_omx";
}

}  // namespace

VideoEncoder::VideoEncoder(const objstream::object& config)
    : EncoderBase(config, kName),
      mHwDeviceContext(makeAvPtr<AVBufferRef>(nullptr)),
      mHwFramesContext(makeAvPtr<AVBufferRef>(nullptr)) {
    AVCodecContext& codec = *context();
    requireVideo(codec);
    logUnknownKeys(config,
                   {"codec", "codec_id", "width", "height", "timebase_num", "timebase_den", "pix_fmt",
                    "options", "filter", "vaapi_device"},
                   logName());
    codec.strict_std_compliance = FF_COMPLIANCE_UNOFFICIAL;
    codec.width = config["width"].getValue<int>(0);
    codec.height = config["height"].getValue<int>(0);
    codec.time_base.num = config["timebase_num"].getValue<int>(1);
    codec.time_base.den = config["timebase_den"].getValue<int>(1);
    mPixelFormat = config["pix_fmt"].getValue<AVPixelFormat>(AV_PIX_FMT_YUV420P);
    const bool isOmx = namesOmxEncoder(config);
    codec.pix_fmt = mPixelFormat;
    codec.color_range = mColorRange;
    mConverter = ColorSpaceConverter(mPixelFormat, mColorRange);
    setOptions(config["options"]);
    logMissingSettings(config);
    openVaapiDevice(config);
    openCodec();
    if (isOmx && codec.get_buffer2 != nullptr) {
        readEncoderLinesize();
    }
    if (config.hasKey("filter")) {
        const auto spec = config["filter"].getValue<std::string>();
        mFilterGraph = FilterGraphVideo(spec, codec, mHwDeviceContext.get(), mPixelFormat);
    }
}

VideoEncoder::~VideoEncoder() = default;

// The codec refuses these without an explanation. Options may have set them instead.
void VideoEncoder::logMissingSettings(const objstream::object& config) const {
    const AVCodecContext& codec = *codecContext();
    if (codec.width <= 0 || codec.height <= 0) {
        logger::log(kLogError, logName()) << "\"width\" and \"height\" are " << codec.width << " and "
                                          << codec.height << ": both have to be there and above 0.";
    }
    const AVRational unit = codec.time_base;
    if (unit.num <= 0 || unit.den <= 0) {
        logger::log(kLogError, logName())
            << "\"timebase_num\" and \"timebase_den\" are " << unit.num << " and " << unit.den
            << ": both have to be above 0, such as 1 and 25.";
    } else if (unit.num == 1 && unit.den == 1 && !config.hasKey("timebase_num") &&
               !config.hasKey("timebase_den")) {
        logger::log(kLogWarning, logName())
            << "\"timebase_num\" and \"timebase_den\" are missing: times count whole seconds, 1/1.";
    }
}

void VideoEncoder::openVaapiDevice(const objstream::object& config) {
    const objstream::object& value = config["vaapi_device"];
    if (value.empty()) {
        logger::log(kLogDebug, logName()) << "VideoEncoder: vaapi_device: <empty>";
        return;
    }
    const auto device = value.getValue<std::string>();
    logger::log(kLogDebug, logName()) << "VideoEncoder: vaapi_device: " << device;

    AVBufferRef* created = nullptr;
    const AvRes opened = av_hwdevice_ctx_create(&created, AV_HWDEVICE_TYPE_VAAPI, device.c_str(), nullptr, 0);
    opened.throwIfError("Failed to open VAAPI device: {}", device);
    mHwDeviceContext = makeAvPtr(created);

    mHwFramesContext = makeAvPtr(av_hwframe_ctx_alloc(mHwDeviceContext.get()));
    if (!mHwFramesContext) {
        throw std::runtime_error("Failed to create VAAPI frame context");
    }
    AVCodecContext& codec = *context();
    auto& frames = *reinterpret_cast<AVHWFramesContext*>(mHwFramesContext->data);
    frames.format = AV_PIX_FMT_VAAPI;
    frames.sw_format = AV_PIX_FMT_NV12;
    frames.width = codec.width;
    frames.height = codec.height;
    const AvRes initialised = av_hwframe_ctx_init(mHwFramesContext.get());
    initialised.throwIfError("Failed to initialize VAAPI frame context, device: {}", device);

    codec.hw_frames_ctx = av_buffer_ref(mHwFramesContext.get());
    if (codec.hw_frames_ctx == nullptr) {
        throw std::bad_alloc();
    }
    // The filters still get pictures in their own format.
    codec.pix_fmt = AV_PIX_FMT_VAAPI;
}

void VideoEncoder::readEncoderLinesize() {
    // The FFmpeg builds with these encoders define the meaning of a call with these flags.
    constexpr int kAskForLinesizes = 4;
    const AvPtr<AVFrame> frame = makeAvPtr<AVFrame>();
    if (!frame) {
        throw std::bad_alloc();
    }
    AVCodecContext& codec = *context();
    if (codec.get_buffer2(&codec, frame.get(), kAskForLinesizes) < 0) {
        throw std::runtime_error("Failed to get encoder properties");
    }
    mEncoderLinesize = {frame->linesize[0], frame->linesize[1]};
}

AvRes VideoEncoder::sendFrame(const VideoFrame& frame) {
    if (frame.empty()) {
        logger::log(kLogError, logName()) << "sendFrame(): could not encode empty VideoFrame.";
        return AvError::InvalidArgument;
    }
    AVCodecContext& codec = *context();
    // Deliberate: a converted picture loses its metadata and side data.
    VideoFrame local =
        frame.picture().pixelFormat() == codec.pix_fmt
            ? frame
            : VideoFrame(mConverter.convert(frame.picture()), frame.timestamp(), frame.flags());
    local.setTimestamp(local.timestamp().rescale(codec.time_base));
    pushNoSignalState((local.flags() & Frame::NoSignal) != Frame::NoFlags, local.timestamp());

    AvPtr<AVFrame> avFrame = local.toAvFrame();
    const AvRes filtered = mFilterGraph.filterFrame(avFrame);
    if (!filtered.ok) {
        return handleFilterFailure(filtered, local);
    }
    return encode(*avFrame);
}

AvRes VideoEncoder::sendFiltered() {
    AvPtr<AVFrame> avFrame = makeAvPtr<AVFrame>();
    const AvRes filtered = mFilterGraph.receiveFrame(avFrame);
    return filtered.ok ? encode(*avFrame) : filtered;
}

AvRes VideoEncoder::endFilter() {
    if (mFilterGraph.empty()) {
        return AvError::Again;
    }
    AvPtr<AVFrame> avFrame = makeAvPtr<AVFrame>();
    avFrame.reset();
    const AvRes filtered = mFilterGraph.filterFrame(avFrame);
    return filtered.ok ? encode(*avFrame) : filtered;
}

AvRes VideoEncoder::encode(AVFrame& frame) {
    if (!encoderAccepts(*context(), frame)) {
        logger::log(kLogWarning, logName())
            << "sendFrame(): not of the encoder's size and format: " << frame.width << "x" << frame.height
            << " " << static_cast<AVPixelFormat>(frame.format);
        return AvError::InvalidArgument;
    }
    return send(&frame);
}

AvRes VideoEncoder::handleFilterFailure(const AvRes& res, const VideoFrame& frame) {
    if (res.error == AvError::Eof) {
        static_cast<void>(sendEndOfStream());
        if (!frame.empty()) {
            logger::log(kLogDebug, logName()) << "sendFrame(): video filter at EOF: " << res;
        }
        return res;
    }
    if (res.error == AvError::Again) {
        logger::log(kLogDebug, logName()) << "sendFrame(): no video videoFrame available from filter";
        return 0;
    }
    logger::log(kLogWarning, logName())
        << "sendFrame(): could not filter videoFrame: " << frame << ". Error: " << res;
    return res;
}

AVPixelFormat VideoEncoder::chooseBestPixelFormat(AVCodecID id, AVPixelFormat wanted) {
    return bestPixelFormat(encoderById(id), wanted);
}

}  // namespace vidorra
