// Copies pictures and sound of a file into another container, without decoding: remux IN OUT
#include <iostream>
#include <optional>
#include <vector>

#include <vidorra/vidorra.h>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

int main(int argc, char** argv) try {
    if (argc != 3) {
        std::cerr << "usage: remux IN OUT\n";
        return 2;
    }
    vidorra::FormatContext source;
    source.setUrl(argv[1]);
    source.open("", true, std::chrono::seconds(2));

    vidorra::MediaFileWriter writer(argv[2]);
    std::vector<std::optional<vidorra::MediaFileWriter::Track>> tracks(source.tracksNumber());
    for (unsigned i = 0; i < source.tracksNumber(); ++i) {
        const AVStream& stream = *source.trackAtIndex(i);
        if (stream.codecpar->codec_type == AVMEDIA_TYPE_VIDEO ||
            stream.codecpar->codec_type == AVMEDIA_TYPE_AUDIO) {
            tracks[i] = writer.addPackets(*stream.codecpar, stream.time_base);
        }
    }
    // FFmpeg's own function: it leaves times and marks of key frames as the file has them.
    vidorra::Packet packet;
    while (av_read_frame(source.getAVFormatContext(), &packet) >= 0) {
        const auto index = static_cast<std::size_t>(packet.stream_index);
        if (index < tracks.size() && tracks[index]) {
            writer.write(*tracks[index], packet);
        }
        av_packet_unref(&packet);
    }
    for (const auto& track : writer.finish().tracks) {
        std::cout << track.codec << ": " << track.packets << " packets, " << track.bytes << " bytes\n";
    }
} catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return 1;
}
