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

/// Converts samples to another rate, channel layout or sample format, buffer after buffer, without gaps.
///
///     Resampler resampler;
///     const auto samples = resampler.resample(buffer, 48000, AV_CH_LAYOUT_STEREO, AV_SAMPLE_FMT_FLTP);
///
/// When it changes the rate, the resampler holds some samples back and returns them with the next buffer of
/// the same kind. At the end of a stream pass a buffer of silence that lasts getDelay() or longer to get
/// them; an empty buffer returns none. They are lost when a call has other parameters than the one before,
/// or when the channel map is set; nothing else resets the filter.
///
/// Owns: FFmpeg's resampler and a pool of memory for results. The pool is released with the last result. Not
/// copyable.
/// Threads: one at a time; results may be released on any thread.
class VIDORRA_API Resampler {
public:
    Resampler();
    ~Resampler();
    Resampler(const Resampler& other) = delete;
    Resampler& operator=(const Resampler& other) = delete;
    /// The moved-from resampler is as if newly constructed.
    Resampler(Resampler&& other) noexcept;
    Resampler& operator=(Resampler&& other) noexcept;

    /// The samples at `outRate` Hz, in the channels of the mask `outLayout` and in `outFormat`. They can
    /// last less than the input, and there can be none.
    ///
    /// Throws std::invalid_argument when one of the rates is 0 or less, and std::runtime_error, as
    /// AudioBuffer::resize() does, when FFmpeg cannot convert between the layouts or formats. Throws
    /// std::bad_alloc when there is no memory. After a failure inside FFmpeg the next call starts over,
    /// without the samples that were held back.
    [[nodiscard]] AudioBuffer resample(const AudioBuffer& input, int outRate, long outLayout,
                                       AVSampleFormat outFormat);

    /// resample() to the rate, layout and format of the input: only the channel map has an effect.
    [[nodiscard]] AudioBuffer remap(const AudioBuffer& input);

    /// Sets which input channel goes to each output place: up to eight of FFmpeg's channel names, separated
    /// by "|". A name means that channel in the usual layout with as many channels as there are names.
    /// "FR|FL" swaps two channels. A place is silent if it is past the last name, if its name is empty or
    /// not a channel of that layout, or if the input lacks the channel. Throws std::runtime_error for more
    /// than eight names, and std::bad_alloc; no map is set then.
    void setChannelMapping(const std::string& map);

    /// How much of the input the resampler holds back, in microseconds; 0 before the first buffer.
    [[nodiscard]] Timestamp getDelay() const;

    /// Adds `sampleDelta` samples, or drops them when it is negative, over the next `compensationDistance`
    /// samples of output. Returns the result of FFmpeg's swr_set_compensation: 0, or a negative code. Does
    /// nothing before the first buffer, and returns 0.
    int setCompensation(int sampleDelta, int compensationDistance);

private:
    // A channel mask has at most this many.
    static constexpr std::size_t kMostChannels = 64;

    // FFmpeg takes as many entries as an input has channels.
    using InputMap = std::array<int, kMostChannels>;

    void build();
    void fail(int code);

    std::unique_ptr<SwrContext, void (*)(SwrContext*)> mContext;
    // No samples: only the layouts, formats and rates that the context is built for.
    AudioBuffer mInput;
    AudioBuffer mOutput;
    std::array<int, 8> mChannelMap;
    // The map that the context uses. The context keeps a pointer to it, so it must stay in place when this
    // object moves.
    std::unique_ptr<InputMap> mInputMap;
    // Memory of the results, reused when they have been released.
    std::unique_ptr<PlanePool> mPool;
};

}  // namespace vidorra
