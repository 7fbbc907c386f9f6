#pragma once

#include "vidorra/demux/decoder_base.h"
#include "vidorra/picture/video_frame.h"

namespace vidorra {

/// A decoder of pictures, driven as DecoderBase shows. These are the frames that one holds back at the end of
/// the data:
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
    /// Acceleration::Hardware, and where the FFmpeg in use has no hardware decoder for the codec. Throws
    /// FFmpegError with AvError::InvalidArgument when hardware is asked for a stream that is not video.
    [[nodiscard]] static std::optional<ChosenCodec> chooseCodec(const AVCodecParameters& parameters,
                                                                Acceleration acceleration);

    /// Whether the decoder is one of the hardware decoders that chooseCodec() knows. Acceleration::None
    /// before prepareCodec().
    [[nodiscard]] Acceleration fetchAcceleration() const;

    ~VideoDecoder() override;

    /// The next frame, mended: the formats that mean full range by their name (YUVJ420P and its kin) become
    /// the plain ones, and a frame without a colour range takes that of the codec. A frame in the format to
    /// which the FFmpeg in use gave the number of NVA12 is refused, with a log line, as AvError::InvalidData.
    [[nodiscard]] tl::expected<AvPtr<AVFrame>, AvError> receiveAvFrame() const override;

    /// The next frame, sharing the decoder's memory, at its best-effort time in microseconds and without
    /// flags. Errors as receiveAvFrame().
    [[nodiscard]] tl::expected<VideoFrame, AvError> receive() const;

    /// What receive() makes of a frame from receiveAvFrame().
    [[nodiscard]] static VideoFrame toVideoFrame(AVFrame& frame);
};

}  // namespace vidorra
