// The overhead of FormatContext over FFmpeg itself: reading with decoding, and only reading.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <stdexcept>

#include <vidorra/vidorra.h>

#include "support/decoding.h"
#include "support/measure.h"
#include "support/media.h"
#include "support/process.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace {

using vidorra::bench::atLeast;
using vidorra::bench::atMost;
using vidorra::bench::Comparison;
using vidorra::bench::decodeByPlainLoop;
using vidorra::bench::h264File;
using vidorra::bench::kAnalyzeDuration;
using vidorra::bench::PlainSource;
using vidorra::bench::Stopwatch;

// The same packets, with Annex B start codes.
std::filesystem::path transportStream(const std::filesystem::path& mp4) {
    return vidorra::test::mediaFile("benchmark.ts", {"-i", mp4.string(), "-c", "copy"});
}

vidorra::FormatContext openSource(const std::string& path) {
    vidorra::FormatContext source;
    source.setUrl(path);
    source.open("", true, kAnalyzeDuration);
    return source;
}

int decodeByFormatContext(const std::string& path, Stopwatch& stopwatch) {
    vidorra::FormatContext source = openSource(path);
    if (!source.getCodecContext(0)) {
        throw std::runtime_error("no decoder");
    }
    int frames = 0;
    stopwatch.start();
    for (vidorra::Packet packet = source.readPacket(); packet.size > 0; packet = source.readPacket()) {
        frames += source.decodeVideoPacket(packet).empty() ? 0 : 1;
    }
    stopwatch.stop();
    return frames;
}

void benchmarkDecoding(const std::string& path, int repetitions) {
    const std::string ours = "FormatContext";
    const std::string plain = "plain libavcodec loop";
    const std::string program = "ffmpeg -threads 1 -f null";
    int plainFrames = 0;
    int ourFrames = 0;

    Comparison comparison("read and decode H.264, one thread");
    comparison.add(plain, [&](Stopwatch& stopwatch) { plainFrames = decodeByPlainLoop(path, stopwatch); });
    comparison.add(ours, [&](Stopwatch& stopwatch) { ourFrames = decodeByFormatContext(path, stopwatch); });
    comparison.add(program, [&](Stopwatch& stopwatch) {
        stopwatch.start();
        vidorra::test::run(
            {"ffmpeg", "-nostdin", "-loglevel", "error", "-threads", "1", "-i", path, "-f", "null", "-"});
        stopwatch.stop();
    });
#ifdef VIDORRA_BENCHMARK_OPENCV
    const std::string openCv = "OpenCV VideoCapture";
    comparison.add(openCv, [&](Stopwatch& stopwatch) { vidorra::bench::decodeByOpenCv(path, stopwatch); });
#endif
    comparison.run(repetitions);
    if (plainFrames == 0 || plainFrames != ourFrames) {
        throw std::runtime_error("the loops decoded " + std::to_string(plainFrames) + " and " +
                                 std::to_string(ourFrames) + " frames");
    }
    comparison.printTable();
    std::printf("  %-44s %10d\n", "frames", ourFrames);
    // 0.98 of the frames per second.
    comparison.reportRatio(ours, plain, atMost(1.02));
    comparison.reportRatio(ours, program, atMost(1.0));
#ifdef VIDORRA_BENCHMARK_OPENCV
    comparison.reportTimes(ours, openCv, atLeast(1.25));
#endif
}

// Reads a whole file often enough to measure the time; opening it does not count.
struct Reading {
    std::string path;
    int passes;

    long byAvReadFrame(Stopwatch& stopwatch) const {
        long packets = 0;
        AVPacket* packet = av_packet_alloc();
        for (int i = 0; i < passes; ++i) {
            const PlainSource source(path);
            stopwatch.start();
            while (av_read_frame(source.context(), packet) >= 0) {
                ++packets;
                av_packet_unref(packet);
            }
            stopwatch.stop();
        }
        av_packet_free(&packet);
        return packets;
    }

    long byReadPacket(Stopwatch& stopwatch) const {
        long packets = 0;
        for (int i = 0; i < passes; ++i) {
            vidorra::FormatContext source = openSource(path);
            stopwatch.start();
            for (vidorra::Packet packet = source.readPacket(); packet.size > 0;
                 packet = source.readPacket()) {
                ++packets;
            }
            stopwatch.stop();
        }
        return packets;
    }
};

void benchmarkReading(const std::string& container, const std::filesystem::path& path, int repetitions,
                      int passes) {
    const std::string ours = "readPacket";
    const std::string plain = "av_read_frame";
    const Reading reading{path.string(), passes};
    long plainPackets = 0;
    long ourPackets = 0;

    Comparison comparison("read H.264 from " + container);
    comparison.add(plain, [&](Stopwatch& stopwatch) { plainPackets = reading.byAvReadFrame(stopwatch); });
    comparison.add(ours, [&](Stopwatch& stopwatch) { ourPackets = reading.byReadPacket(stopwatch); });
    comparison.run(repetitions);
    if (plainPackets == 0 || plainPackets != ourPackets) {
        throw std::runtime_error("the loops read " + std::to_string(plainPackets) + " and " +
                                 std::to_string(ourPackets) + " packets");
    }
    comparison.printTable();
    std::printf("  %-44s %10ld of %ld bytes\n", "packets", ourPackets,
                static_cast<long>(std::filesystem::file_size(path)) * passes / ourPackets);
    comparison.reportRatio(ours, plain, atMost(1.5));
}

}  // namespace

int main(int argc, char** argv) try {
    const vidorra::bench::Options options = vidorra::bench::parseOptions(argc, argv);
    const std::filesystem::path mp4 = h264File(options.shortRun);
    const std::filesystem::path ts = transportStream(mp4);
    benchmarkDecoding(mp4.string(), options.repetitions);
    const int passes = options.shortRun ? 1 : 20;
    benchmarkReading("MP4", mp4, options.repetitions, passes);
    benchmarkReading("MPEG-TS", ts, options.repetitions, passes);
} catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
}
