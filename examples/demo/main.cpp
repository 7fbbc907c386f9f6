// A tour of the library: it decodes a media file, plays it, and records what it plays.
#include <iostream>
#include <optional>

#include <vidorra/vidorra.h>

#include "contact_sheet.h"
#include "decode_file.h"
#include "options.h"
#include "play_file.h"
#include "recorder.h"

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
        if (!facts.hasVideo) {
            return 0;
        }
        std::optional<demo::Recorder> recorder;
        if (!options.output.empty()) {
            recorder.emplace(options, facts.hasAudio);
        }
        demo::playFile(options, facts, recorder ? &*recorder : nullptr, std::cout);
        if (recorder) {
            recorder->finish();
            recorder->summarise(std::cout);
        }
        if (!options.sheet.empty()) {
            demo::writeContactSheet(options.output, recorder->frames(), options.sheet);
            std::cout << "pictures of it: " << options.sheet << '\n';
        }
        return 0;
    } catch (const std::exception& error) {
        std::cout << std::flush;
        std::cerr << "demo: " << error.what() << '\n';
        return 1;
    }
}
