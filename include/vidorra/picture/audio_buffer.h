#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

#include "vidorra/core/export.h"
#include "vidorra/core/ffmpeg_fwd.h"
#include "vidorra/core/timestamp.h"
#include "vidorra/picture/mem_buffer.h"

namespace vidorra {

/// The loudness of the first eight channels, in the order of the channel layout: the greatest magnitude and
/// the root mean square of the samples, both linear with full scale at 1. Channels that do not exist have 0.
struct AudioLevel {
    std::array<float, 8> peak{};
    std::array<float, 8> rms{};
};

/// Audio samples: a channel layout, a sample format, a rate, a count and one plane of memory, or one for each
/// channel of a planar format with two channels or more.
///
/// Samples are copied where they come from FFmpeg and where they go to it. Copies of a buffer share its
/// planes, with no check at all: what is written through one is seen through all. The count is per object, so
/// resize() through one copy leaves the count of another stale.
///
///     AudioBuffer buffer(AV_CH_LAYOUT_STEREO, AV_SAMPLE_FMT_S16);
///     buffer.setSampleRate(48000);
///     buffer.resize(1024);
///     std::memset(buffer.getPointersToPlanes()[0], 0, buffer.planeSize(1024));
///
/// Threads: one at a time, copies that share planes included, unless all of them only read.
/// Errors: std::bad_alloc when there is no memory, besides what the operations say. Sample access without
/// planes throws std::out_of_range.
class VIDORRA_API AudioBuffer {
public:
    /// Empty: no layout, AV_SAMPLE_FMT_NONE, no planes.
    AudioBuffer() = default;

    /// No samples yet, which is not empty. `channelLayout` is a channel mask of FFmpeg, such as
    /// AV_CH_LAYOUT_STEREO.
    AudioBuffer(unsigned long channelLayout, AVSampleFormat format);

    /// `samples` per channel at `rate` Hz in memory that is there already: as many planes as
    /// numberOfPlanes(), each of planeSize() bytes or more, of which the rest is left out of sight. Throws
    /// std::invalid_argument for other planes, and as planeSize() does.
    AudioBuffer(unsigned long channelLayout, AVSampleFormat format, int rate, unsigned long samples,
                std::vector<MemBuffer> planes);

    [[nodiscard]] unsigned long channelLayout() const noexcept { return mChannelLayout; }
    [[nodiscard]] AVSampleFormat sampleFormat() const noexcept { return mSampleFormat; }

    /// Samples per channel.
    [[nodiscard]] unsigned long numberOfSamples() const noexcept { return mNumberOfSamples; }

    /// How many of the samples the planes hold: all of them, unless resize() of a copy has shrunk the planes.
    [[nodiscard]] unsigned long availableSamples() const noexcept;

    /// Hz, 0 until it is set.
    [[nodiscard]] int sampleRate() const noexcept { return mSampleRate; }
    void setSampleRate(int rate) noexcept { mSampleRate = rate; }

    /// Whether there are no planes. A buffer with a layout and no samples is not empty.
    [[nodiscard]] bool empty() const noexcept { return mPlanes == nullptr; }

    [[nodiscard]] int numberOfChannels() const noexcept;

    /// One for each channel of a planar format with two channels or more, else one.
    [[nodiscard]] std::size_t numberOfPlanes() const noexcept;

    /// Whether layout, format and rate are the same; the counts do not matter.
    [[nodiscard]] bool isCompatibleWithBuffer(const AudioBuffer& other) const noexcept;

    /// Replaces the planes by new ones without memory and sets the count to 0. Copies keep the old planes.
    void createPlanes();

    /// Makes every plane large enough for `samples` per channel, keeping what is there as far as it fits;
    /// what is new holds anything. Throws std::runtime_error when layout and format have no size for that
    /// many; the count is `samples` even then.
    void resize(unsigned long samples);

    /// The bytes of all planes together for `samples` per channel. Throws as resize().
    [[nodiscard]] long getNeededBufferSize(unsigned long samples) const;

    /// The bytes of each plane for `samples` per channel. Throws as resize().
    [[nodiscard]] std::size_t planeSize(unsigned long samples) const;

    /// Takes over layout, format, rate and a copy of the samples of a frame. Throws as resize().
    void loadAVFrame(const AVFrame* frame);

    /// Replaces the samples by a mono signal, given to every channel. Only AV_SAMPLE_FMT_S16 and
    /// AV_SAMPLE_FMT_FLTP are written; in other formats the memory holds what it held. Throws as resize().
    void loadSamples(const std::vector<short>& samples);

    /// Gives a frame a copy of the samples, with count, rate, format and layout. The frame comes from
    /// av_frame_alloc or was reset. Without samples it gets no memory. Throws as resize().
    void fillAVFrame(AVFrame* frame) const;

    /// The start of each plane, null for a plane without memory.
    [[nodiscard]] std::vector<std::uint8_t*> getPointersToPlanes();
    [[nodiscard]] std::vector<const std::uint8_t*> getPointersToPlanes() const;

    /// The samples at `index` of plane 0, taken as interleaved 16-bit samples: two for two channels, else
    /// one. Throws std::out_of_range behind the end of the plane.
    [[nodiscard]] std::vector<short> getSample_s16(unsigned long index) const;

    /// Writes what getSample_s16() reads: two values for two channels, else one. Throws std::out_of_range
    /// behind the end of the plane, and when `values` has too few.
    void setSample_s16(std::vector<short> values, unsigned long index);

    /// All zero when there are no samples.
    [[nodiscard]] AudioLevel getAudioLevel() const;

    /// The time that the samples last, in microseconds, rounded to the nearest; 0 without a rate.
    [[nodiscard]] Timestamp duration() const;

    /// "1024 samples 48000Hz stereo fltp", or "(empty)".
    [[nodiscard]] std::string debugDescription() const;

    /// Writes all bytes of a plane. Throws std::out_of_range for a plane that there is not.
    void dumpPlane(std::ofstream& out, int plane) const;

private:
    [[nodiscard]] const std::vector<MemBuffer>& planes() const;
    [[nodiscard]] short* samplesAt(unsigned long index, unsigned long count) const;

    unsigned long mChannelLayout = 0;
    AVSampleFormat mSampleFormat = AV_SAMPLE_FMT_NONE;
    unsigned long mNumberOfSamples = 0;
    int mSampleRate = 0;
    std::shared_ptr<std::vector<MemBuffer>> mPlanes;
};

/// Writes debugDescription().
VIDORRA_API std::ostream& operator<<(std::ostream& stream, const AudioBuffer& buffer);

}  // namespace vidorra
