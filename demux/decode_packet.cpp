#include "demux/decode_packet.h"

#include "core/log.h"
#include "core/shown_url.h"

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace vidorra {
namespace {

using Result = tl::expected<AvPtr<AVFrame>, AvError>;

bool isVideo(const DecoderBase& decoder) {
    return decoder.codecContext()->codec_type == AVMEDIA_TYPE_VIDEO;
}

Result sendFailure(const std::string& url, const DecoderBase& decoder, const Packet& packet, AvError error) {
    logFormatted(kLogWarning, {}, "Could not send {} packet from {}:{}, error: {}",
                 isVideo(decoder) ? "video" : "audio", shownUrl(url), packet.stream_index, AvRes(error));
    return tl::unexpected(error);
}

Result decodeFailure(const std::string& url, const DecoderBase& decoder, const Packet& packet,
                     AvError error) {
    logFormatted(kLogWarning, {}, "Could not decode {} from {}:{}: {}", isVideo(decoder) ? "Video" : "Audio",
                 shownUrl(url), packet.stream_index, AvRes(error));
    return tl::unexpected(error);
}

}  // namespace

Result decodePacket(const std::string& url, const DecoderBase& decoder, const Packet& packet) {
    const AvRes sent = decoder.send(packet);
    if (!sent.ok && sent.error != AvError::Again) {
        return sendFailure(url, decoder, packet, sent.error);
    }
    Result received = decoder.receiveAvFrame();
    if (sent.ok) {
        if (!received && received.error() != AvError::Again) {
            return decodeFailure(url, decoder, packet, received.error());
        }
        return received;
    }
    // The decoder was full. Receiving a frame makes room for the packet.
    if (!received) {
        return sendFailure(url, decoder, packet, received.error());
    }
    const AvRes sentAgain = decoder.send(packet);
    return sentAgain.ok ? std::move(received) : sendFailure(url, decoder, packet, sentAgain.error);
}

}  // namespace vidorra
