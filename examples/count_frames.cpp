// Counts the pictures and samples of a media file up to its real end, with the MD5 of all their bytes:
//
//     count_frames FILE
//
// The sums equal those of the ffmpeg program when it writes raw video and interleaved samples.
#include <cstdint>
#include <iomanip>
#include <iostream>
#include <new>
#include <vector>

#include <vidorra/vidorra.h>

extern "C" {
#include <libavutil/md5.h>
#include <libavutil/mem.h>
#include <libavutil/samplefmt.h>
}

namespace {

class Md5 {
public:
    Md5() : mState(av_md5_alloc()) {
        if (mState == nullptr) {
            throw std::bad_alloc();
        }
        av_md5_init(mState);
    }
    Md5(const Md5&) = delete;
    Md5& operator=(const Md5&) = delete;
    ~Md5() { av_free(mState); }

    void add(const std::vector<std::uint8_t>& bytes) { av_md5_update(mState, bytes.data(), bytes.size()); }

    void print(std::ostream& stream) {
        std::uint8_t digest[16];
        av_md5_final(mState, digest);
        stream << std::hex << std::setfill('0');
        for (const std::uint8_t byte : digest) {
            stream << std::setw(2) << int{byte};
        }
        stream << std::dec << '\n';
    }

private:
    AVMD5* mState;
};

// The rows of a picture without padding, plane after plane, as a copy with alignment 1 has them.
std::vector<std::uint8_t> bytesOf(const vidorra::Picture& picture) {
    constexpr std::size_t kSpare = 32;  // after the last plane of new memory
    const vidorra::Picture copy(picture.frameSize(), picture.data().data(), picture.linesize().data(),
                                picture.pixelFormat(), picture.colorRange(), 1);
    const std::uint8_t* first = copy.data()[0];
    return {first, first + copy.bytesInBuffer(0).value_or(kSpare) - kSpare};
}

// The samples of all channels in turn.
std::vector<std::uint8_t> bytesOf(const vidorra::AudioBuffer& buffer) {
    const auto planes = buffer.getPointersToPlanes();
    const std::size_t samples = buffer.numberOfSamples();
    // In planes each sample is alone; interleaved, a sample of each channel comes together.
    const auto size = static_cast<std::size_t>(av_get_bytes_per_sample(buffer.sampleFormat())) *
                      static_cast<std::size_t>(buffer.numberOfChannels()) / planes.size();
    std::vector<std::uint8_t> bytes;
    bytes.reserve(samples * size * planes.size());
    for (std::size_t i = 0; i < samples; ++i) {
        for (const auto* plane : planes) {
            bytes.insert(bytes.end(), plane + i * size, plane + (i + 1) * size);
        }
    }
    return bytes;
}

}  // namespace

int main(int argc, char** argv) try {
    vidorra::ClipReader reader(argc > 1 ? argv[1] : "clip.mp4");
    std::uint64_t pictures = 0;
    std::uint64_t samples = 0;
    Md5 video;
    Md5 audio;
    while (const vidorra::ClipFrame frame = reader.read()) {
        if (const vidorra::VideoFrame* picture = frame.video()) {
            ++pictures;
            video.add(bytesOf(picture->picture()));
        } else if (const vidorra::AudioFrame* sound = frame.audio()) {
            samples += sound->audioBuffer().numberOfSamples();
            audio.add(bytesOf(sound->audioBuffer()));
        }
    }
    std::cout << pictures << " pictures ";
    video.print(std::cout);
    std::cout << samples << " samples ";
    audio.print(std::cout);
} catch (const std::exception& error) {
    std::cerr << "count_frames: " << error.what() << '\n';
    return 1;
}
