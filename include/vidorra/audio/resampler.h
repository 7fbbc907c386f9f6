#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>

#include "vidorra/core/export.h"
#include "vidorra/core/ffmpeg_fwd.h"
#include "vidorra/core/timestamp.h"
#include "vidorra/picture/audio_buffer.h"

namespace vidorra {

/// Brings samples to another rate, channel layout or sample format, one buffer after the other, without a gap
/// between them.
///
///     Resampler resampler;
///     const AudioBuffer samples = resampler.resample(input, 48000, 3, AV_SAMPLE_FMT_FLTP);
///
/// A change of rate holds some samples back, which come with the next buffer of the same kind. They are lost
/// when a call has other parameters than the one before, or when the channel map is set; nothing else makes
/// the filter anew.
///
/// Owns: FFmpeg's resampler. Copies: none. Threads: one at a time.
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
    /// std::bad_alloc when there is no memory.
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
    // FFmpeg takes as many entries as an input has channels, for which it allows up to 64.
    using InputMap = std::array<int, 64>;

    void build(const AudioBuffer& input, int outRate, std::uint64_t outLayout, AVSampleFormat outFormat);

    std::unique_ptr<SwrContext, void (*)(SwrContext*)> mContext;
    std::uint64_t mInLayout = 0;
    AVSampleFormat mInFormat = AV_SAMPLE_FMT_NONE;
    std::int32_t mInRate = 0;
    std::uint64_t mOutLayout = 0;
    AVSampleFormat mOutFormat = AV_SAMPLE_FMT_NONE;
    std::int32_t mOutRate = 0;
    std::array<int, 8> mChannelMap;
    // The map as the context has it. The context keeps a pointer to it, so it does not move with this object.
    std::unique_ptr<InputMap> mInputMap;
};

}  // namespace vidorra
