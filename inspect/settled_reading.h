#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace vidorra::inspect {

/// What MediaFileReader and MediaFileReaderAsync make of the first audio and the first video track of a file.
struct SettledReading {
    std::uint64_t audioFrames = 0;
    std::uint64_t videoFrames = 0;
    /// Whether MediaFileReaderAsync comes to serve frames.
    bool becomesReady = false;
    /// Why MediaFileReaderAsync ends the process; empty when it does not.
    std::string endsProcess;
    /// Samples between the sound of two passes of a loop: silence above 0, an overlap below; nothing without
    /// sound.
    std::optional<std::int64_t> loopGap;
    /// Why the file cannot be opened; empty when it can.
    std::string error;
};

/// Reads the whole file, and the beginning of a second pass.
SettledReading readSettled(const std::string& url);

}  // namespace vidorra::inspect
