#pragma once

#include <string>

namespace demo {

/// The options on the command line.
struct Options {
    std::string file;
    bool verbose = false;
    bool help = false;
    /// Whether playing is paced by the real clock.
    bool realtime = false;
    /// How long to play: this many loops, or this many seconds if `loops` is 0.
    double loops = 3;
    double seconds = 0;
    /// The file for the plot; none if empty.
    std::string plot;
    /// The file for the recording, none if empty, and the file that describes its encoders.
    std::string output;
    std::string config;
    /// The font of the recording's texts; no texts if empty.
    std::string font;
    /// Whether the recording is composed by an accelerator.
    bool accelerator = false;
    /// The file for the sheet with pictures of the recording; none if empty.
    std::string sheet;
};

/// Parses the command line. Throws std::invalid_argument for an invalid one.
Options parseOptions(int argc, char** argv);

/// How to call the program.
extern const char* const kUsage;

}  // namespace demo
