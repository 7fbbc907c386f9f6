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
/// the root mean square of the samples, both linear with full scale at 1. 0 for channels that do not exist.
struct AudioLevel {
    std::array<float, 8> peak{};
    std::array<float, 8> rms{};
};

/// Audio samples: a channel layout, a sample format, a rate, a count and the memory. That is one plane, or
/// one for each channel of a planar format with two or more channels.
///
/// Samples are copied from FFmpeg's frames and to them. Copies of a buffer share its planes without any
/// check: what is written through one copy is seen through all. The count is per object, so resize() through
/// one copy leaves the counts of the others stale.
///
///     AudioBuffer buffer(AV_CH_LAYOUT_STEREO, AV_SAMPLE_FMT_S16);
///     buffer.setSampleRate(48000);
///     buffer.resize(1024);
///     std::memset(buffer.getPointersToPlanes()[0], 0, buffer.planeSize(1024));
///
/// Threads: one at a time for an object and all copies that share its planes, unless all of them only read.
/// Errors: in addition to what the operations say, std::bad_alloc when there is no memory. Sample access
/// without planes throws std::out_of_range.
class VIDORRA_API AudioBuffer {
public:
    /// Empty: no layout, AV_SAMPLE_FMT_NONE, no planes.
    AudioBuffer() = default;

    /// No samples yet, but not empty(). `channelLayout` is a channel mask of FFmpeg, such as
    /// AV_CH_LAYOUT_STEREO.
    AudioBuffer(unsigned long channelLayout, AVSampleFormat format);

    /// `samples` per channel at `rate` Hz in existing memory: numberOfPlanes() planes of at least
    /// planeSize() bytes each; excess bytes are ignored. Throws std::invalid_argument for other planes, and
    /// as planeSize() does.
    AudioBuffer(unsigned long channelLayout, AVSampleFormat format, int rate, unsigned long samples,
                std::vector<MemBuffer> planes);

    [[nodiscard]] unsigned long channelLayout() const noexcept { return mChannelLayout; }
    [[nodiscard]] AVSampleFormat sampleFormat() const noexcept { return mSampleFormat; }

    /// Samples per channel.
    [[nodiscard]] unsigned long numberOfSamples() const noexcept { return mNumberOfSamples; }

    /// How many of the samples the planes hold: all, unless resize() of a copy has shrunk the planes.
    [[nodiscard]] unsigned long availableSamples() const noexcept;

    /// Hz, 0 until it is set.
    [[nodiscard]] int sampleRate() const noexcept { return mSampleRate; }
    void setSampleRate(int rate) noexcept { mSampleRate = rate; }

    /// Whether there are no planes. A buffer with a layout and no samples is not empty.
    [[nodiscard]] bool empty() const noexcept { return mPlanes == nullptr; }

    [[nodiscard]] int numberOfChannels() const noexcept;

    /// One for each channel of a planar format with two or more channels, otherwise one.
    [[nodiscard]] std::size_t numberOfPlanes() const noexcept;

    /// Whether layout, format and rate are the same; the counts are ignored.
    [[nodiscard]] bool isCompatibleWithBuffer(const AudioBuffer& other) const noexcept;

    /// Replaces the planes with new ones without memory and sets the count to 0. Copies keep the old planes.
    void createPlanes();

    /// Makes every plane large enough for `samples` per channel and keeps the content as far as it fits; new
    /// samples are undefined. Throws std::runtime_error when FFmpeg has no size for that many samples of
    /// this layout and format; the count becomes `samples` even then.
    void resize(unsigned long samples);

    /// The bytes of all planes together for `samples` per channel. Throws as resize().
    [[nodiscard]] long getNeededBufferSize(unsigned long samples) const;

    /// The bytes of each plane for `samples` per channel. Throws as resize().
    [[nodiscard]] std::size_t planeSize(unsigned long samples) const;

    /// Takes over the layout, format and rate of a frame, and a copy of its samples. Throws as resize().
    void loadAVFrame(const AVFrame* frame);

    /// Replaces the samples with a mono signal in every channel. Only AV_SAMPLE_FMT_S16 and
    /// AV_SAMPLE_FMT_FLTP are written; in other formats the memory keeps its content. Throws as resize().
    void loadSamples(const std::vector<short>& samples);

    /// Gives a frame a copy of the samples, with count, rate, format and layout. The frame must be new or
    /// reset. Without samples it gets no memory. Throws as resize().
    void fillAVFrame(AVFrame* frame) const;

    /// The start of each plane, null for a plane without memory.
    [[nodiscard]] std::vector<std::uint8_t*> getPointersToPlanes();
    [[nodiscard]] std::vector<const std::uint8_t*> getPointersToPlanes() const;

    /// The samples at `index` of plane 0, read as interleaved 16-bit samples: two for two channels,
    /// otherwise one. Throws std::out_of_range past the end of the plane.
    [[nodiscard]] std::vector<short> getSample_s16(unsigned long index) const;

    /// Writes what getSample_s16() reads: two values for two channels, otherwise one. Throws
    /// std::out_of_range past the end of the plane, and when `values` has too few elements.
    void setSample_s16(std::vector<short> values, unsigned long index);

    /// All zero when there are no samples.
    [[nodiscard]] AudioLevel getAudioLevel() const;

    /// How long the samples last, rounded to the nearest microsecond; 0 without a rate.
    [[nodiscard]] Timestamp duration() const;

    /// "1024 samples 48000Hz stereo fltp", or "(empty)".
    [[nodiscard]] std::string debugDescription() const;

    /// Writes all bytes of a plane. Throws std::out_of_range for a plane that does not exist.
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
