#pragma once

#include <string>

namespace demo {

/// What the command line asks for.
struct Options {
    std::string file;
    bool verbose = false;
    bool help = false;
    /// Whether playing is paced by the real clock.
    bool realtime = false;
    /// How long to play: so many loops, or if that is 0 so many seconds.
    double loops = 3;
    double seconds = 0;
    /// Where the plot goes; nowhere if empty.
    std::string plot;
    /// Where the recording goes, nowhere if empty, and what describes its encoders.
    std::string output;
    std::string config;
    /// The font of the texts in it; there are none if empty.
    std::string font;
    /// Whether the recording is composed by an accelerator.
    bool accelerator = false;
    /// Where the sheet with pictures of the recording goes; nowhere if empty.
    std::string sheet;
};

/// Reads the command line. Throws std::invalid_argument for one that makes no sense.
Options parseOptions(int argc, char** argv);

/// How to call the program.
extern const char* const kUsage;

}  // namespace demo
