#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "mux/container.h"
#include "mux/verification.h"
#include "mux/whole_file.h"
#include "mux/writer_track.h"

namespace vidorra {

/// Where times are 0 in a file: at `zero`, or where the container takes no times below 0, so much before it
/// that none is.
struct FileStart {
    Timestamp zero;
    Timestamp lead;
};

/// One file, or one sink, on its way from its container's header to its name.
class OutputFile {
public:
    /// Creates the file at the path. Throws as Container and WholeFile.
    OutputFile(const std::string& path, const WriterOptions& options);
    /// For a sink.
    OutputFile(std::shared_ptr<ByteSink> sink, const WriterOptions& options);

    [[nodiscard]] const Container& container() const noexcept { return mContainer; }
    /// Where the bytes are.
    [[nodiscard]] const std::string& place() const noexcept { return mPlace; }
    [[nodiscard]] bool hasBegun() const noexcept { return mHasBegun; }

    /// Writes the header for the tracks; a null one has no stream.
    void begin(const std::vector<const WriterTrack*>& tracks, const FileStart& start,
               const WriterOptions& options);

    /// Writes a packet of a track that has a stream, with times in the track's unit.
    void write(std::size_t track, Packet packet);

    /// Writes the trailer, verifies if that was asked for, and gives the file its name.
    void complete();

    /// Ends the file as far as it can be ended and leaves it where it is; removes it when there is nothing in
    /// it. Throws nothing.
    void leave() noexcept;

private:
    struct Stream {
        int index;
        Timebase timebase;
        // What is added to times, in the unit of the container.
        std::int64_t shift;
    };

    std::string mPlace;
    std::shared_ptr<ByteSink> mSink;
    // The same, where it is a file.
    std::shared_ptr<WholeFile> mFile;
    Container mContainer;
    // By track.
    std::vector<std::optional<Stream>> mStreams;
    std::optional<Verification> mVerification;
    bool mHasBegun = false;
    bool mHasEnded = false;
};

}  // namespace vidorra
