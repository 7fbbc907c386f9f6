// Cuts a file into MPEG-TS segments of two seconds or more with an HLS playlist: segments IN FOLDER
#include <filesystem>
#include <iostream>

#include <vidorra/vidorra.h>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

int main(int argc, char** argv) try {
    if (argc != 3) {
        std::cerr << "usage: segments IN FOLDER\n";
        return 2;
    }
    vidorra::FormatContext source;
    source.setUrl(argv[1]);
    source.open("", true, std::chrono::seconds(2));
    const int video =
        av_find_best_stream(source.getAVFormatContext(), AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    if (video < 0) {
        throw std::runtime_error("there are no pictures to cut at");
    }

    const std::filesystem::path folder = argv[2];
    std::filesystem::create_directories(folder);
    vidorra::WriterOptions options;
    options.segmentDuration = std::chrono::seconds(2);
    options.playlist = folder / "index.m3u8";
    options.progress = [](std::uint64_t packets, const vidorra::Timestamp& time) {
        if (packets % 1000 == 0) {
            std::cerr << packets << " packets, written up to " << time << '\n';
        }
    };
    vidorra::MediaFileWriter writer(folder / "segment%05d.ts", options);
    const AVStream& stream = *source.trackAtIndex(static_cast<unsigned>(video));
    const auto track = writer.addPackets(*stream.codecpar, stream.time_base);
    vidorra::Packet packet;
    while (av_read_frame(source.getAVFormatContext(), &packet) >= 0) {
        if (packet.stream_index == video) {
            writer.write(track, packet);
        }
        av_packet_unref(&packet);
    }
    for (const std::string& file : writer.finish().files) {
        std::cout << file << '\n';
    }
} catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return 1;
}
