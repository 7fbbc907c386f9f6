// The overhead of the readers over FFmpeg itself, that of the reader thread over the reader, and how long
// callers wait for an answer while the thread decodes.
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

void readLoops(const std::string& path, int frames, Stopwatch& stopwatch) {
    stopwatch.start();
    MediaFileReader reader(path, Mode::Loop, nullptr);
    reader.open();
    for (int i = 0; i < frames; ++i) {
        static_cast<void>(reader.read());
    }
    stopwatch.stop();
}

// Takes every frame from the thread as soon as it is available.
void readLoopsAsync(const std::string& path, int frames, Stopwatch& stopwatch) {
    stopwatch.start();
    MediaFileReaderAsync reader(path, Mode::Loop, std::nullopt, 0, nullptr);
    Timestamp last;
    Timestamp time({}, 0);
    for (int i = 0; i < frames;) {
        const VideoFrame frame = reader.getVideoFrame(time, std::chrono::milliseconds(100));
        if (frame.empty() || (!last.isNull && frame.timestamp() <= last)) {
            // The thread is not there yet, or the next frame is further away than usual, as at the start of
            // a loop. The pause takes as long as decoding half a frame, so that requests cost next to
            // nothing.
            std::this_thread::sleep_for(std::chrono::milliseconds(4));
            time = frame.empty() ? time : time + Timestamp({}, 1000);
            continue;
        }
        last = frame.timestamp();
        time = std::max(time + Timestamp({}, 1), last + Timestamp({1, 30}, 1));
        ++i;
    }
    stopwatch.stop();
}

void benchmarkReaders(const std::string& path, int repetitions) {
    // Long enough that filling the queue with the decoder's first pictures does not matter.
    constexpr int kLoops = 6;
    const std::string plain = "plain libavcodec loop";
    const std::string sync = "MediaFileReader";
    const std::string loops = "MediaFileReader, six loops";
    const std::string async = "MediaFileReaderAsync, six loops";
    int frames = 0;
    int plainFrames = 0;
    // Opening the file counts, with six loops.
    Comparison comparison("read a file of H.264, one decoder thread");
    comparison.add(plain,
                   [&](Stopwatch& stopwatch) { plainFrames = bench::decodeByPlainLoop(path, stopwatch); });
    comparison.add(sync, [&](Stopwatch& stopwatch) { frames = readAll(path, stopwatch); });
    Stopwatch unused;
    const int looped = kLoops * readAll(path, unused);
    comparison.add(loops, [&](Stopwatch& stopwatch) { readLoops(path, looped, stopwatch); });
    comparison.add(async, [&](Stopwatch& stopwatch) { readLoopsAsync(path, looped, stopwatch); });
#ifdef VIDORRA_BENCHMARK_OPENCV
    const std::string openCv = "OpenCV VideoCapture";
    comparison.add(openCv, [&](Stopwatch& stopwatch) { bench::decodeByOpenCv(path, stopwatch); });
#endif
    comparison.run(repetitions);
    if (frames == 0 || frames != plainFrames) {
        throw std::runtime_error("the loops decoded different numbers of frames");
    }
    comparison.printTable();
    // 0.98 and 0.97 of the frames per second.
    comparison.reportRatio(sync, plain, bench::atMost(1.02));
    comparison.reportRatio(async, loops, bench::atMost(1.03), Comparison::Column::Wall);
#ifdef VIDORRA_BENCHMARK_OPENCV
    comparison.reportTimes(sync, openCv, bench::atLeast(1.25));
#endif
}

// The cost of one frame through a queue, including waking the other thread.
void benchmarkQueue(bool shortRun) {
    const int frames = shortRun ? 1000 : 200000;
    constexpr unsigned long kMono = 4;
    AudioBuffer samples(kMono, AV_SAMPLE_FMT_U8);
    samples.setSampleRate(1000000);
    samples.resize(10);
    AudioFrameQueue queue(100);
    Stopwatch stopwatch;
    stopwatch.start();
    std::thread pusher([&] {
        for (int i = 0; i < frames; ++i) {
            static_cast<void>(queue.push(AudioFrame(samples, {{}, i * 10}), std::chrono::seconds(10)));
        }
    });
    int served = 0;
    for (int i = 0; i < frames; ++i) {
        served += queue.pop({{}, i * 10}, std::chrono::seconds(10)).empty() ? 0 : 1;
    }
    pusher.join();
    stopwatch.stop();
    if (served != frames) {
        throw std::runtime_error("frames were lost in the queue");
    }
    bench::report({"queue between two threads", "CPU of a frame", stopwatch.total().cpu * 1e6 / frames, "us",
                   bench::atMost(5)});
}

struct Latencies {
    std::vector<double> microseconds;

    void report(const std::string& title) {
        std::sort(microseconds.begin(), microseconds.end());
        const auto at = [this](double share) {
            return microseconds[static_cast<std::size_t>(share *
                                                         static_cast<double>(microseconds.size() - 1))];
        };
        bench::report({title, "median", at(0.5), "us"});
        bench::report({title, "99 % take at most", at(0.99), "us", bench::atMost(50)});
        bench::report({title, "maximum", at(1), "us"});
    }
};

// While a reader decodes, four callers, two for each kind, request frames at the pace of a clock.
void benchmarkLatency(const std::string& path, std::chrono::milliseconds duration) {
    MediaFileReaderAsync reader(path, Mode::Loop, 0, 0, nullptr);
    while (reader.getVideoFrame({{}, 0}, microseconds(0)).empty()) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    const auto start = steady_clock::now();
    // The callers of a kind share its clock: their times are distinct and rise.
    struct Clock {
        std::mutex mutex;
        std::int64_t last = 0;
    };
    Clock clocks[2];
    std::vector<Latencies> results(4);
    std::vector<std::thread> callers;
    for (std::size_t i = 0; i < results.size(); ++i) {
        callers.emplace_back([&, i] {
            const bool video = i % 2 == 0;
            std::vector<double>& latencies = results[i].microseconds;
            for (int tick = 0; steady_clock::now() - start < duration; ++tick) {
                std::this_thread::sleep_until(start + tick * std::chrono::milliseconds(5));
                Clock& clock = clocks[video ? 0 : 1];
                const std::lock_guard lock(clock.mutex);
                const auto begin = steady_clock::now();
                const std::int64_t time =
                    std::max(std::chrono::duration_cast<microseconds>(begin - start).count(), clock.last + 1);
                clock.last = time;
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
    video.report("getVideoFrame while it decodes, 4 callers");
    audio.report("getAudioFrame while it decodes, 4 callers");
}

}  // namespace

int main(int argc, char** argv) try {
    const bench::Options options = bench::parseOptions(argc, argv);
    // A reader that is destroyed while its thread waits for room logs a lost frame, which is expected here.
    logger::setLevel(logger::Level::Error);
    const std::string path = bench::h264File(options.shortRun).string();
    benchmarkReaders(path, options.repetitions);
    benchmarkQueue(options.shortRun);
    benchmarkLatency(bench::h264FileWithAudio(options.shortRun).string(),
                     std::chrono::milliseconds(options.shortRun ? 100 : 20000));
} catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
}
