#pragma once

#include <array>
#include <cstdint>

#include "objstream/object.h"
#include "vidorra/core/av_ptr.h"
#include "vidorra/core/av_res.h"
#include "vidorra/core/export.h"
#include "vidorra/core/ffmpeg_fwd.h"
#include "vidorra/encode/encoder_base.h"
#include "vidorra/filter/filter_graph.h"
#include "vidorra/picture/video_frame.h"
#include "vidorra/process/color_space_converter.h"

namespace vidorra {

/// Encodes pictures into packets.
///
///     objstream::object config;
///     config["codec"] = "libx264";
///     config["width"] = 1280;
///     config["height"] = 720;
///     config["timebase_num"] = 1;
///     config["timebase_den"] = 25;
///     config["options"]["b"] = 4000000;
///     config["filter"] = "hqdn3d";
///     VideoEncoder encoder(config);
///     encoder.sendFrame(frame).throwIfError("the encoder does not take a frame");
///     while (const auto packet = encoder.receivePacket()) { ... }
///
/// It reads the keys of EncoderBase and these; others are ignored, with a line in the log at level 2:
///
///     width, height                 the size of the pictures; 0 is logged, and refused when the codec opens
///     timebase_num, timebase_den    the packets' time unit in seconds; 1/1 by default, which is logged
///     pix_fmt                       the name of the pixel format of the pictures; "yuv420p" by default
///     options                       a map of options of the codec, such as "b" and "g"
///     filter                        FFmpeg filters between the pictures and the codec; see below
///     vaapi_device                  the path of a device that the codec and the filters use; the filters
///                                   have to upload the pictures to it
///
/// The stream is marked as full-range. A picture in the codec's pixel format is never copied and is encoded
/// unchanged, whatever its range; a limited-range picture then looks washed out. A picture in another format
/// is converted to full range, and loses its metadata and its timecode. docs/RECIPES.md shows how to convert
/// pictures to full range. For a limited-range stream set the option "color_range" to "tv", and send only
/// limited-range pictures in the codec's pixel format. Pictures are never scaled.
///
/// A filter that changes the time base changes the packets' times: "yadif" doubles them, which
/// "yadif,settb=1/25" undoes at 25 frames a second. At most one frame reaches the codec for each that is
/// sent: filters that give more, as "yadif=1" and "fps=50" can, fall behind, and fail once 250 frames are
/// waiting. After that, and after any failure inside the filters, every frame fails with the same error. See
/// FilterGraphBase.
///
/// Owns: the codec, the device and the filters.
/// Threads: one at a time.
class VIDORRA_API VideoEncoder : public EncoderBase {
public:
    /// Opens the encoder. Throws std::runtime_error when the configuration chooses no encoder or one that is
    /// not for video, bad_objstream_cast or BadCast for a value that cannot be converted, std::bad_cast for
    /// a codec, filter or vaapi_device that is not a scalar, and FFmpegError for an option, a device, a
    /// codec or a filter that fails.
    explicit VideoEncoder(const objstream::object& config);
    virtual ~VideoEncoder();

    /// Sends a picture to the encoder, with its time converted to the encoder's time base; the null mark of
    /// the time is ignored. The encoder keeps references to the pixels as long as it needs them. Muxers need
    /// rising times; this is not checked here.
    ///
    /// Returns AvError::InvalidArgument for an empty frame and for a picture that, after the filter, does
    /// not have the encoder's size and format; AvError::Again when packets must be received first;
    /// AvError::Eof when a filter has ended, which ends the stream; AvError::OutOfMemory when 250 filtered
    /// frames are waiting; and other FFmpeg errors. A frame that a filter keeps for now is a success. Throws
    /// ScalerUnsupportedError for a picture that cannot be converted, std::runtime_error for one that is too
    /// small to be converted, std::bad_alloc when there is no memory.
    AvRes sendFrame(const VideoFrame& frame);

    /// Sends another frame that the filter has made: some filters make several frames from one, and
    /// sendFrame() sends only the first. Receive the packets first. Returns AvError::Again when there is no
    /// frame now, or no filter; AvError::Eof when the filter has ended; otherwise as sendFrame().
    AvRes sendFiltered();

    /// Tells the filter that no frame follows, and sends the first frame that it still held. Call
    /// sendFiltered() for the others, and then sendEndOfStream() to end the codec. Returns the same as
    /// sendFiltered().
    AvRes endFilter();

    /// The format in which an encoder takes pictures of the format `wanted`: `wanted` itself if it is in the
    /// encoder's list, otherwise the first format in the list that agrees about alpha, otherwise the first
    /// format. AV_PIX_FMT_NONE for an encoder without a list, which may take any format. Throws
    /// std::runtime_error when there is no encoder for the codec.
    [[nodiscard]] static AVPixelFormat chooseBestPixelFormat(AVCodecID id, AVPixelFormat wanted);

    /// The line sizes, in bytes, of the first two planes that the encoders "h264_omx" and "hevc_omx" prefer;
    /// 0 for all others.
    [[nodiscard]] const std::array<std::int32_t, 2>& encoderLinesize() const noexcept {
        return mEncoderLinesize;
    }

private:
    void logMissingSettings(const objstream::object& config) const;
    void openVaapiDevice(const objstream::object& config);
    void readEncoderLinesize();
    AvRes encode(AVFrame& frame);
    AvRes handleFilterFailure(const AvRes& res, const VideoFrame& frame);

    // Released in reverse order.
    AvPtr<AVBufferRef> mHwDeviceContext;
    AvPtr<AVBufferRef> mHwFramesContext;
    FilterGraphVideo mFilterGraph;
    AVPixelFormat mPixelFormat = AV_PIX_FMT_YUV420P;
    AVColorRange mColorRange = AVCOL_RANGE_JPEG;
    ColorSpaceConverter mConverter{AV_PIX_FMT_NONE, AVCOL_RANGE_UNSPECIFIED};
    std::array<std::int32_t, 2> mEncoderLinesize{};
};

}  // namespace vidorra
