// The size of the process after 10 and after 500 loops of a short file differs by less than 1 MiB.
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iostream>

#include <vidorra/vidorra.h>

#include "clips.h"

namespace {

long residentKiB() {
    long size = 0;
    long resident = 0;
    std::ifstream("/proc/self/statm") >> size >> resident;
    return resident * sysconf(_SC_PAGESIZE) / 1024;
}

}  // namespace

int main() {
    using namespace vidorra;
    MediaFileReader reader(test::fourTracks(), MediaFileReader::PlaybackMode::Loop,
                           std::make_shared<vx::vdr::utils::WarningsStoreAsync>());
    reader.open();
    constexpr int kFramesPerLoop = 10;
    long after10 = 0;
    for (int loop = 0; loop < 500; ++loop) {
        for (int video = 0; video < kFramesPerLoop;) {
            const auto frame = reader.read();
            if (frame.index() == 0) {
                std::cerr << "the loop ended\n";
                return 1;
            }
            video += std::holds_alternative<VideoFrame>(frame) ? 1 : 0;
        }
        if (loop == 9) {
            after10 = residentKiB();
        }
    }
    const long after500 = residentKiB();
    std::cout << after10 << " KiB after 10 loops, " << after500 << " KiB after 500\n";
    return std::labs(after500 - after10) < 1024 ? 0 : 1;
}
