#pragma once

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "vidorra/demux/format_context.h"
#include "vidorra/demux/packet.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace vidorra::test {

/// Parameters of a stream with an owner.
using Parameters = std::unique_ptr<AVCodecParameters, void (*)(AVCodecParameters*)>;

inline Parameters makeParameters(AVMediaType type, AVCodecID codec) {
    Parameters parameters(avcodec_parameters_alloc(),
                          [](AVCodecParameters* owned) { avcodec_parameters_free(&owned); });
    parameters->codec_type = type;
    parameters->codec_id = codec;
    return parameters;
}

/// The parameters of uncompressed video: every packet of the right size gives one picture at once.
inline Parameters rawVideoParameters(AVPixelFormat format, int width = 32, int height = 16) {
    Parameters parameters = makeParameters(AVMEDIA_TYPE_VIDEO, AV_CODEC_ID_RAWVIDEO);
    parameters->format = format;
    parameters->width = width;
    parameters->height = height;
    return parameters;
}

/// A packet that owns `size` equal bytes.
inline Packet makePacket(int size, std::uint8_t value = 0, int streamIndex = 0) {
    Packet packet;
    if (av_new_packet(&packet, size) != 0) {
        throw std::bad_alloc();
    }
    std::memset(packet.data, value, static_cast<std::size_t>(size));
    packet.stream_index = streamIndex;
    return packet;
}

/// A packet that owns these bytes.
inline Packet makePacket(const std::string& bytes, int streamIndex = 0) {
    Packet packet = makePacket(static_cast<int>(bytes.size()), 0, streamIndex);
    std::memcpy(packet.data, bytes.data(), bytes.size());
    return packet;
}

/// Makes and opens a decoder with one thread.
template <class Decoder>
void prepareAndOpen(Decoder& decoder, const AVCodecParameters& parameters) {
    Dictionary options = decoder.prepareCodec(std::nullopt, parameters);
    decoder.openCodec(options);
}

/// The open file, with stream information.
inline FormatContext opened(const std::string& url) {
    FormatContext source;
    source.setUrl(url);
    source.open("", true, std::chrono::seconds(5));
    return source;
}

/// All packets up to the end, including those of size 0.
inline std::vector<Packet> readAllPackets(FormatContext& source) {
    std::vector<Packet> result;
    for (;;) {
        Packet packet = source.readPacket();
        if (source.isEOF()) {
            return result;
        }
        result.push_back(std::move(packet));
    }
}

/// The index of the first stream of a type, -1 without one.
inline int firstStream(const FormatContext& source, AVMediaType type) {
    for (unsigned i = 0; i < source.tracksNumber(); ++i) {
        if (source.trackAtIndex(i)->codecpar->codec_type == type) {
            return static_cast<int>(i);
        }
    }
    return -1;
}

}  // namespace vidorra::test
