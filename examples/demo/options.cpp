#include "options.h"

#include <stdexcept>
#include <string_view>

namespace demo {

const char* const kUsage =
    "usage: demo FILE [-v]\n"
    "\n"
    "Reads a media file, decodes its video, and says what it saw.\n"
    "\n"
    "  -v  describe each frame\n"
    "  -h  this text\n"
    "\n"
    "Exits with 0, with 1 when the file cannot be read or decoded, or with 2 for a wrong command line.\n";

Options parseOptions(int argc, char** argv) {
    Options options;
    bool onlyFiles = false;
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i];
        if (!onlyFiles && argument == "--") {
            onlyFiles = true;
        } else if (!onlyFiles && argument == "-v") {
            options.verbose = true;
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
    return options;
}

}  // namespace demo
