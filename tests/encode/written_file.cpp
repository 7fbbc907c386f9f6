#include "encode/written_file.h"

#include <memory>

#include "vidorra/core/av_res.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace vidorra::test {

void writeFile(const std::filesystem::path& path, const EncoderBase& encoder,
               const std::vector<Packet>& packets) {
    AVFormatContext* made = nullptr;
    AvRes(avformat_alloc_output_context2(&made, nullptr, nullptr, path.c_str()))
        .throwIfError("{}", path.string());
    const std::unique_ptr<AVFormatContext, void (*)(AVFormatContext*)> file(made, avformat_free_context);
    AVStream* stream = avformat_new_stream(made, nullptr);
    encoder.fillCodecParameters(*stream->codecpar).throwIfError("parameters");
    stream->time_base = encoder.codecContext()->time_base;
    AvRes(avio_open(&made->pb, path.c_str(), AVIO_FLAG_WRITE)).throwIfError("{}", path.string());
    AvRes(avformat_write_header(made, nullptr)).throwIfError("header");
    for (const Packet& packet : packets) {
        Packet copy = packet;
        // Encoders do not know how long their pictures last, and without a duration a file drops the last
        // one.
        copy.duration = 1;
        av_packet_rescale_ts(&copy, encoder.codecContext()->time_base, stream->time_base);
        AvRes(av_interleaved_write_frame(made, &copy)).throwIfError("packet");
    }
    AvRes(av_write_trailer(made)).throwIfError("trailer");
    AvRes(avio_closep(&made->pb)).throwIfError("close");
}

}  // namespace vidorra::test
