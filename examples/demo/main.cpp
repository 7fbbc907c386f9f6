// A tour of the library: what it makes of a media file.
#include <iostream>

#include <vidorra/vidorra.h>

#include "decode_file.h"
#include "options.h"

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
        demo::decodeFile(options, std::cout);
        return 0;
    } catch (const std::exception& error) {
        std::cout << std::flush;
        std::cerr << "demo: " << error.what() << '\n';
        return 1;
    }
}
