// Prints what each video packet of a media file gives.
#include <iostream>

#include <vidorra/vidorra.h>

extern "C" {
#include <libavformat/avformat.h>
}

int main(int argc, char** argv) try {
    vidorra::FormatContext source;
    source.setUrl(argc > 1 ? argv[1] : "clip.mp4");
    source.open("", true, std::chrono::seconds(2));
    const int video =
        av_find_best_stream(source.getAVFormatContext(), AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    for (vidorra::Packet packet = source.readPacket(); !source.isEOF(); packet = source.readPacket()) {
        if (packet.stream_index == video) {
            std::cout << source.decodeVideoPacket(packet) << '\n';
        }
    }
} catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return 1;
}
