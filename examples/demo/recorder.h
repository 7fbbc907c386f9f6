#pragma once

#include <cstdint>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string>

#include <vidorra/vidorra.h>

#include "options.h"
#include "programme.h"

namespace demo {

/// Makes a programme of the frames that it is given, and encodes it into a file: scaled to the size of the
/// encoder, with a half-transparent picture that wanders over it, stamped with timecodes, and with a second
/// in which the signal is lost.
class Recorder {
public:
    /// Opens encoders and file. Throws std::runtime_error where that fails.
    Recorder(const Options& options, bool withAudio);

    /// The next frame of the programme, `time` after its begin in the unit of the encoder. An empty frame
    /// repeats the one before.
    void takeVideo(const vidorra::VideoFrame& frame, const vidorra::Timestamp& time);

    /// The next sound of the programme.
    void takeAudio(const vidorra::AudioFrame& frame, const vidorra::Timestamp& time);

    /// Completes the file.
    void finish();

    [[nodiscard]] std::uint64_t frames() const { return mFrames; }

    /// Says what was encoded, and which packets carry the mark of a lost signal. After finish().
    void summarise(std::ostream& output) const;

private:
    [[nodiscard]] static bool signalIsLost(const vidorra::Timestamp& time);
    void addVideo(const objstream::object& configs);

    std::string mPath;
    // Before all that holds pictures of its memory, the writer among them.
    std::unique_ptr<Accelerator> mAccelerator;
    vidorra::MediaFileWriter mWriter;
    vidorra::MediaFileWriter::Track mVideo = 0;
    std::optional<vidorra::MediaFileWriter::Track> mAudio;
    vidorra::WriterReport mReport;

    vidorra::Size mSize;
    std::optional<Programme> mProgramme;
    vidorra::Picture mLatest;
    vidorra::SMPTE12TimecodeProvider mTimecodes;
    std::string mFirstTimecode;
    std::string mLastTimecode;
    std::uint64_t mFrames = 0;
};

}  // namespace demo
