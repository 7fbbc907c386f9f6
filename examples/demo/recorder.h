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

    /// Reports what was encoded, and which packets are marked for a lost signal.
    void summarise(std::ostream& output) const;

private:
    /// The output of one encoder.
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
    // Declared before everything that holds pictures in its memory, such as the encoder.
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
