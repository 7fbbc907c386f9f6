#pragma once

#include <memory>
#include <optional>

#include <vidorra/vidorra.h>

struct AVAudioFifo;

namespace demo {

/// Cuts sound into frames of one size, as codecs such as AAC need them. Input frames have any size, and the
/// rate, layout and format of the codec.
class AudioBlocks {
public:
    /// Makes blocks for an open encoder. Codecs that take frames of any size get blocks of 1024 samples.
    explicit AudioBlocks(const AVCodecContext& encoder);
    ~AudioBlocks();

    /// The rate, layout and format of input and output.
    [[nodiscard]] int sampleRate() const { return mRate; }
    [[nodiscard]] long channelLayout() const { return mLayout; }
    [[nodiscard]] AVSampleFormat sampleFormat() const { return mFormat; }

    /// Appends the samples. The first frame sets the start time; later times are counted in samples.
    void push(const vidorra::AudioFrame& frame);

    /// The next frame of the right size, with the flags of the latest input frame; nothing when there are
    /// too few samples.
    std::optional<vidorra::AudioFrame> pop();

    /// The remaining samples in a shorter frame; nothing when there are none.
    std::optional<vidorra::AudioFrame> popRest();

private:
    struct Free {
        void operator()(AVAudioFifo* fifo) const;
    };

    std::optional<vidorra::AudioFrame> take(int samples);

    int mRate;
    long mLayout;
    AVSampleFormat mFormat;
    int mBlock;
    std::unique_ptr<AVAudioFifo, Free> mFifo;
    vidorra::Timestamp mStart;
    std::int64_t mSamplesOut = 0;
    vidorra::Frame::FrameFlags mFlags = vidorra::Frame::NoFlags;
};

}  // namespace demo
