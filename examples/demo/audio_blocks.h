#pragma once

#include <memory>
#include <optional>

#include <vidorra/vidorra.h>

struct AVAudioFifo;

namespace demo {

/// Cuts sound into frames of one size, as codecs such as AAC want them: frames of any size go in, at the
/// rate, layout and format of the codec, and frames of that size come out.
class AudioBlocks {
public:
    /// What an open encoder takes. Codecs that take frames of any size get blocks of 1024 samples.
    explicit AudioBlocks(const AVCodecContext& encoder);
    ~AudioBlocks();

    /// The rate, layout and format of what goes in and comes out.
    [[nodiscard]] int sampleRate() const { return mRate; }
    [[nodiscard]] long channelLayout() const { return mLayout; }
    [[nodiscard]] AVSampleFormat sampleFormat() const { return mFormat; }

    /// Appends the samples. The time of the first frame is that of the whole; from there on samples count.
    void push(const vidorra::AudioFrame& frame);

    /// The next frame of the right size, with the flags of the frame that came last; nothing when there are
    /// too few samples.
    std::optional<vidorra::AudioFrame> pop();

    /// What is left, in a shorter frame; nothing when there is none.
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
