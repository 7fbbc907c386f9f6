#include "encode/muxing.h"

#include <stdexcept>

#include "support/media.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace vidorra::test {

std::vector<Packet> receiveAll(EncoderBase& encoder) {
    std::vector<Packet> packets;
    while (auto packet = encoder.receivePacket()) {
        packets.push_back(std::move(*packet));
    }
    return packets;
}

std::filesystem::path muxed(const std::string& name, const EncoderBase& encoder,
                            std::vector<Packet> packets) {
    const std::filesystem::path path = temporaryFolder() / name;
    const auto check = [](int res) {
        if (res < 0) {
            throw std::runtime_error("muxing failed with " + std::to_string(res));
        }
    };
    AVFormatContext* context = nullptr;
    check(avformat_alloc_output_context2(&context, nullptr, "matroska", path.c_str()));
    const std::unique_ptr<AVFormatContext, void (*)(AVFormatContext*)> owner(
        context, [](AVFormatContext* freed) { avformat_free_context(freed); });
    AVStream* stream = avformat_new_stream(context, nullptr);
    const AvRes filled = encoder.fillCodecParameters(*stream->codecpar);
    check(filled.error.code());
    stream->time_base = encoder.codecContext()->time_base;
    check(avio_open(&context->pb, path.c_str(), AVIO_FLAG_WRITE));
    check(avformat_write_header(context, nullptr));
    for (Packet& packet : packets) {
        av_packet_rescale_ts(&packet, encoder.codecContext()->time_base, stream->time_base);
        packet.stream_index = 0;
        check(av_interleaved_write_frame(context, &packet));
    }
    check(av_write_trailer(context));
    check(avio_closep(&context->pb));
    return path;
}

}  // namespace vidorra::test
