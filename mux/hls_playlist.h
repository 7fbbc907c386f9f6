#pragma once

#include <cstdint>
#include <string>

namespace vidorra {

/// An HLS playlist of a recording: it grows by a segment at a time, and is replaced as a whole each time, so
/// that readers never see a part of it.
class HlsPlaylist {
public:
    explicit HlsPlaylist(std::string path) : mPath(std::move(path)) {}

    /// Adds a complete segment. A path in the playlist's folder, or below, is written relative to it. Throws
    /// std::system_error when the playlist cannot be written.
    void add(const std::string& segment, std::int64_t microseconds);

    /// Says that no segment follows. Throws as add().
    void end();

private:
    void write(const char* tail) const;

    std::string mPath;
    std::string mEntries;
    std::int64_t mLongest = 0;
};

}  // namespace vidorra
