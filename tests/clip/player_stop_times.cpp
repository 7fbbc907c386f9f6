// How long stop() and the destructor of a player take, at random moments and with sources that misbehave:
//     player_stop_times ROUNDS
// prints for each source and operation the count of times, the middle, the 99.9 % point and the longest, and
// the share within 10 ms. Fails where one takes more than a second.

#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "live_server.h"
#include "support/media.h"
#include "vidorra/clip/clip_player.h"

namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;
using vidorra::ClipPlayer;
using vidorra::test::LiveServer;

bool report(const char* source, const char* operation, std::vector<double> times) {
    std::sort(times.begin(), times.end());
    const auto at = [&times](double share) {
        return times[std::min(times.size() - 1,
                              static_cast<std::size_t>(share * static_cast<double>(times.size())))];
    };
    const auto within = std::upper_bound(times.begin(), times.end(), 10.0) - times.begin();
    std::printf(
        "%-10s %-10s %6zu times: middle %7.3f ms, 99.9 %% %7.3f ms, longest %7.3f ms, within 10 ms %6.2f "
        "%%\n",
        source, operation, times.size(), at(0.5), at(0.999), times.back(),
        100.0 * static_cast<double>(within) / static_cast<double>(times.size()));
    return times.back() < 1000.0;
}

template <class Operation>
double millisecondsOf(const Operation& operation) {
    const auto start = steady_clock::now();
    operation();
    return std::chrono::duration<double, std::milli>(steady_clock::now() - start).count();
}

bool measure(const char* name, const std::string& url, int rounds) {
    std::minstd_rand random;
    std::vector<double> stops;
    std::vector<double> ends;
    std::vector<double> direct;
    for (int round = 0; round < rounds; ++round) {
        auto player = std::make_unique<ClipPlayer>(url);
        // The random moment: until here nothing depends on it.
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 60000));
        if (round % 2 == 0) {
            stops.push_back(millisecondsOf([&player] { player->stop(); }));
            ends.push_back(millisecondsOf([&player] { player.reset(); }));
        } else {
            direct.push_back(millisecondsOf([&player] { player.reset(); }));
        }
    }
    const bool stop = report(name, "stop", stops);
    const bool end = report(name, "after stop", ends);
    return report(name, "destructor", direct) && stop && end;
}

}  // namespace

int main(int argc, char** argv) {
    const int rounds = argc > 1 ? 2 * std::max(1, std::atoi(argv[1])) : 0;
    if (rounds == 0) {
        std::fprintf(stderr, "player_stop_times ROUNDS\n");
        return 2;
    }
    const std::string stream = vidorra::test::fileContent(vidorra::test::mediaFile(
        "stream.ts", {"-f", "lavfi", "-i", "testsrc2=s=64x48:r=25:d=2", "-c:v", "mpeg2video", "-b:v", "1M"}));
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    // The library tells of each failure.
    std::freopen("/dev/null", "w", stderr);
    bool good = true;
    const std::vector<std::pair<const char*, LiveServer::Manner>> servers = {
        {"stall", LiveServer::Manner::Stall},
        {"trickle", LiveServer::Manner::Trickle},
        {"cut", LiveServer::Manner::Cut},
        {"garbage", LiveServer::Manner::Garbage}};
    for (const auto& [name, manner] : servers) {
        const LiveServer server(manner, stream);
        good = measure(name, server.url(), rounds) && good;
    }
    const std::string fifo = vidorra::test::temporaryFolder() / "idle.fifo";
    good = mkfifo(fifo.c_str(), 0600) == 0 && measure("fifo", fifo, rounds) && good;
    std::printf("threads left to end by themselves: %zu\n", ClipPlayer::unfinishedThreads());
    return good ? 0 : 1;
}
