#include "mux/verification.h"

#include <cstdlib>
#include <memory>
#include <new>
#include <stdexcept>

#include "mux/coded_content.h"
#include "vidorra/core/av_ptr.h"
#include "vidorra/core/av_res.h"
#include "vidorra/core/format.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/crc.h>
#include <libavutil/mathematics.h>
}

namespace vidorra {

void Verification::Content::add(const AVCodecParameters& parameters, const AVPacket& packet) {
    ++packets;
    times.push_back(packet.pts);
    visitCodedContent(parameters, packet.data, static_cast<std::size_t>(packet.size),
                      [this](const std::uint8_t* data, std::size_t size) {
                          bytes += size;
                          sum = av_crc(av_crc_get_table(AV_CRC_32_IEEE), sum, data, size);
                      });
}

void Verification::add(std::vector<Stream>& streams, const AVStream& stream, const AVPacket& packet) {
    const auto index = static_cast<std::size_t>(stream.index);
    if (streams.size() <= index) {
        streams.resize(index + 1);
    }
    streams[index].timebase = stream.time_base;
    streams[index].isPcm = av_get_bits_per_sample(stream.codecpar->codec_id) > 0;
    streams[index].content.add(*stream.codecpar, packet);
}

void Verification::add(const AVStream& stream, const Packet& packet) {
    add(mStreams, stream, packet);
}

std::vector<Verification::Stream> Verification::read(const std::string& path) {
    AVFormatContext* opened = nullptr;
    AvRes(avformat_open_input(&opened, path.c_str(), nullptr, nullptr))
        .throwIfError("cannot read {} back", path);
    const std::unique_ptr<AVFormatContext, void (*)(AVFormatContext*)> source(
        opened, [](AVFormatContext* context) { avformat_close_input(&context); });
    AvRes(avformat_find_stream_info(source.get(), nullptr)).throwIfError("cannot read {} back", path);
    const AvPtr<AVPacket> packet = makeAvPtr<AVPacket>();
    if (packet == nullptr) {
        throw std::bad_alloc();
    }
    std::vector<Stream> streams;
    int code = av_read_frame(source.get(), packet.get());
    for (; code >= 0; code = av_read_frame(source.get(), packet.get())) {
        add(streams, *source->streams[packet->stream_index], *packet);
        av_packet_unref(packet.get());
    }
    if (code != AVERROR_EOF) {
        AvRes(code).throwIfError("cannot read {} back", path);
    }
    return streams;
}

void Verification::compare(const std::string& path, bool hasTimes) const {
    std::vector<Stream> found = read(path);
    found.resize(std::max(found.size(), mStreams.size()));
    for (std::size_t i = 0; i < mStreams.size(); ++i) {
        const Content& written = mStreams[i].content;
        const Content& read = found[i].content;
        if (!mStreams[i].isPcm && read.packets != written.packets) {
            throw std::runtime_error(fmt::format("{} has {} packets in stream {}, {} were written", path,
                                                 read.packets, i, written.packets));
        }
        if (read.bytes != written.bytes || read.sum != written.sum) {
            throw std::runtime_error(fmt::format(
                "{} has other content in stream {} than was written: {} bytes with the sum {:08x}, "
                "written were {} with {:08x}",
                path, i, read.bytes, read.sum, written.bytes, written.sum));
        }
    }
    if (hasTimes) {
        compareTimes(path, found);
    }
}

void Verification::compareTimes(const std::string& path, const std::vector<Stream>& found) const {
    // Containers begin where they want, with all streams together.
    constexpr AVRational kMicroseconds{1, 1000000};
    std::int64_t shift = AV_NOPTS_VALUE;
    for (std::size_t i = 0; i < mStreams.size(); ++i) {
        const Stream& written = mStreams[i];
        const Stream& read = found[i];
        if (written.isPcm || read.content.packets == 0) {
            continue;
        }
        const std::int64_t unit = std::max(av_rescale_q_rnd(1, written.timebase, kMicroseconds, AV_ROUND_UP),
                                           av_rescale_q_rnd(1, read.timebase, kMicroseconds, AV_ROUND_UP));
        for (std::size_t k = 0; k < written.content.times.size(); ++k) {
            if (read.content.times[k] == AV_NOPTS_VALUE) {
                continue;
            }
            const std::int64_t expected =
                av_rescale_q(written.content.times[k], written.timebase, kMicroseconds);
            const std::int64_t actual = av_rescale_q(read.content.times[k], read.timebase, kMicroseconds);
            if (shift == AV_NOPTS_VALUE) {
                shift = actual - expected;
            }
            if (std::abs(actual - expected - shift) > 2 * unit) {
                throw std::runtime_error(
                    fmt::format("{} has the time {} for packet {} of stream {}, written was {}", path,
                                Timestamp(Timebase(), actual - shift).debugDescription(), k, i,
                                Timestamp(Timebase(), expected).debugDescription()));
            }
        }
    }
}

}  // namespace vidorra
