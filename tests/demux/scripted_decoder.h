#pragma once

#include <functional>
#include <utility>

#include "vidorra/demux/decoder_base.h"

extern "C" {
#include <libavutil/buffer.h>
#include <libavutil/frame.h>
}

namespace vidorra::test {

/// A decoder that receives what the test says instead of what FFmpeg decoded.
class ScriptedDecoder : public DecoderBase {
public:
    using Received = tl::expected<AvPtr<AVFrame>, AvError>;
    using Script = std::function<Received(const DecoderBase& decoder)>;

    explicit ScriptedDecoder(Script script) : mScript(std::move(script)) {}

    Received receiveAvFrame() const override {
        ++received;
        return mScript(*this);
    }

    /// FFmpeg's own frame.
    static Received decoded(const DecoderBase& decoder) { return decoder.DecoderBase::receiveAvFrame(); }

    mutable int received = 0;

private:
    Script mScript;
};

/// A frame that was not decoded. Counts up when it is released.
inline AvPtr<AVFrame> foreignFrame(int& released) {
    AvPtr<AVFrame> frame = makeAvPtr<AVFrame>();
    constexpr int kSize = 4096;
    const auto release = [](void* opaque, std::uint8_t* data) {
        av_free(data);
        ++*static_cast<int*>(opaque);
    };
    auto* data = static_cast<std::uint8_t*>(av_mallocz(kSize));
    frame->buf[0] = av_buffer_create(data, kSize, release, &released, 0);
    frame->data[0] = data;
    frame->linesize[0] = 32;
    frame->width = 32;
    frame->height = 16;
    frame->format = AV_PIX_FMT_GRAY8;
    return frame;
}

/// Sends packets until the decoder takes no more before its frames are received. Returns how many it took,
/// up to a limit.
inline int fill(const DecoderBase& decoder, const std::function<Packet(int)>& packetAt) {
    constexpr int kLimit = 100;
    for (int i = 0; i < kLimit; ++i) {
        const AvRes res = decoder.send(packetAt(i));
        if (!res.ok) {
            return res.error == AvError::Again ? i : -1;
        }
    }
    return -1;
}

}  // namespace vidorra::test
