// Prints what ClipReader gives of a file, a line for each frame, for comparison with the ffmpeg program.
//
//     v PASS TIME DURATION FORMAT WIDTHxHEIGHT MD5
//     a PASS TIME SAMPLES RATE CHANNELS FORMAT MD5
//     lead TIME, what the first stamp is less than its time in the source
//
// Times are in microseconds; the hashes are of rows and samples without padding, samples interleaved.

#include <vidorra/vidorra.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fstream>
#include <iostream>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/imgutils.h>
#include <libavutil/md5.h>
#include <libavutil/pixdesc.h>
#include <libavutil/samplefmt.h>
}

using namespace vidorra;

namespace {

std::string md5(const std::vector<std::uint8_t>& bytes) {
    std::uint8_t digest[16];
    av_md5_sum(digest, bytes.data(), static_cast<int>(bytes.size()));
    std::string text;
    for (const std::uint8_t byte : digest) {
        char hex[3];
        std::snprintf(hex, sizeof(hex), "%02x", byte);
        text += hex;
    }
    return text;
}

std::vector<std::uint8_t> bytesOf(const Picture& picture) {
    const Size size = picture.frameSize();
    const int bytes = av_image_get_buffer_size(picture.pixelFormat(), size.width, size.height, 1);
    std::vector<std::uint8_t> result(static_cast<std::size_t>(bytes));
    const std::uint8_t* data[4];
    std::copy(picture.data().begin(), picture.data().end(), data);
    av_image_copy_to_buffer(result.data(), bytes, data, picture.linesize().data(), picture.pixelFormat(),
                            size.width, size.height, 1);
    return result;
}

std::vector<std::uint8_t> bytesOf(const AudioBuffer& buffer) {
    const auto planes = buffer.getPointersToPlanes();
    const auto size = static_cast<std::size_t>(av_get_bytes_per_sample(buffer.sampleFormat()));
    const auto channels = static_cast<std::size_t>(buffer.numberOfChannels());
    std::vector<std::uint8_t> result(size * channels * buffer.numberOfSamples());
    if (planes.size() == 1) {
        std::memcpy(result.data(), planes[0], result.size());
        return result;
    }
    for (std::size_t i = 0; i < buffer.numberOfSamples(); ++i) {
        for (std::size_t c = 0; c < channels; ++c) {
            std::memcpy(result.data() + (i * channels + c) * size, planes[c] + i * size, size);
        }
    }
    return result;
}

// Gives at most `chunk` bytes at a time.
class ChunkedFile : public ByteSource {
public:
    ChunkedFile(const std::string& path, std::size_t chunk) : mSource(mappedSource(path)), mChunk(chunk) {}
    std::optional<std::size_t> read(std::uint8_t* target, std::size_t size) override {
        return mSource->read(target, std::min(size, mChunk));
    }
    bool seek(std::uint64_t position) override { return mSource->seek(position); }
    std::optional<std::uint64_t> size() const override { return mSource->size(); }

private:
    std::shared_ptr<ByteSource> mSource;
    std::size_t mChunk;
};

ClipReader open(const std::string& path, const std::string& source, const ClipOptions& options) {
    if (source == "mapped") {
        return ClipReader(mappedSource(path), options);
    }
    if (source == "memory") {
        std::ifstream file(path, std::ios::binary);
        return ClipReader(memorySource(std::vector<std::uint8_t>(std::istreambuf_iterator<char>(file),
                                                                 std::istreambuf_iterator<char>())),
                          options);
    }
    if (!source.empty()) {
        return ClipReader(std::make_shared<ChunkedFile>(path, std::stoul(source)), options);
    }
    return ClipReader(path, options);
}

Timestamp seconds(const std::string& text) {
    return {Timebase(), static_cast<std::int64_t>(std::stod(text) * 1e6 + 0.5)};
}

ClipTrackChoice choice(const std::string& text) {
    if (text == "none") {
        return {TrackChoice::None};
    }
    return {std::stoi(text)};
}

}  // namespace

int main(int argc, char** argv) try {
    std::map<std::string, std::string> arguments;
    for (int i = 1; i + 1 < argc; i += 2) {
        arguments[argv[i]] = argv[i + 1];
    }
    const std::string path = argv[argc - 1];
    ClipOptions options;
    for (const auto& [key, value] : arguments) {
        if (key == "--passes") {
            options.passes = std::stoul(value);
        } else if (key == "--in") {
            options.in = seconds(value);
        } else if (key == "--out") {
            options.out = seconds(value);
        } else if (key == "--threads") {
            options.threads = std::stoi(value);
        } else if (key == "--video") {
            options.video = choice(value);
        } else if (key == "--audio") {
            options.audio = choice(value);
        } else if (key == "--end-with-pictures") {
            options.endWithPictures = true;
        } else if (key == "--protocols") {
            options.protocols = std::vector<std::string>{value};
        }
    }
    const bool hash = arguments["--hash"] != "no";
    ClipReader reader = open(path, arguments["--source"], options);
    if (arguments.count("--seek") != 0) {
        reader.seek(seconds(arguments["--seek"]));
    }
    if (arguments.count("--seek-key") != 0) {
        reader.seek(seconds(arguments["--seek-key"]), ClipReader::SeekTo::KeyFrame);
    }
    std::ofstream sound(arguments.count("--sound") != 0 ? arguments["--sound"] : "/dev/null",
                        std::ios::binary);
    bool first = true;
    while (const auto frame = reader.read()) {
        const Timestamp time =
            frame.video() != nullptr ? frame.video()->timestamp() : frame.audio()->timestamp();
        if (first) {
            std::cout << "lead " << (frame.sourceTime - time).value << '\n';
            first = false;
        }
        std::cout << (frame.video() != nullptr ? "v " : "a ") << frame.pass << ' ';
        if (const VideoFrame* video = frame.video()) {
            const Picture& picture = video->picture();
            std::cout << video->timestamp().value << ' ' << frame.duration.value << ' '
                      << av_get_pix_fmt_name(picture.pixelFormat()) << ' ' << picture.frameSize().width << 'x'
                      << picture.frameSize().height << ' ' << (hash ? md5(bytesOf(picture)) : "-") << '\n';
        } else if (const AudioFrame* audio = frame.audio()) {
            const AudioBuffer& buffer = audio->audioBuffer();
            const std::vector<std::uint8_t> bytes = bytesOf(buffer);
            sound.write(reinterpret_cast<const char*>(bytes.data()),
                        static_cast<std::streamsize>(bytes.size()));
            std::cout << audio->timestamp().value << ' ' << buffer.numberOfSamples() << ' '
                      << buffer.sampleRate() << ' ' << buffer.numberOfChannels() << ' '
                      << av_get_sample_fmt_name(buffer.sampleFormat()) << ' ' << (hash ? md5(bytes) : "-")
                      << '\n';
        }
    }
    const ClipCounters counters = reader.counters();
    std::cout << "counters " << counters.repairedTimes << ' ' << counters.droppedFrames << ' '
              << counters.damagedPackets << '\n';
    return 0;
} catch (const std::exception& error) {
    std::cout << "error " << error.what() << '\n';
    return 1;
}
