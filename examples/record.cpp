// Records ten seconds of a moving bar and a tone: record OUT.mp4
#include <cmath>
#include <iostream>
#include <string>
#include <vector>

#include <vidorra/vidorra.h>

extern "C" {
#include <libavutil/channel_layout.h>
}

namespace {

constexpr int kSeconds = 10;
constexpr int kFramesPerSecond = 25;
constexpr int kRate = 48000;
constexpr vidorra::Size kSize{320, 180};

vidorra::VideoFrame picture(int number) {
    vidorra::Picture canvas(kSize, AV_PIX_FMT_YUV420P, AVCOL_RANGE_JPEG, 32);
    vidorra::fillRectangle(canvas, vidorra::Color("navy"));
    vidorra::fillRectangle(canvas, {number * 2 % kSize.width, 0, 16, kSize.height}, vidorra::Color("yellow"));
    return {canvas, vidorra::Timestamp({1, kFramesPerSecond}, number), vidorra::Frame::NoFlags};
}

// A fifth of a second of sound, whatever the encoder's frames are.
vidorra::AudioFrame tone(int number) {
    std::vector<short> samples(kRate / 5);
    for (std::size_t i = 0; i < samples.size(); ++i) {
        const double time = number / 5.0 + static_cast<double>(i) / kRate;
        samples[i] = static_cast<short>(8000 * std::sin(2 * M_PI * 440 * time));
    }
    vidorra::AudioBuffer buffer(AV_CH_LAYOUT_MONO, AV_SAMPLE_FMT_S16);
    buffer.setSampleRate(kRate);
    buffer.loadSamples(samples);
    return {buffer, vidorra::Timestamp({1, 5}, number)};
}

}  // namespace

int main(int argc, char** argv) try {
    objstream::object video;
    video["codec"] = "mpeg4";
    video["width"] = kSize.width;
    video["height"] = kSize.height;
    video["timebase_den"] = kFramesPerSecond;
    video["options"]["b"] = 1000000;
    objstream::object audio;
    audio["codec"] = "aac";
    audio["options"]["ar"] = 44100;
    audio["options"]["ac"] = 2;

    vidorra::MediaFileWriter writer(argc > 1 ? argv[1] : "record.mp4");
    const auto pictures = writer.addVideo(video);
    const auto sound = writer.addAudio(audio);
    for (int number = 0; number < kSeconds * kFramesPerSecond; ++number) {
        writer.write(pictures, picture(number));
        if (number % 5 == 0) {
            writer.write(sound, tone(number / 5));
        }
    }
    for (const auto& track : writer.finish().tracks) {
        std::cout << track.codec << ": " << track.packets << " packets, " << track.bytes << " bytes, until "
                  << track.end << '\n';
    }
} catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return 1;
}
