#pragma once

#include "vidorra/demux/decoder_base.h"
#include "vidorra/picture/video_frame.h"

namespace vidorra {

/// A decoder of pictures.
class VIDORRA_API VideoDecoder : public DecoderBase {
public:
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
