// Readers that come and go at random while callers ask them for frames, for so many seconds. For the thread
// sanitizer.
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <mutex>
#include <random>
#include <thread>
#include <vector>

#include <vidorra/vidorra.h>

#include "clips.h"
#include "frames.h"

namespace {

using namespace vidorra;
using std::chrono::microseconds;
using std::chrono::steady_clock;

// One reader with several callers; gives how many frames they got.
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

}  // namespace

int main(int argc, char** argv) {
    // Queues run over here by design, which need not be told each time.
    logger::setLevel(logger::Level::Error);
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
