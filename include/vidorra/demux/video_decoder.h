#pragma once

#include "vidorra/demux/decoder_base.h"
#include "vidorra/picture/video_frame.h"

namespace vidorra {

/// Decodes video; see DecoderBase for how to drive it. This gets the frames that a decoder holds back at the
/// end of the data:
///
///     if (auto* decoder = dynamic_cast<VideoDecoder*>(source.getCodecContext(0).get())) {
///         const Packet end;
///         decoder->send(static_cast<const AVPacket&>(end)).throwIfError("the decoder does not end");
///         while (const auto frame = decoder->receive()) { ... }
///     }
class VIDORRA_API VideoDecoder : public DecoderBase {
public:
    enum class Acceleration { None, Hardware };

    /// The hardware decoder for a stream, with the options to open it with. Nothing without
    /// Acceleration::Hardware, or if the FFmpeg in use has no hardware decoder for the codec. Throws
    /// FFmpegError with AvError::InvalidArgument when hardware is requested for a stream that is not video.
    [[nodiscard]] static std::optional<ChosenCodec> chooseCodec(const AVCodecParameters& parameters,
                                                                Acceleration acceleration);

    /// Whether the decoder is one of the hardware decoders that chooseCodec() knows. Acceleration::None
    /// before prepareCodec().
    [[nodiscard]] Acceleration fetchAcceleration() const;

    ~VideoDecoder() override;

    /// The next frame, normalised: formats whose name implies full range (such as YUVJ420P) become the plain
    /// ones, and a frame without a colour range gets the codec's. A frame in a format that has the number of
    /// NVA12 in the FFmpeg in use is refused with AvError::InvalidData and a log line.
    [[nodiscard]] tl::expected<AvPtr<AVFrame>, AvError> receiveAvFrame() const override;

    /// The next frame, sharing the decoder's memory, at its best-effort time in microseconds and without
    /// flags. Fails as receiveAvFrame() does.
    [[nodiscard]] tl::expected<VideoFrame, AvError> receive() const;

    /// Converts a frame from receiveAvFrame(), as receive() does.
    [[nodiscard]] static VideoFrame toVideoFrame(AVFrame& frame);
};

}  // namespace vidorra
