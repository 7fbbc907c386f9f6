#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "vidorra/core/export.h"
#include "vidorra/core/ffmpeg_fwd.h"
#include "vidorra/core/timestamp.h"
#include "vidorra/picture/audio_buffer.h"

namespace vidorra {

class PlanePool;

/// Brings samples to another rate, channel layout or sample format, one buffer after the other, without a gap
/// between them.
///
///     Resampler resampler;
///     const auto samples = resampler.resample(buffer, 48000, AV_CH_LAYOUT_STEREO, AV_SAMPLE_FMT_FLTP);
///
/// A change of rate holds some samples back, which come with the next buffer of the same kind: at the end of
/// a stream, with a buffer of silence that lasts getDelay() or longer; an empty buffer brings none. They are
/// lost when a call has other parameters than the one before, or when the channel map is set; nothing else
/// makes the filter anew.
///
/// Owns: FFmpeg's resampler and a pool of memory for results, which goes with the last of them. Copies: none.
/// Threads: one at a time; results go on any.
class VIDORRA_API Resampler {
public:
    Resampler();
    ~Resampler();
    Resampler(const Resampler& other) = delete;
    Resampler& operator=(const Resampler& other) = delete;
    /// Leaves the other one as it was after construction.
    Resampler(Resampler&& other) noexcept;
    Resampler& operator=(Resampler&& other) noexcept;

    /// The samples at `outRate` Hz, in the channels of the mask `outLayout` and in `outFormat`. They can be
    /// fewer than what goes in lasts, or none.
    ///
    /// Throws std::invalid_argument when one of the rates is 0 or less, and std::runtime_error, as
    /// AudioBuffer::resize() does, where FFmpeg knows no way between layouts and formats. Throws
    /// std::bad_alloc when there is no memory. After a failure inside FFmpeg the next call starts over,
    /// without the samples that were held back.
    [[nodiscard]] AudioBuffer resample(const AudioBuffer& input, int outRate, long outLayout,
                                       AVSampleFormat outFormat);

    /// resample() to the rate, layout and format of the input: the channel map alone acts.
    [[nodiscard]] AudioBuffer remap(const AudioBuffer& input);

    /// Says which channel of the input stands in each place: up to eight of FFmpeg's names of channels
    /// between "|", each meaning that channel in the usual layout of as many channels as there are names.
    /// "FR|FL" swaps two channels. Places behind the names, names of no channel of that layout, the empty
    /// name among them, and channels that an input does not have, are silent. Throws std::runtime_error for
    /// more than eight names, and there is no map then.
    void setChannelMapping(const std::string& map);

    /// How much of the input is held back, in microseconds; 0 before the first buffer.
    [[nodiscard]] Timestamp getDelay() const;

    /// Adds `sampleDelta` samples, or drops them when it is negative, over the next `compensationDistance`
    /// samples of output. Gives what FFmpeg's swr_set_compensation does: 0, or a negative code. Does nothing
    /// before the first buffer, and gives 0.
    int setCompensation(int sampleDelta, int compensationDistance);

private:
    // A channel mask has no more.
    static constexpr std::size_t kMostChannels = 64;

    // FFmpeg takes as many entries as an input has channels.
    using InputMap = std::array<int, kMostChannels>;

    void build();
    void fail(int code);

    std::unique_ptr<SwrContext, void (*)(SwrContext*)> mContext;
    // Without samples: the layouts, formats and rates that the context is built for.
    AudioBuffer mInput;
    AudioBuffer mOutput;
    std::array<int, 8> mChannelMap;
    // The map as the context has it. The context keeps a pointer to it, so it does not move with this object.
    std::unique_ptr<InputMap> mInputMap;
    // Memory of the results, which serves again when they are gone.
    std::unique_ptr<PlanePool> mPool;
};

}  // namespace vidorra
