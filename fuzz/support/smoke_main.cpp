// Runs a fuzz target without libFuzzer: over its seeds, or over the given files. With "--write-seeds FOLDER"
// it writes the seeds as files instead.
#include <filesystem>
#include <fstream>
#include <iostream>

#include "support/media.h"
#include "support/target.h"

namespace {

void run(const std::string& input) {
    // A copy of the exact size, so that a read past the end is detected.
    const std::vector<std::uint8_t> bytes(input.begin(), input.end());
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
}

void writeSeeds(const std::filesystem::path& folder) {
    std::filesystem::create_directories(folder);
    int number = 0;
    for (const std::string& seed : vidorra::fuzz::seeds()) {
        std::ofstream stream(folder / ("seed-" + std::to_string(number++)), std::ios::binary);
        stream << seed;
        stream.close();
        if (!stream) {
            throw std::runtime_error("cannot write to " + folder.string());
        }
    }
}

}  // namespace

int main(int argc, char** argv) try {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    if (arguments.size() == 2 && arguments[0] == "--write-seeds") {
        writeSeeds(arguments[1]);
        return 0;
    }
    for (const std::string& file : arguments) {
        run(vidorra::test::fileContent(file));
    }
    if (arguments.empty()) {
        run({});
        for (const std::string& seed : vidorra::fuzz::seeds()) {
            run(seed);
        }
    }
} catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return 1;
}
