// Shows that the library's lines reach the logger that replaced ours, whichever way they are written, and
// that it takes configurations from the objects that replaced ours. The accelerator that replaced ours gets a
// picture in the memory that replaced ours.
#include <iostream>
#include <string>

#include <vidorra/vidorra.h>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/log.h>
}

int main(int argc, char** argv) try {
    if (argc != 2) {
        std::cerr << "usage: replacement_program FILE\n";
        return 2;
    }
    const std::string path = argv[1];
    {
        vidorra::FormatContext source;
        source.setUrl(path);
        source.open("", true, std::chrono::seconds(1));
        const vidorra::Packet packet = source.readPacket();
        // A stream's decoder logs with a prefix.
        if (!source.getCodecContext(static_cast<unsigned>(packet.stream_index))) {
            std::cerr << "no decoder\n";
            return 1;
        }
    }
    // A configuration of the device's own making.
    objstream::object config;
    config["codec_id"] = std::string("mpeg4");
    const vidorra::EncoderBase encoder(config, "encoder");
    if (encoder.codecContext()->codec_id != AV_CODEC_ID_MPEG4) {
        std::cerr << "no encoder\n";
        return 1;
    }
    // What the accelerator writes to the device's memory shows in the picture.
    vidorra::UdmaBufPictureAllocator allocator("memory");
    vidorra::Picture screen = allocator.allocate({64, 32}, AV_PIX_FMT_NV12, AVCOL_RANGE_MPEG);
    const vidorra::Picture overlay = allocator.allocate({16, 16}, vidorra::NVA12, AVCOL_RANGE_MPEG);
    vidorra::z5::PictureComposer("null").compose(screen, overlay, {8, 4}, 0.5, true);
    vidorra::z5::PictureScaler scaler("null");
    scaler.setPictureAllocator(&allocator);
    const vidorra::Picture scaled = scaler.scale(screen, {32, 16}, true);
    if (screen.data()[0][4 * screen.linesize()[0] + 8] != 127 || screen.data()[0][0] != 0 ||
        scaled.data()[0][0] != 56) {
        std::cerr << "no accelerator\n";
        return 1;
    }
    // FFmpeg's lines come through print().
    ffmpeg_enable_logging();
    av_log(nullptr, AV_LOG_ERROR, "from FFmpeg");

    const std::string log = logger::deviceLog();
    std::cout << log;
    int failures = 0;
    for (const std::string& line : {
             "5|" + path + " opened, time origin 0\n",
             "5|" + path + " closed, 1 packets read\n",
             std::string("opening codec: \"mpeg4\"\n"),
             std::string("1|from FFmpeg\n"),
         }) {
        if (log.find(line) == std::string::npos) {
            std::cerr << "missing: " << line;
            ++failures;
        }
    }
    return failures == 0 ? 0 : 1;
} catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return 1;
}
