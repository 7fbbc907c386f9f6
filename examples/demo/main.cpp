// A tour of the library: what it makes of a media file, and how it plays one.
#include <iostream>

#include <vidorra/vidorra.h>

#include "decode_file.h"
#include "options.h"
#include "play_file.h"

int main(int argc, char** argv) {
    demo::Options options;
    try {
        options = demo::parseOptions(argc, argv);
    } catch (const std::invalid_argument& error) {
        std::cerr << "demo: " << error.what() << "\n\n" << demo::kUsage;
        return 2;
    }
    if (options.help) {
        std::cout << demo::kUsage;
        return 0;
    }
    try {
        ffmpeg_enable_logging();
        const demo::FileFacts facts = demo::decodeFile(options, std::cout);
        if (facts.hasVideo) {
            demo::playFile(options, facts, std::cout);
        }
        return 0;
    } catch (const std::exception& error) {
        std::cout << std::flush;
        std::cerr << "demo: " << error.what() << '\n';
        return 1;
    }
}
