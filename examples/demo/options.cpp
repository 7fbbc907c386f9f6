#include "options.h"

#include <cstdlib>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace demo {

const char* const kUsage =
    "usage: demo FILE [-v] [--loops N | --seconds N] [--realtime] [--plot OUT.svg]\n"
    "            [-o OUT.mp4 --config ENCODERS.json] [--font F] [--accelerator]\n"
    "            [--sheet OUT.png]\n"
    "\n"
    "Reads a media file, decodes its video, and says what it saw. Then plays the file in a loop by a clock\n"
    "of 30 ticks a second, and says how that went. What it plays it can record: scaled, with a picture laid\n"
    "over it, with timecodes, and with a second in which the signal is lost.\n"
    "\n"
    "  -v           describe each frame\n"
    "  --loops N    play the file N times, 3 if nothing else is said\n"
    "  --seconds N  play for N seconds\n"
    "  --realtime   play at the pace of the real clock, otherwise as fast as possible\n"
    "  --plot OUT   draw the times served over the times asked for\n"
    "  -o OUT       record into this file, whose name chooses the container\n"
    "  --config F   the encoders of the recording, in JSON\n"
    "  --font F     the font of the texts in the recording, without which there are none\n"
    "  --accelerator\n"
    "               scale and compose by the accelerator's road, on files that stand in for its devices\n"
    "  --sheet OUT  write a sheet with pictures of the recording\n"
    "  -h           this text\n"
    "\n"
    "Exits with 0, with 1 when the file cannot be read or decoded, or with 2 for a wrong command line.\n";

namespace {

double positiveNumber(std::string_view option, const char* text) {
    char* end = nullptr;
    const double number = text != nullptr ? std::strtod(text, &end) : 0;
    if (text == nullptr || *end != '\0' || !(number > 0) || number > 1e6) {
        throw std::invalid_argument(std::string(option) + " needs a number above 0");
    }
    return number;
}

// The member for the file name of an option; null for other arguments.
std::string* pathOf(Options& options, std::string_view argument) {
    const std::pair<std::string_view, std::string*> paths[] = {{"--plot", &options.plot},
                                                               {"-o", &options.output},
                                                               {"--config", &options.config},
                                                               {"--font", &options.font},
                                                               {"--sheet", &options.sheet}};
    for (const auto& [name, path] : paths) {
        if (name == argument) {
            return path;
        }
    }
    return nullptr;
}

}  // namespace

Options parseOptions(int argc, char** argv) {
    Options options;
    bool onlyFiles = false;
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i];
        if (!onlyFiles && argument == "--") {
            onlyFiles = true;
        } else if (!onlyFiles && argument == "-v") {
            options.verbose = true;
        } else if (!onlyFiles && argument == "--accelerator") {
            options.accelerator = true;
        } else if (!onlyFiles && argument == "--realtime") {
            options.realtime = true;
        } else if (!onlyFiles && argument == "--loops") {
            options.loops = positiveNumber(argument, argv[++i]);
        } else if (!onlyFiles && argument == "--seconds") {
            options.seconds = positiveNumber(argument, argv[++i]);
            options.loops = 0;
        } else if (std::string* path = onlyFiles ? nullptr : pathOf(options, argument)) {
            if (argv[++i] == nullptr) {
                throw std::invalid_argument(std::string(argument) + " needs a file");
            }
            *path = argv[i];
        } else if (!onlyFiles && (argument == "-h" || argument == "--help")) {
            options.help = true;
        } else if (!onlyFiles && argument.size() > 1 && argument.front() == '-') {
            throw std::invalid_argument("unknown option " + std::string(argument));
        } else if (!options.file.empty()) {
            throw std::invalid_argument("one file at a time, please");
        } else {
            options.file = argument;
        }
    }
    if (options.file.empty() && !options.help) {
        throw std::invalid_argument("which file?");
    }
    if (options.output.empty() ? !options.sheet.empty() : options.config.empty()) {
        throw std::invalid_argument("a recording needs -o and --config");
    }
    return options;
}

}  // namespace demo
