#pragma once

#include <cstdint>
#include <iosfwd>

#include "options.h"
#include "recorder.h"

namespace demo {

/// What playing a file in a loop needs to know about it.
struct FileFacts {
    /// The length of one pass, in seconds.
    double length = 0;
    /// The time between two video frames, in seconds.
    double frameInterval = 0;
    /// Frames that the decoder returns only when it is told that no packet follows.
    std::uint64_t keptBack = 0;
    bool hasAudio = false;
    bool hasVideo = false;
};

/// Plays the file in a loop by a clock of 30 ticks a second, reports how it went, and draws a plot of it.
/// Passes what it plays to `recorder`, which may be null. Throws std::runtime_error for a file that cannot
/// be played.
void playFile(const Options& options, const FileFacts& facts, Recorder* recorder, std::ostream& output);

}  // namespace demo
