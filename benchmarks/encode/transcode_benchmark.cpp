// A whole transcoding: H.264 is decoded, a half-transparent picture of the same size is composed on it, and
// libx264 encodes the result as fast as it can. The competitor is the ffmpeg program with the same settings.
// Decoder, filters and encoder have one thread each, and everything stays on one CPU. The packets are not
// written. The ffmpeg program reads its overlay once from a file of raw pixels. Its start counts, and so
// does opening file and encoder for both.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <vidorra/vidorra.h>

#include "objstream/object.h"
#include "support/decoding.h"
#include "support/measure.h"
#include "support/media.h"
#include "support/memory.h"
#include "support/process.h"

extern "C" {
#include <libavutil/log.h>
}

namespace {

using namespace vidorra;
using bench::Comparison;
using bench::Stopwatch;
using Column = Comparison::Column;

struct Encoded {
    int pictures = 0;
    std::size_t bytes = 0;
};

// Colours and alpha that rise slowly from one corner to the other.
Picture makeOverlay(Size size) {
    Picture picture(size, NVA12, AVCOL_RANGE_MPEG, 64);
    for (int y = 0; y < size.height; ++y) {
        for (int x = 0; x < size.width; ++x) {
            const int place = 100 * x / size.width + 90 * y / size.height;
            picture.data()[0][y * picture.linesize()[0] + x] = static_cast<std::uint8_t>(30 + place);
            picture.data()[3][y * picture.linesize()[3] + x] = static_cast<std::uint8_t>(60 + place / 2);
            if (y % 2 == 0) {
                picture.data()[1][y / 2 * picture.linesize()[1] + x] =
                    static_cast<std::uint8_t>(x % 2 == 0 ? 80 + place / 2 : 150 - place / 2);
            }
        }
    }
    return picture;
}

// The pixels of the overlay as the ffmpeg program reads them: YUVA420P, plane after plane.
std::string rawPlanes(const Picture& overlay) {
    const Size size = overlay.frameSize();
    std::string planes[4];
    for (int y = 0; y < size.height; ++y) {
        for (int x = 0; x < size.width; ++x) {
            planes[0] += static_cast<char>(overlay.data()[0][y * overlay.linesize()[0] + x]);
            planes[3] += static_cast<char>(overlay.data()[3][y * overlay.linesize()[3] + x]);
            if (y % 2 == 0) {
                planes[1 + x % 2] += static_cast<char>(overlay.data()[1][y / 2 * overlay.linesize()[1] + x]);
            }
        }
    }
    return planes[0] + planes[1] + planes[2] + planes[3];
}

class Transcoder {
public:
    Transcoder(std::filesystem::path source, Size size)
        : mSource(std::move(source)),
          mSize(size),
          mRegion(bench::makeMemory(kRegionBytes)),
          mAllocator(mRegion.get(), kRegionBytes, 64, 4096, false),
          mOverlay(makeOverlay(size)) {
        mScaler.setPictureAllocator(&mAllocator);
    }

    [[nodiscard]] const Picture& overlay() const { return mOverlay; }

    /// As many pictures as the source has, or less.
    Encoded run(int most) {
        FormatContext source;
        source.setUrl(mSource.string());
        source.open("", true, bench::kAnalyzeDuration);
        if (!source.getCodecContext(0)) {
            throw std::runtime_error("no decoder");
        }
        VideoEncoder encoder(configuration());
        Encoded encoded;
        for (Packet packet = source.readPacket(); packet.size > 0 && encoded.pictures < most;
             packet = source.readPacket()) {
            const VideoFrame frame = source.decodeVideoPacket(packet);
            if (!frame.empty()) {
                encode(encoder, frame);
                ++encoded.pictures;
                receive(encoder, encoded);
            }
        }
        static_cast<void>(encoder.sendEndOfStream());
        receive(encoder, encoded);
        return encoded;
    }

private:
    static constexpr std::size_t kRegionBytes = std::size_t{64} << 20;

    [[nodiscard]] objstream::object configuration() const {
        objstream::object config;
        config["codec"] = "libx264";
        config["width"] = mSize.width;
        config["height"] = mSize.height;
        config["timebase_num"] = 1;
        config["timebase_den"] = 30;
        config["pix_fmt"] = "nv12";
        config["options"]["preset"] = "ultrafast";
        config["options"]["threads"] = 1;
        return config;
    }

    // The decoder gives YUV420P, which compose() does not blend.
    void encode(VideoEncoder& encoder, const VideoFrame& frame) {
        Picture picture =
            mScaler.convertToColorspace(frame.picture(), AV_PIX_FMT_NV12, frame.picture().colorRange());
        compose(picture, mOverlay, {0, 0}, CheckColorRange::No, 1.0, 1);
        if (!encoder.sendFrame(VideoFrame(std::move(picture), frame.timestamp(), frame.flags())).ok) {
            throw std::runtime_error("the encoder takes no frame");
        }
    }

    static void receive(VideoEncoder& encoder, Encoded& encoded) {
        while (const auto packet = encoder.receivePacket()) {
            encoded.bytes += static_cast<std::size_t>(packet->size);
        }
    }

    std::filesystem::path mSource;
    Size mSize;
    bench::Memory mRegion;
    BestFitPictureAllocator mAllocator;
    Picture mOverlay;
    Scaler mScaler;
};

std::vector<std::string> command(const std::filesystem::path& source, const std::filesystem::path& overlay,
                                 Size size, int pictures, const std::vector<std::string>& output) {
    std::vector<std::string> result = {"ffmpeg",
                                       "-nostdin",
                                       "-y",
                                       "-loglevel",
                                       "error",
                                       "-threads",
                                       "1",
                                       "-i",
                                       source.string(),
                                       "-f",
                                       "rawvideo",
                                       "-pixel_format",
                                       "yuva420p",
                                       "-video_size",
                                       fmt::format("{}x{}", size.width, size.height),
                                       "-threads",
                                       "1",
                                       "-i",
                                       overlay.string(),
                                       "-filter_threads",
                                       "1",
                                       "-filter_complex_threads",
                                       "1",
                                       "-filter_complex",
                                       "[0:v][1:v]overlay",
                                       "-c:v",
                                       "libx264",
                                       "-preset",
                                       "ultrafast",
                                       "-threads",
                                       "1",
                                       "-frames:v",
                                       std::to_string(pictures)};
    result.insert(result.end(), output.begin(), output.end());
    return result;
}

void benchmark(const bench::Options& options) {
    const std::string title = "decode, overlay, x264 ultrafast, 1 thread";
    if (!options.wants(title)) {
        return;
    }
    const std::string ours = "libvidorra";
    const std::string program = "ffmpeg";
    const Size size = options.shortRun ? Size{320, 180} : Size{1920, 1080};
    const std::filesystem::path source = bench::h264File(options.shortRun);
    Transcoder transcoder(source, size);
    const std::filesystem::path overlay = test::temporaryFile("overlay.yuv", rawPlanes(transcoder.overlay()));

    // The same work gives about as many bytes. Without the overlay there would be more or fewer.
    const Encoded encoded = transcoder.run(std::numeric_limits<int>::max());
    const std::filesystem::path check = test::temporaryFolder() / "check.h264";
    test::run(command(source, overlay, size, encoded.pictures, {"-f", "h264", check.string()}));
    const double share =
        static_cast<double>(encoded.bytes) / static_cast<double>(std::filesystem::file_size(check));
    if (encoded.pictures == 0 || share < 0.98 || share > 1.02) {
        throw std::runtime_error(
            fmt::format("{} pictures, {:.3f} of the bytes of ffmpeg", encoded.pictures, share));
    }

    Comparison comparison(title);
    const auto onePicture = [](const std::string& name) { return name + ", one picture"; };
    for (const bool all : {true, false}) {
        const int pictures = all ? encoded.pictures : 1;
        comparison.add(all ? ours : onePicture(ours), [&, pictures](Stopwatch& stopwatch) {
            stopwatch.start();
            static_cast<void>(transcoder.run(pictures));
            stopwatch.stop();
        });
        comparison.add(all ? program : onePicture(program), [&, pictures](Stopwatch& stopwatch) {
            stopwatch.start();
            test::run(command(source, overlay, size, pictures, {"-f", "null", "-"}));
            stopwatch.stop();
        });
    }
    comparison.run(options.repetitions);
    comparison.printTable();
    for (const Column column : {Column::Cpu, Column::Wall}) {
        comparison.reportRatio(ours, program, bench::atMost(0.98), column);
        // The rest, without the work that is done only once.
        const auto further = [&](const std::string& name) {
            return comparison.seconds(name, column) - comparison.seconds(onePicture(name), column);
        };
        bench::report({title,
                       fmt::format("{} / {}, after one picture, {}", ours, program,
                                   column == Column::Cpu ? "CPU" : "wall"),
                       further(ours) / further(program), ""});
    }
}

}  // namespace

int main(int argc, char** argv) try {
    const bench::Options options = bench::parseOptions(argc, argv, 7);
    // The encoder logs a long summary.
    av_log_set_level(AV_LOG_ERROR);
    benchmark(options);
} catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
}
