// A whole media file: opened, read, decoded, and its pictures handled as a player would.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <vidorra/vidorra.h>

#include "support/media.h"
#include "support/silence.h"
#include "support/target.h"

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/pixdesc.h>
}

namespace {

using vidorra::fuzz::expect;

constexpr int kPackets = 50;
// Larger pictures are decoded but not copied: that takes time and finds nothing.
constexpr std::int64_t kPixels = 1 << 22;

// A file that is in no folder.
class MemoryFile {
public:
    MemoryFile(const std::uint8_t* data, std::size_t size) : mDescriptor(memfd_create("input", MFD_CLOEXEC)) {
        while (size > 0) {
            const ssize_t written = write(mDescriptor, data, size);
            if (written <= 0) {
                throw std::runtime_error("cannot write to a file in memory");
            }
            data += written;
            size -= static_cast<std::size_t>(written);
        }
    }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;
    ~MemoryFile() { close(mDescriptor); }

    [[nodiscard]] std::string path() const { return "/proc/self/fd/" + std::to_string(mDescriptor); }

private:
    int mDescriptor;
};

void handle(const vidorra::VideoFrame& frame) {
    const vidorra::Picture& picture = frame.picture();
    const vidorra::Size size = picture.frameSize();
    expect(size.width > 0 && size.height > 0, "a frame has a size");
    expect(av_color_range_name(picture.colorRange()) != nullptr, "a frame has a colour range with a name");
    expect(frame.debugDescription().find("video frame ") == 0, "a frame has a text");

    const vidorra::Picture view =
        picture.crop({size.width / 4, size.height / 4, size.width / 2, size.height});
    expect(!view.empty() && view.frameSize().width <= size.width, "a view lies in its picture");
    if (std::int64_t{size.width} * size.height > kPixels) {
        return;
    }
    vidorra::Picture copy = picture;
    copy.makeEditable();
    expect(copy.editable(), "a picture is editable when it was made so");
    copy.copyFrom(picture);
}

void play(const std::string& path) {
    vidorra::FormatContext source;
    source.setUrl(path);
    source.open("", true, std::chrono::milliseconds(100));
    for (int i = 0; i < kPackets; ++i) {
        const vidorra::Packet packet = source.readPacket();
        if (packet.size <= 0) {
            break;
        }
        expect(static_cast<unsigned>(packet.stream_index) < source.tracksNumber(), "a packet has a stream");
        const AVStream* stream = source.trackAtIndex(static_cast<unsigned>(packet.stream_index));
        if (stream->codecpar->codec_type != AVMEDIA_TYPE_VIDEO) {
            continue;
        }
        const vidorra::VideoFrame frame = source.decodeVideoPacket(packet);
        if (!frame.empty()) {
            handle(frame);
        }
    }
}

}  // namespace

std::vector<std::string> vidorra::fuzz::seeds() {
    struct Row {
        const char* name;
        std::vector<std::string> arguments;
    };
    const std::string picture = "testsrc2=size=64x48:rate=25:duration=0.4";
    const std::string sound = "sine=duration=0.2";
    const std::vector<std::string> both = {"-f", "lavfi", "-i", picture, "-f", "lavfi", "-i", sound};
    const std::vector<Row> rows = {
        {"seed.mp4", {"-c:v", "libx264", "-pix_fmt", "yuv420p", "-c:a", "aac", "-b:a", "32k"}},
        {"seed.ts", {"-c:v", "libx264", "-pix_fmt", "yuv420p", "-c:a", "mp2"}},
        {"seed.mkv", {"-c:v", "ffv1", "-pix_fmt", "yuva420p", "-c:a", "flac", "-frames:v", "2"}},
        {"seed.avi", {"-c:v", "mpeg4", "-bf", "1", "-c:a", "pcm_u8", "-ar", "8000"}},
        {"seed.mov", {"-c:v", "mjpeg", "-pix_fmt", "yuvj422p", "-an", "-frames:v", "3"}},
        {"seed.mpg", {"-c:v", "mpeg2video", "-c:a", "mp2"}},
        {"seed.h264", {"-c:v", "libx264", "-an"}},
        {"seed.gif", {"-an", "-frames:v", "2"}},
        {"seed.png", {"-an", "-frames:v", "1", "-pix_fmt", "rgba"}},
        {"seed.bmp", {"-an", "-frames:v", "1", "-s", "16x16"}},
        {"seed.y4m", {"-an", "-frames:v", "1"}},
        {"seed.wav", {"-vn", "-ar", "8000"}},
    };
    std::vector<std::string> result;
    for (const Row& row : rows) {
        std::vector<std::string> arguments = both;
        arguments.insert(arguments.end(), row.arguments.begin(), row.arguments.end());
        arguments.insert(arguments.end(), {"-fflags", "+bitexact", "-flags", "+bitexact"});
        result.push_back(vidorra::test::fileContent(vidorra::test::mediaFile(row.name, arguments)));
    }
    return result;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    vidorra::fuzz::silence();
    const MemoryFile file(data, size);
    try {
        play(file.path());
    } catch (const std::runtime_error&) {
        // Not a file that FFmpeg can read.
    }
    return 0;
}
