// What the readers cost above FFmpeg itself, what the reader thread costs above the reader, and how long its
// callers wait for an answer while it decodes.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <stdexcept>
#include <thread>
#include <vector>

#include <vidorra/vidorra.h>

#include "support/decoding.h"
#include "support/measure.h"

namespace {

using namespace vidorra;
using bench::Comparison;
using bench::Stopwatch;
using std::chrono::microseconds;
using std::chrono::steady_clock;
using Mode = MediaFileReader::PlaybackMode;

int readAll(const std::string& path, Stopwatch& stopwatch) {
    MediaFileReader reader(path, Mode::Once, nullptr);
    reader.open();
    int frames = 0;
    stopwatch.start();
    while (reader.read().index() != 0) {
        ++frames;
    }
    stopwatch.stop();
    return frames;
}

// Takes every frame from the thread, each as soon as it is there: frame n of a file of 30 frames a second
// answers the time n / 30, as long as the thread has come that far. Gives how many different frames were
// served.
int readAllAsync(const std::string& path, int expected, Stopwatch& stopwatch) {
    stopwatch.start();
    MediaFileReaderAsync reader(path, Mode::Once, std::nullopt, 0, nullptr);
    int frames = 0;
    Timestamp last;
    std::int64_t retry = 0;
    while (frames < expected) {
        const Timestamp time({}, std::int64_t{frames} * 1000000 / 30 + retry);
        const VideoFrame frame = reader.getVideoFrame(time, std::chrono::milliseconds(100));
        if (frame.empty() || (!last.isNull && frame.timestamp() <= last)) {
            // Not there yet. No time may be asked for twice.
            retry += frame.empty() ? 0 : 1;
            std::this_thread::sleep_for(microseconds(100));
            continue;
        }
        last = frame.timestamp();
        retry = 0;
        ++frames;
    }
    stopwatch.stop();
    return frames;
}

void benchmarkReaders(const std::string& path, int repetitions) {
    const std::string plain = "plain libavcodec loop";
    const std::string sync = "MediaFileReader";
    const std::string async = "MediaFileReaderAsync";
    int frames = 0;
    int plainFrames = 0;
    Comparison comparison("read a file of H.264 frame by frame, one decoder thread");
    comparison.add(plain,
                   [&](Stopwatch& stopwatch) { plainFrames = bench::decodeByPlainLoop(path, stopwatch); });
    comparison.add(sync, [&](Stopwatch& stopwatch) { frames = readAll(path, stopwatch); });
    comparison.add(async, [&](Stopwatch& stopwatch) {
        Stopwatch unused;
        const int all = frames > 0 ? frames : readAll(path, unused);
        readAllAsync(path, all, stopwatch);
    });
#ifdef VIDORRA_BENCHMARK_OPENCV
    const std::string openCv = "OpenCV VideoCapture";
    comparison.add(openCv, [&](Stopwatch& stopwatch) { bench::decodeByOpenCv(path, stopwatch); });
#endif
    comparison.run(repetitions);
    if (frames == 0 || frames != plainFrames) {
        throw std::runtime_error("the loops decoded different numbers of frames");
    }
    comparison.printTable();
    comparison.printRatio(sync, plain, 1.02);
    comparison.printRatio(async, sync, 1.03);
#ifdef VIDORRA_BENCHMARK_OPENCV
    comparison.printRatio(sync, openCv, 0.8);
#endif
    std::printf("  %-44s %10.1f us of CPU a frame (aim at most 5)\n",
                "the thread and its queue above the reader",
                (comparison.cpu(async) - comparison.cpu(sync)) * 1e6 / frames);
}

struct Latencies {
    std::vector<double> microseconds;

    void print(const char* name) {
        std::sort(microseconds.begin(), microseconds.end());
        const auto at = [this](double share) {
            return microseconds[static_cast<std::size_t>(share *
                                                         static_cast<double>(microseconds.size() - 1))];
        };
        std::printf(
            "  %-16s %8zu requests, median %7.2f us, 99 %% %7.2f us, maximum %9.2f us (aim: 99 %% below "
            "50)\n",
            name, microseconds.size(), at(0.5), at(0.99), at(1));
    }
};

// Four callers ask a reader that decodes for frames, two for each kind, at the pace of a clock.
void benchmarkLatency(const std::string& path, std::chrono::milliseconds duration) {
    MediaFileReaderAsync reader(path, Mode::Loop, 0, 0, nullptr);
    while (reader.getVideoFrame({{}, 0}, microseconds(0)).empty()) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    const auto start = steady_clock::now();
    // The callers of a kind share its clock: their times are distinct and rise.
    std::mutex clocks[2];
    std::vector<Latencies> results(4);
    std::vector<std::thread> callers;
    for (std::size_t i = 0; i < results.size(); ++i) {
        callers.emplace_back([&, i] {
            const bool video = i % 2 == 0;
            std::vector<double>& latencies = results[i].microseconds;
            for (int tick = 0; steady_clock::now() - start < duration; ++tick) {
                std::this_thread::sleep_until(start + tick * std::chrono::milliseconds(5));
                const std::lock_guard lock(clocks[video ? 0 : 1]);
                const auto begin = steady_clock::now();
                const std::int64_t time = std::chrono::duration_cast<microseconds>(begin - start).count() + 1;
                if (video) {
                    static_cast<void>(reader.getVideoFrame({{}, time}, microseconds(0)));
                } else {
                    static_cast<void>(reader.getAudioFrame({{}, time}, microseconds(0)));
                }
                const std::chrono::duration<double, std::micro> elapsed = steady_clock::now() - begin;
                latencies.push_back(elapsed.count());
            }
        });
    }
    for (std::thread& caller : callers) {
        caller.join();
    }
    Latencies video = results[0];
    video.microseconds.insert(video.microseconds.end(), results[2].microseconds.begin(),
                              results[2].microseconds.end());
    Latencies audio = results[1];
    audio.microseconds.insert(audio.microseconds.end(), results[3].microseconds.begin(),
                              results[3].microseconds.end());
    std::printf("answers of a reader that decodes, four callers\n");
    video.print("getVideoFrame");
    audio.print("getAudioFrame");
}

}  // namespace

int main(int argc, char** argv) try {
    const bench::Options options = bench::parseOptions(argc, argv);
    const std::string path = bench::h264File(options.shortRun).string();
    benchmarkReaders(path, options.repetitions);
    benchmarkLatency(bench::h264FileWithAudio(options.shortRun).string(),
                     std::chrono::milliseconds(options.shortRun ? 100 : 20000));
} catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
}
