// For the thread sanitizer.
//   reader_soak SECONDS      readers that come and go at random while callers ask them for frames
//   reader_soak --destroy N  N readers that go at each of four moments
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <vidorra/vidorra.h>

#include "clips.h"
#include "frames.h"

namespace {

using namespace vidorra;
using std::chrono::microseconds;
using std::chrono::steady_clock;

// One reader with several callers; returns how many frames they got.
long oneReader(const std::string& path, std::mt19937& random) {
    const auto life = microseconds(random() % 60000);
    MediaFileReaderAsync reader(path, MediaFileReader::PlaybackMode::Loop, 0, 0, nullptr);
    const auto end = steady_clock::now() + life;
    std::atomic<std::int64_t> clock{0};
    std::atomic<long> frames{0};
    std::vector<std::thread> callers;
    for (int i = 0; i < 4; ++i) {
        const bool slow = i == 3;
        callers.emplace_back([&, i, slow] {
            while (steady_clock::now() < end) {
                const Timestamp time = test::at(clock += 1000);
                try {
                    const bool got = i % 2 == 0 ? !reader.getVideoFrame(time, microseconds(500)).empty()
                                                : !reader.getAudioFrame(time, microseconds(500)).empty();
                    frames += got ? 1 : 0;
                } catch (const std::logic_error&) {
                    // Another caller has asked for a later time meanwhile.
                }
                if (slow) {
                    std::this_thread::sleep_for(std::chrono::milliseconds(5));
                }
            }
        });
    }
    for (std::thread& caller : callers) {
        caller.join();
    }
    return frames;
}

// Readers that are destroyed right after construction, before they are ready, while they decode, and while
// their thread waits for room.
void destroyAtEachMoment(long times) {
    const std::string path = test::audioAndVideo();
    for (long i = 0; i < times; ++i) {
        const MediaFileReaderAsync gone(path, MediaFileReader::PlaybackMode::Loop, 0, 0, nullptr);
    }
    for (long i = 0; i < times; ++i) {
        const MediaFileReaderAsync reader(path, MediaFileReader::PlaybackMode::Loop, 0, 0, nullptr);
        std::this_thread::sleep_for(microseconds(i % 1000));
    }
    for (long i = 0; i < times; ++i) {
        MediaFileReaderAsync reader(path, MediaFileReader::PlaybackMode::Loop, 0, 0, nullptr);
        while (reader.getVideoFrame(test::at(1), microseconds(0)).empty()) {
            std::this_thread::sleep_for(microseconds(100));
        }
    }
    for (long i = 0; i < times; ++i) {
        const MediaFileReaderAsync reader(path, MediaFileReader::PlaybackMode::Loop, 0, 0, nullptr);
        // Enough for one of the queues to fill.
        std::this_thread::sleep_for(std::chrono::milliseconds(150));
    }
    std::cout << times << " readers destroyed at each of four moments\n";
}

}  // namespace

int main(int argc, char** argv) {
    // Queues overflow here by design, which need not be logged each time.
    logger::setLevel(logger::Level::Error);
    if (argc > 2 && std::string(argv[1]) == "--destroy") {
        destroyAtEachMoment(std::atol(argv[2]));
        return 0;
    }
    const auto seconds = std::chrono::seconds(argc > 1 ? std::atoi(argv[1]) : 20);
    const std::vector<std::string> paths = {vidorra::test::audioAndVideo(), vidorra::test::fourTracks()};
    const auto end = steady_clock::now() + seconds;
    std::mt19937 random(11);
    long readers = 0;
    long frames = 0;
    while (steady_clock::now() < end) {
        frames += oneReader(paths[random() % paths.size()], random);
        ++readers;
    }
    std::cout << readers << " readers, " << frames << " frames\n";
    return frames > 0 ? 0 : 1;
}
