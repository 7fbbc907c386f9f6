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

/// Makes a programme from the frames that it gets and encodes it into a file: scaled to the size of the
/// encoder, with a moving half-transparent picture on it, stamped with timecodes, and with one second of
/// lost signal.
class Recorder {
public:
    /// Opens the encoders and the file. Throws std::runtime_error when that fails.
    Recorder(const Options& options, bool withAudio);

    /// Takes the next frame of the programme, `time` after its start in the unit of the encoder. An empty
    /// frame repeats the one before.
    void takeVideo(const vidorra::VideoFrame& frame, const vidorra::Timestamp& time);

    /// Takes the next sound of the programme.
    void takeAudio(const vidorra::AudioFrame& frame, const vidorra::Timestamp& time);

    /// Completes the file.
    void finish();

    [[nodiscard]] std::uint64_t frames() const { return mFrames; }

    /// Reports what was encoded, and which packets are marked for a lost signal. Call it after finish().
    void summarise(std::ostream& output) const;

private:
    [[nodiscard]] static bool signalIsLost(const vidorra::Timestamp& time);
    void addVideo(const objstream::object& configs);

    std::string mPath;
    // Declared before everything that holds pictures in its memory, such as the writer.
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
