#pragma once

#include <string>

namespace demo {

/// What the command line asks for.
struct Options {
    std::string file;
    bool verbose = false;
    bool help = false;
};

/// Reads the command line. Throws std::invalid_argument for one that makes no sense.
Options parseOptions(int argc, char** argv);

/// How to call the program.
extern const char* const kUsage;

}  // namespace demo
