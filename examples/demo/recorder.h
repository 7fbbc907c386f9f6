#pragma once

#include <cstdint>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <vidorra/vidorra.h>

#include "audio_blocks.h"
#include "mp4_writer.h"
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

    /// Says what was encoded, and which packets carry the mark of a lost signal.
    void summarise(std::ostream& output) const;

private:
    /// What one encoder gave.
    struct Tally {
        std::uint64_t packets = 0;
        std::uint64_t bytes = 0;
        std::uint64_t noSignal = 0;
        // The stretches of packets with the mark: the times of the first and the last one, in seconds.
        std::vector<std::pair<double, double>> stretches;
        bool inStretch = false;
    };

    [[nodiscard]] static bool signalIsLost(const vidorra::Timestamp& time);
    void encodeAudio(const vidorra::AudioFrame& frame);
    void write(vidorra::EncoderBase& encoder, int stream, Tally& tally);
    static void summarise(std::ostream& output, const char* what, const vidorra::EncoderBase& encoder,
                          const Tally& tally);

    std::string mPath;
    // Before all that holds pictures of its memory, the encoder among them.
    std::unique_ptr<Accelerator> mAccelerator;
    std::unique_ptr<vidorra::VideoEncoder> mVideo;
    std::unique_ptr<vidorra::AudioEncoder> mAudio;
    Mp4Writer mWriter;
    int mVideoStream = 0;
    int mAudioStream = 0;
    Tally mVideoTally;
    Tally mAudioTally;

    std::optional<Programme> mProgramme;
    vidorra::Picture mLatest;
    vidorra::SMPTE12TimecodeProvider mTimecodes;
    std::string mFirstTimecode;
    std::string mLastTimecode;
    std::uint64_t mFrames = 0;

    vidorra::Resampler mResampler;
    std::optional<AudioBlocks> mBlocks;
};

}  // namespace demo
