#include "mux/recordings.h"

#include <cstring>

#include "support/media.h"
#include "support/process.h"

extern "C" {
#include <libavutil/channel_layout.h>
}

namespace vidorra::test {

objstream::object videoConfig(const std::string& codec) {
    objstream::object config;
    config["codec"] = codec;
    config["width"] = kRecordedSize.width;
    config["height"] = kRecordedSize.height;
    config["timebase_den"] = 25;
    config["options"]["g"] = 10;
    return config;
}

objstream::object audioConfig(const std::string& codec) {
    objstream::object config;
    config["codec"] = codec;
    config["options"]["ar"] = 48000;
    config["options"]["ac"] = 2;
    return config;
}

VideoFrame numberedPicture(int number) {
    Picture picture(kRecordedSize, AV_PIX_FMT_YUV420P, AVCOL_RANGE_JPEG, 32);
    std::vector<std::uint8_t> luma(3072, static_cast<std::uint8_t>(number));
    const std::vector<std::uint8_t> chroma(768, 128);
    luma[static_cast<std::size_t>(number)] = 255;
    const std::uint8_t* data[4] = {luma.data(), chroma.data(), chroma.data()};
    const int linesize[4] = {64, 32, 32};
    picture.copyFrom(data, linesize);
    return {std::move(picture), Timestamp({1, 25}, number), Frame::NoFlags};
}

std::vector<short> signal(std::int64_t start, std::int64_t count) {
    std::vector<short> samples(static_cast<std::size_t>(count));
    for (std::int64_t i = 0; i < count; ++i) {
        samples[static_cast<std::size_t>(i)] = static_cast<short>((start + i) * 7919 % 30011 - 15000);
    }
    return samples;
}

AudioFrame signalFrame(std::int64_t start, std::int64_t count, int rate) {
    AudioBuffer buffer(AV_CH_LAYOUT_STEREO, AV_SAMPLE_FMT_S16);
    buffer.setSampleRate(rate);
    buffer.loadSamples(signal(start, count));
    return {std::move(buffer), Timestamp({1, rate}, start)};
}

std::filesystem::path freshPath(const std::string& name) {
    const std::filesystem::path path = temporaryFolder() / name;
    std::filesystem::remove(path);
    std::filesystem::remove(path.string() + ".part");
    return path;
}

std::vector<short> decodedSound(const std::filesystem::path& path) {
    const std::filesystem::path raw = temporaryFolder() / "decoded.raw";
    run({"ffmpeg", "-v", "error", "-y", "-i", path, "-map", "0:a", "-af", "pan=mono|c0=c0", "-f", "s16le",
         raw});
    const std::string bytes = fileContent(raw);
    std::vector<short> samples(bytes.size() / 2);
    std::memcpy(samples.data(), bytes.data(), samples.size() * 2);
    return samples;
}

}  // namespace vidorra::test
