// Decodes a file, all frames of its first tracks of pictures and sound, and encodes them: transcode IN OUT
#include <iostream>
#include <optional>

#include <vidorra/vidorra.h>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace {

objstream::object videoConfig(const AVCodecParameters& source) {
    objstream::object config;
    config["codec_id"] = "h264";
    config["width"] = source.width;
    config["height"] = source.height;
    // Fine enough for any frame rate, and for one that varies.
    config["timebase_den"] = 90000;
    config["options"]["color_range"] = "tv";
    config["options"]["b"] = 2000000;
    return config;
}

objstream::object audioConfig() {
    objstream::object config;
    config["codec"] = "aac";
    config["options"]["ar"] = 48000;
    config["options"]["ac"] = 2;
    config["options"]["b"] = 128000;
    return config;
}

class Transcoder {
public:
    Transcoder(const char* from, const char* to) : mWriter(to) {
        mSource.setUrl(from);
        mSource.open("", true, std::chrono::seconds(2));
        mVideo = av_find_best_stream(mSource.getAVFormatContext(), AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
        mAudio = av_find_best_stream(mSource.getAVFormatContext(), AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0);
        if (mVideo >= 0) {
            mPictures =
                mWriter.addVideo(videoConfig(*mSource.trackAtIndex(static_cast<unsigned>(mVideo))->codecpar));
        }
        if (mAudio >= 0) {
            mSound = mWriter.addAudio(audioConfig());
        }
    }

    vidorra::WriterReport run() {
        for (vidorra::Packet packet = mSource.readPacket(); !mSource.isEOF(); packet = mSource.readPacket()) {
            if (packet.stream_index == mVideo) {
                write(mSource.decodeVideoPacket(packet));
            } else if (packet.stream_index == mAudio) {
                const vidorra::AudioFrame frame = mSource.decodeAudioPacket(packet);
                if (!frame.empty()) {
                    mWriter.write(*mSound, frame);
                }
            }
        }
        writeRest();
        return mWriter.finish();
    }

private:
    void write(const vidorra::VideoFrame& frame) {
        if (!frame.empty()) {
            mWriter.write(*mPictures, frame);
        }
    }

    // A decoder that reorders pictures keeps some until it hears that no packet follows.
    void writeRest() {
        if (mVideo < 0) {
            return;
        }
        auto* decoder = dynamic_cast<vidorra::VideoDecoder*>(
            mSource.getCodecContext(static_cast<unsigned>(mVideo)).get());
        const vidorra::Packet end;
        if (decoder != nullptr && decoder->send(static_cast<const AVPacket&>(end)).ok) {
            while (const auto frame = decoder->receive()) {
                write(*frame);
            }
        }
    }

    vidorra::FormatContext mSource;
    vidorra::MediaFileWriter mWriter;
    int mVideo = -1;
    int mAudio = -1;
    std::optional<vidorra::MediaFileWriter::Track> mPictures;
    std::optional<vidorra::MediaFileWriter::Track> mSound;
};

}  // namespace

int main(int argc, char** argv) try {
    if (argc != 3) {
        std::cerr << "usage: transcode IN OUT\n";
        return 2;
    }
    for (const auto& track : Transcoder(argv[1], argv[2]).run().tracks) {
        std::cout << track.codec << ": " << track.frames << " frames, " << track.packets << " packets, until "
                  << track.end << '\n';
    }
} catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return 1;
}
